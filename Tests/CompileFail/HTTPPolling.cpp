#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPPolling.hpp>

#include <optional>

#ifdef FAULT_noRequest
struct Status : tarn::HTTPPolling<Status> {
#else
struct Status : tarn::DataGetRequestable<Status>, tarn::HTTPPolling<Status> {
#endif
  explicit Status(int number) : id(number) {}
  int id;

#ifndef FAULT_withoutMake
  static std::optional<Status> make() { return Status(1); }
#endif
#ifdef FAULT_rateIsADuration
  static constexpr tarn::TimeInterval pollingRate{5};
#endif
#ifdef FAULT_shouldFirePollIsNotStatic
  bool shouldFirePoll() const { return true; }
#endif
};

void use() {
#ifdef FAULT_handlerOfTheResponseOnly
  Status::poll([](const tarn::DataResponse&) {});
#else
  Status::poll([](const Status&, const auto& /*response*/) {});
#endif
#ifdef FAULT_sendFromPollWithoutRetry
  Status(1).sendFromPoll(std::nullopt, [](const tarn::DataResponse&) {});
#endif
}
