#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRequestable+Promises.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

struct Request : tarn::HTTPGetRequestable<Request> {
#ifndef FAULT_withoutResponse
  using Response = tarn::DataResponse;
#endif
  using TaskProducer = tarn::DataTaskProducer;
  std::shared_ptr<TaskProducer> taskProducer() const { return TaskProducer::shared(); }
};

void send() { Request().send().cancel(); }
