#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRetryAtempting.hpp>

#ifdef FAULT_noRequest
struct Request : tarn::HTTPRetryAttempting<Request> {
#else
struct Request : tarn::DataGetRequestable<Request>, tarn::HTTPRetryAttempting<Request> {
#endif
#ifdef FAULT_intervalIsADuration
  static constexpr tarn::TimeInterval retryInterval{0.5};
#elif defined(FAULT_intervalIsAField)
  double retryInterval = 0.5;
#elif !defined(FAULT_withoutInterval)
static constexpr double retryInterval = 0.5;
#endif
#ifndef FAULT_withoutLimit
#ifdef FAULT_limitHasAFraction
  static double retryLimit() { return 2.5; }
#else
  static constexpr std::int64_t retryLimit = 3;
#endif
#endif
#ifdef FAULT_deltaIsADuration
  static constexpr tarn::TimeInterval retryDelta{1};
#elif defined(FAULT_deltaHasAFraction)
  static constexpr double retryDelta = 0.5;
#endif
};

void send() {
#ifdef FAULT_completionOfAResponse
  Request().sendAttemptingRetry(std::nullopt, [](const tarn::DataResponse&) {});
#else
  Request().sendAttemptingRetry(std::nullopt, [](const auto& /*result*/) {});
#endif
}
