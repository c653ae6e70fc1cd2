#pragma once

#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/Mailbox.hpp>
#include <Platform/URLLoading/URLSessionDelegate.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

#include <atomic>
#include <forward_list>
#include <memory>
#include <optional>

namespace tarn::detail {

class CurlSession;
class Engine;
class Transfer;

/// What a session gives each of its tasks.
struct TaskSetup {
  std::int64_t identifier;
  std::shared_ptr<CurlSession> session;
  URLSessionDelegate* delegate;     // the session's; null where that is invalid already
  std::optional<URLError> refusal;  // why the task fails as soon as it is resumed
};

/// What all tasks have in common: the state that any thread sees, the transfer on the loop thread,
/// and the events on the delegate queue. What kind of task it is says a class derived from it.
class CurlTask : public std::enable_shared_from_this<CurlTask> {
 public:
  using State = URLSessionTask::State;

  CurlTask(TaskSetup setup, URLRequest request);
  virtual ~CurlTask();
  CurlTask(const CurlTask&) = delete;
  CurlTask& operator=(const CurlTask&) = delete;

  State state() const noexcept { return state_; }
  const URLRequest& originalRequest() const noexcept { return originalRequest_; }
  const URLRequest& currentRequest() const noexcept { return *currentRequest_; }
  std::shared_ptr<const HTTPURLResponse> response() const noexcept;
  std::optional<Error> error() const noexcept;
  std::int64_t countOfBytesReceived() const noexcept { return bytesReceived_; }

  void resume();
  void suspend();
  void cancel();

  // On the loop thread, by the transfer.
  /// The file to send as the body, whatever body the request has; null for none.
  virtual const URL* bodyFile() const noexcept { return nullptr; }
  /// Looks at the head of the final answer. A request instead of which that answer came is to be
  /// sent in place of the last; an URLError is thrown for an answer that won't do.
  virtual std::optional<URLRequest> requestInstead(const HTTPURLResponse& answer);
  /// Whether the body of its answer is for a file. Such an answer neither comes from the session's
  /// cache nor is kept there.
  virtual bool isDownload() const noexcept { return false; }
  /// The request that is sent from now on. It lives as long as the task.
  const URLRequest& setCurrentRequest(URLRequest request);
  /// At most once.
  void setResponse(std::shared_ptr<const HTTPURLResponse> response) noexcept;
  void countReceived(std::size_t bytes) noexcept;
  /// Body bytes for the delegate; `expected` are those still to come with them, or -1.
  void addData(const std::uint8_t* bytes, std::size_t size, std::int64_t expected);
  /// As above, bytes that are shared with others.
  void addData(const Data& bytes);
  /// Body bytes that have not been handed over yet.
  const Data& heldData() const noexcept { return underWay_->mailbox.heldData(); }
  bool isBackedUp() { return underWay_->mailbox.isFull(); }
  void askRedirect(std::shared_ptr<const HTTPURLResponse> response, URLRequest newRequest);
  void askChallenge(URLAuthenticationChallenge challenge, bool ofConnection);
  void tellWaiting();
  /// The end of the task and of its transfer.
  void finish(std::optional<URLError> error) noexcept;

  // On the loop thread, after the delegate.
  void redirectAnswered(std::optional<URLRequest> request);
  void challengeAnswered(URLSessionAuthChallengeDisposition disposition,
                         std::optional<URLCredential> credential);

  // On the loop thread, by the engine.
  /// Makes the events so far visible. True: `deliver()` has to be put on the queue.
  bool flush() noexcept;
  const std::shared_ptr<OperationQueue>& queue() const noexcept;

  /// On the queue: tells the delegate what there is.
  void deliver() noexcept;

 protected:
  virtual URLSessionTask& face() noexcept = 0;

  /// On the loop thread: what to send first, where that is not the original request.
  virtual std::optional<URLRequest> firstRequest() { return std::nullopt; }

  // On the queue, in this order. What an event of the delegate throws stays within `tell`; an
  // URLError that these throw themselves fails the task.
  virtual void takeBody(Data bytes) = 0;
  /// All of the body has been taken.
  virtual void completeBody() {}
  /// The outcome stands and is `error()`; didComplete comes next.
  virtual void settled() noexcept {}

  /// Calls a member of the delegate with the session, the task and what follows.
  template <class Task, class... Parameters, class... Arguments>
  void tell(const char* event,
            void (URLSessionDelegate::*member)(URLSession&, Task&, Parameters...), Task& task,
            Arguments&&... arguments) noexcept {
    if (!underWay_->delegate) return;
    guarded(event, [&] {
      ((*underWay_->delegate).*member)(session(), task, std::forward<Arguments>(arguments)...);
    });
  }
  template <class Action>
  static void guarded(const char* where, Action&& action) noexcept {
    try {
      action();
    } catch (...) {
      reportUncaughtError(Error::current(), where);
    }
  }

 private:
  friend class CurlSession;

  /// What a task needs until its last event has been told.
  struct UnderWay {
    explicit UnderWay(TaskSetup setup);

    const std::shared_ptr<CurlSession> session;  // it holds its delegate for as long
    URLSessionDelegate* const delegate;
    bool isListed = false;  // among the session's tasks; written by who makes or retires this one
    std::size_t place = 0;  // there, under the session's lock
    Mailbox mailbox;

    // On the loop thread only.
    const std::optional<URLError> refusal;
    std::unique_ptr<Transfer> transfer;
    bool deliveryPlanned = false;
    bool bodyBegun = false;

    // By the events only, one at a time.
    std::optional<URLError> failure;
  };

  void post(void (CurlTask::*action)());
  void postReconcile();
  void reconcile();
  void endInChild() noexcept;
  void continueReading();
  void begin() noexcept;
  void giveUp();
  void planDelivery();

  Transfer* transfer() const noexcept;
  URLSession& session() noexcept;
  void deliver(TaskEvents& events) noexcept;
  template <class Action>
  void attempt(Action&& action) noexcept;
  void askDelegate(RedirectQuestion& question) noexcept;
  void askDelegate(ChallengeQuestion& question) noexcept;
  void settle() noexcept;

  const URLRequest originalRequest_;
  Engine& engine_;
  std::atomic<State> state_{State::suspended};
  std::atomic<bool> reconcilePosted_{false};
  std::atomic<bool> hasResponse_{false};
  bool finished_ = false;  // on the loop thread only
  std::atomic<std::int64_t> bytesReceived_{0};
  std::atomic<const URLRequest*> currentRequest_{&originalRequest_};
  std::forward_list<URLRequest> laterRequests_;      // the last comes first
  std::shared_ptr<const HTTPURLResponse> response_;  // read once hasResponse_ is set
  std::unique_ptr<const Error> error_;               // read once the state is completed
  // Let go by the last event; the loop knows by `finished_` that this may have happened.
  std::unique_ptr<UnderWay> underWay_;
};

/// A task as the application sees it.
template <class Interface>
class TaskFace : public Interface, public CurlTask {
 public:
  using State = URLSessionTask::State;

  TaskFace(TaskSetup setup, URLRequest request)
      : Interface(setup.identifier), CurlTask(std::move(setup), std::move(request)) {}

  State state() const noexcept override { return CurlTask::state(); }
  URLRequest originalRequest() const override { return CurlTask::originalRequest(); }
  URLRequest currentRequest() const override { return CurlTask::currentRequest(); }
  std::shared_ptr<const URLResponse> response() const override { return CurlTask::response(); }
  std::optional<Error> error() const override { return CurlTask::error(); }
  std::int64_t countOfBytesReceived() const noexcept override {
    return CurlTask::countOfBytesReceived();
  }
  void resume() override { CurlTask::resume(); }
  void suspend() override { CurlTask::suspend(); }
  using Interface::cancel;
  void cancel() override { CurlTask::cancel(); }

 protected:
  URLSessionTask& face() noexcept override { return *this; }
};

}  // namespace tarn::detail
