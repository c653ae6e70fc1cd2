#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

#include <memory>
#include <string>

/// A request has all that it needs from its interface; each fault takes one thing away.
struct Request
#if defined(FAULT_withoutResponse) || defined(FAULT_withoutTaskProducer)
    : tarn::HTTPGetRequestable<Request> {
#elif defined(FAULT_withoutMethod)
    : tarn::DataRequestable<Request> {
#else
    : tarn::DataGetRequestable<Request> {
#endif
#ifdef FAULT_notCopyable
  std::unique_ptr<int> owned;
#endif
#ifdef FAULT_withoutResponse
  using TaskProducer = tarn::DataTaskProducer;
  std::shared_ptr<TaskProducer> taskProducer() const { return TaskProducer::shared(); }
#endif
#ifdef FAULT_responseIsNoRecord
  using Response = std::string;
#endif
#ifdef FAULT_withoutTaskProducer
  using Response = tarn::DataResponse;
#endif
#ifdef FAULT_headersAreText
  std::string headers;
#endif
#ifdef FAULT_pathIsANumber
  int path = 1;
#endif
#ifdef FAULT_queryItemsAreText
  std::string queryItems() const { return "n=5"; }
#endif
#ifdef FAULT_acceptTypeIsText
  std::string acceptType = "text/plain";
#endif
#ifdef FAULT_timeoutIsANumber
  double timeoutInterval = 5;
#endif
};

void send() {
  Request().send(std::nullopt, [](const tarn::DataResponse&) {});
}
