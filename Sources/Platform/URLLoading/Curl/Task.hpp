#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/Mailbox.hpp>
#include <Platform/URLLoading/URLSessionDelegate.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

#include <atomic>
#include <memory>
#include <optional>

namespace tarn::detail {

class CurlSession;
class SessionCore;
class Transfer;

/// One task: what any thread sees of it, its transfer on the loop thread, and its events on the
/// delegate queue.
class CurlTask final : public URLSessionDataTask, public std::enable_shared_from_this<CurlTask> {
 public:
  /// `delegate` is null where the session is invalid already; a task that is not `admitted` fails
  /// when it is resumed.
  CurlTask(std::int64_t identifier, std::shared_ptr<CurlSession> session,
           std::shared_ptr<URLSessionDelegate> delegate, URLRequest request, bool admitted);
  ~CurlTask() override;

  State state() const noexcept override { return state_; }
  URLRequest originalRequest() const override { return originalRequest_; }
  URLRequest currentRequest() const override TARN_EXCLUDES(mutex_);
  std::shared_ptr<const URLResponse> response() const override TARN_EXCLUDES(mutex_);
  std::optional<Error> error() const override TARN_EXCLUDES(mutex_);
  std::int64_t countOfBytesReceived() const noexcept override { return bytesReceived_; }

  void resume() override;
  void suspend() override;
  void cancel() override;

  // On the loop thread, by the transfer.
  const URLRequest& request() const noexcept { return originalRequest_; }
  void setCurrentRequest(URLRequest request) TARN_EXCLUDES(mutex_);
  void setResponse(std::shared_ptr<const HTTPURLResponse> response) TARN_EXCLUDES(mutex_);
  void countReceived(std::size_t bytes) noexcept;
  /// Body bytes for the delegate; `expected` are those still to come with them, or -1.
  void addData(const std::uint8_t* bytes, std::size_t size, std::int64_t expected);
  bool isBackedUp() { return mailbox_.isFull(); }
  void askRedirect(std::shared_ptr<const HTTPURLResponse> response, URLRequest newRequest);
  /// The end of the task and of its transfer.
  void finish(std::optional<URLError> error) noexcept;

  // On the loop thread, after the delegate.
  void redirectAnswered(std::optional<URLRequest> request);

  // On the loop thread, by the engine.
  /// Makes the events of this round visible. True: `deliver()` has to be put on the queue.
  bool flush() noexcept;
  const std::shared_ptr<OperationQueue>& queue() const noexcept;

  /// On the queue: tells the delegate what there is.
  void deliver() noexcept;

 private:
  void post(void (CurlTask::*action)());
  void reconcile();
  void continueReading();
  void begin();
  void planDelivery();

  void tell(TaskEvents& events) noexcept;
  void tellRedirect(RedirectQuestion& question);
  void tellCompletion();

  const URLRequest originalRequest_;
  const std::shared_ptr<SessionCore> core_;
  const bool admitted_;
  std::atomic<State> state_{State::suspended};
  std::atomic<std::int64_t> bytesReceived_{0};
  Mailbox mailbox_;

  mutable Mutex mutex_;
  std::optional<URLRequest> redirectedRequest_ TARN_GUARDED_BY(mutex_);
  std::shared_ptr<const HTTPURLResponse> response_ TARN_GUARDED_BY(mutex_);
  std::optional<Error> error_ TARN_GUARDED_BY(mutex_);

  // On the loop thread only.
  std::unique_ptr<Transfer> transfer_;
  bool finished_ = false;
  bool deliveryPlanned_ = false;

  // Used by the events only, one at a time; let go after the last, so that a finished task holds no
  // session.
  std::shared_ptr<CurlSession> session_;
  std::shared_ptr<URLSessionDelegate> delegate_;
};

}  // namespace tarn::detail
