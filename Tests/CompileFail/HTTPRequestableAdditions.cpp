#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

/// A producer that makes no data tasks.
class Producer final : public tarn::HTTPTaskProducer {
 public:
  std::shared_ptr<tarn::URLSession> session() override { return nullptr; }
  void resetSession() override {}
};

/// A request on a producer of its own makes its tasks itself.
struct Request : tarn::HTTPGetRequestable<Request> {
  using Response = tarn::DataResponse;
  using TaskProducer = Producer;
  std::shared_ptr<Producer> taskProducer() const { return std::make_shared<Producer>(); }
#ifndef FAULT_withoutCreateTask
  std::shared_ptr<tarn::URLSessionTask> createTask(const std::optional<tarn::DispatchQueue>&,
                                                   const tarn::Completion<Response>&) const {
    return nullptr;
  }
#endif
};

void send() {
  Request().send(std::nullopt, [](const tarn::DataResponse&) {});
}
