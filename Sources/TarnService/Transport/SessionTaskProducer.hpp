#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace tarn {
namespace detail {

/// The one session of a producer: made on first use, and again after it became invalid or was
/// reset; a child of fork() makes its own. Callable from any thread.
class SessionOwner {
 public:
  explicit SessionOwner(URLSessionConfiguration configuration)
      : configuration_(std::move(configuration)) {}

  /// Null where there is none yet.
  std::shared_ptr<URLSession> present();
  std::shared_ptr<URLSession> session(std::shared_ptr<URLSessionDelegate> delegate,
                                      const std::shared_ptr<OperationQueue>& delegateQueue);
  /// Invalidates `former` and forgets it.
  void reset(const std::shared_ptr<URLSession>& former);
  /// Logs the end of a session and forgets it.
  void didBecomeInvalid(const URLSession& invalid, std::string_view messageStart,
                        const std::optional<Error>& error);

 private:
  void forget(const URLSession& former);

  const URLSessionConfiguration configuration_;
  Mutex mutex_;
  PerProcess<std::shared_ptr<URLSession>> session_ TARN_GUARDED_BY(mutex_);
};

}  // namespace detail

/// What the library's producers have in common: one instance that requests share, one delegate
/// queue for each class, and a session, with default settings unless the producer is made with
/// others.
///
/// A session that becomes invalid, or is reset, is replaced by a new one at the next use. A session
/// keeps its producer alive: one that is no longer wanted is let go by invalidating its session.
/// `Self` is the producer class, which says its `queueName` and its `invalidationMessage`;
/// `Interface` is the kind of tasks that it makes.
template <class Self, class Interface>
class SessionTaskProducer : public Interface,
                            public URLSessionDelegate,
                            public std::enable_shared_from_this<Self> {
 public:
  /// A producer of the caller's own, for the requests whose `taskProducer()` answers it. All its
  /// sessions, after a reset too, are made with `configuration`; one that a session refuses fails
  /// each of the requests.
  static std::shared_ptr<Self> make(
      URLSessionConfiguration configuration = URLSessionConfiguration::ephemeral()) {
    return std::shared_ptr<Self>(new Self(std::move(configuration)));
  }
  /// The producer that requests use unless they name another. Made on first use; lives as long as
  /// the process.
  static const std::shared_ptr<Self>& shared() {
    const detail::NoForkScope scope;  // not while it is being made
    // Default settings throughout, so a task without a route to its host fails at once: kept,
    // requests are written for it.
    static const auto& producer = *new std::shared_ptr<Self>(make());
    return producer;
  }
  /// The delegate queue of every session that this class makes.
  static const std::shared_ptr<OperationQueue>& sessionQueue() {
    const detail::NoForkScope scope;  // not while it is being made
    static const auto& queue = *new std::shared_ptr<OperationQueue>(
        std::make_shared<OperationQueue>(detail::queueLabel(Self::queueName)));
    return queue;
  }

  /// Made on first use and kept, until it becomes invalid or is reset.
  std::shared_ptr<URLSession> session() override {
    if (auto present = owner_.present()) return present;
    return owner_.session(this->shared_from_this(), sessionQueue());
  }
  void resetSession() override { owner_.reset(session()); }

  void didBecomeInvalid(URLSession& session, const std::optional<Error>& error) override {
    owner_.didBecomeInvalid(session, Self::invalidationMessage, error);
  }
  void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                           URLChallengeHandler completionHandler) override {
    this->validate(session, challenge, completionHandler);
  }
  void taskIsWaitingForConnectivity(URLSession&, URLSessionTask& task) override {
    this->checkWaitForConnectivity(task);
  }

 protected:
  explicit SessionTaskProducer(URLSessionConfiguration configuration)
      : owner_(std::move(configuration)) {}

 private:
  detail::SessionOwner owner_;
};

}  // namespace tarn
