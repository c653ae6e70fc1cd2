#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Transport/DataTaskProducer.hpp>

namespace tarn {

std::shared_ptr<DataTaskProducer> DataTaskProducer::make() {
  return std::shared_ptr<DataTaskProducer>(new DataTaskProducer);
}

const std::shared_ptr<DataTaskProducer>& DataTaskProducer::shared() {
  static const auto& producer = *new std::shared_ptr<DataTaskProducer>(make());
  return producer;
}

const std::shared_ptr<OperationQueue>& DataTaskProducer::sessionQueue() {
  static const auto& queue = *new std::shared_ptr<OperationQueue>(
      std::make_shared<OperationQueue>(detail::queueLabel("tarnservice.datataskproducer")));
  return queue;
}

std::shared_ptr<URLSession> DataTaskProducer::makeSession() {
  // Default settings throughout, so a task without a route to its host fails at once: kept,
  // requests are written for it.
  return URLSession::make(URLSessionConfiguration::ephemeral(), shared_from_this(), sessionQueue());
}

std::shared_ptr<URLSession> DataTaskProducer::session() {
  const MutexLock lock(mutex_);
  if (!session_) session_ = makeSession();
  return session_;
}

void DataTaskProducer::resetSession() {
  const auto former = session();
  {
    const MutexLock lock(mutex_);
    session_ = nullptr;
  }
  former->invalidateAndCancel();
}

void DataTaskProducer::didBecomeInvalid(URLSession& invalid, const std::optional<Error>& error) {
  logger().error("TarnService session became invalid with error: " +
                     (error ? error->localizedDescription() : "No error message") +
                     " attempting to reset",
                 {}, {}, SourceLocation::in("urlSession(_:didBecomeInvalidWithError:)"));
  // A session that was replaced before must not take its successor with it, whose end would then
  // reset the next.
  const MutexLock lock(mutex_);
  if (session_.get() == &invalid) session_ = nullptr;
}

void DataTaskProducer::taskIsWaitingForConnectivity(URLSession&, URLSessionTask& task) {
  checkWaitForConnectivity(task);
}

void DataTaskProducer::didReceiveData(URLSession&, URLSessionDataTask& task, Data data) {
  write(std::move(data), task);
}

void DataTaskProducer::didComplete(URLSession&, URLSessionTask& task,
                                   const std::optional<Error>& error) {
  reportCompletion(task, error);
}

void resetDefaultTaskProducers() { DataTaskProducer::shared()->resetSession(); }

}  // namespace tarn
