#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPMockable.hpp>

#include <optional>
#include <string>

#ifdef FAULT_noRequest
struct Request : tarn::HTTPTestMockable<Request> {
#else
struct Request : tarn::DataGetRequestable<Request>, tarn::HTTPTestMockable<Request> {
#endif
#ifdef FAULT_statusIsANumber
  int mockStatus = 404;
#endif
#ifdef FAULT_timeIsANumber
  double mockResponseTime = 2.0;
#endif
#ifdef FAULT_lengthIsText
  std::string mockExpectedContentLength;
#endif
#ifdef FAULT_dataIsText
  std::string mockResponseData;
#endif
#ifdef FAULT_testDataIsText
  std::string testResponseData;
#endif
};

void send() {
  const Request request{};
#ifdef FAULT_testDataIsText
  request.test(std::nullopt, [](const tarn::DataResponse&) {});
#elif defined(FAULT_completionOfAnotherBody)
  request.mock(std::nullopt, [](int) {});
#else
  request.mock(std::nullopt, [](const auto& /*response*/) {});
#endif
}
