#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Transport/SessionTaskProducer.hpp>

#include <string>

namespace tarn::detail {

std::shared_ptr<URLSession> SessionOwner::present() {
  const MutexLock lock(mutex_);
  return *session_;
}

std::shared_ptr<URLSession> SessionOwner::session(
    std::shared_ptr<URLSessionDelegate> delegate,
    const std::shared_ptr<OperationQueue>& delegateQueue) {
  const MutexLock lock(mutex_);
  auto& session = *session_;
  if (!session) session = URLSession::make(configuration_, std::move(delegate), delegateQueue);
  return session;
}

void SessionOwner::reset(const std::shared_ptr<URLSession>& former) {
  forget(*former);
  former->invalidateAndCancel();
}

void SessionOwner::didBecomeInvalid(const URLSession& invalid, std::string_view messageStart,
                                    const std::optional<Error>& error) {
  logger().error(std::string(messageStart) +
                     (error ? error->localizedDescription() : "No error message") +
                     " attempting to reset",
                 {}, {}, SourceLocation::in("urlSession(_:didBecomeInvalidWithError:)"));
  forget(invalid);
}

void SessionOwner::forget(const URLSession& former) {
  // A session that was replaced before must not take its successor with it, whose end would then
  // reset the next.
  const MutexLock lock(mutex_);
  if (session_->get() == &former) session_->reset();
}

}  // namespace tarn::detail
