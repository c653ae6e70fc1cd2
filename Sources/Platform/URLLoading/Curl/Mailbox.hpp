#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/Data.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLAuthenticationChallenge.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>

namespace tarn::detail {

/// What a delegate has to be asked before a task goes elsewhere.
struct RedirectQuestion {
  std::shared_ptr<const HTTPURLResponse> response;
  URLRequest newRequest;
};

/// What a server or proxy wants to know before it goes on.
struct ChallengeQuestion {
  URLAuthenticationChallenge challenge;
  bool ofConnection;  // for the session as a whole, not for the task
};

/// What waits to be told to the delegate of one task. At most one of each: data is merged, and
/// after a question or the end nothing else comes before it has been taken. They are told in this
/// order.
struct TaskEvents {
  bool waiting = false;    // for a route to the host
  bool completed = false;  // nothing else comes
  std::unique_ptr<ChallengeQuestion> challenge;
  std::unique_ptr<RedirectQuestion> redirect;
  Data data;
  std::optional<URLError> error;  // why the transfer ended, with `completed`

  /// What comes after these.
  void add(TaskEvents&& later);
};

/// Carries the events of one task from the loop thread to the delegate queue, one batch at a time,
/// so that they are told one after another however many threads the queue has.
class Mailbox {
 public:
  /// Undelivered bytes from which on nothing more is read from the network.
  static constexpr std::size_t capacity = 1024 * 1024;

  /// The batch being put together. On the loop thread only.
  TaskEvents& outgoing();
  /// The body bytes in it. On the loop thread only.
  const Data& heldData() const noexcept;
  /// Whether the delegate is too far behind; if so, a later delivered() tells that there is room.
  /// On the loop thread.
  bool isFull() TARN_EXCLUDES(mutex_);
  /// Makes the outgoing batch visible. True: an operation that takes it has to be put on the queue.
  /// On the loop thread.
  bool flush() TARN_EXCLUDES(mutex_);

  /// On the queue: the batch to tell; there is one where an operation was put on the queue for it.
  std::optional<TaskEvents> take() TARN_EXCLUDES(mutex_);
  struct Next {
    bool more;  ///< another batch waits: another operation has to be put on the queue
    bool room;  ///< the loop waits for room, and there is
  };
  /// On the queue: the batch, with this many bytes, has been told, and was not the last.
  Next delivered(std::size_t bytes) TARN_EXCLUDES(mutex_);

 private:
  std::optional<TaskEvents> outgoing_;
  Mutex mutex_;
  std::optional<TaskEvents> inbox_ TARN_GUARDED_BY(mutex_);
  std::atomic<std::size_t> undelivered_ = 0;  // written with the mutex held
  PerProcess<bool> scheduled_ TARN_GUARDED_BY(mutex_);
  bool loopWaits_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace tarn::detail
