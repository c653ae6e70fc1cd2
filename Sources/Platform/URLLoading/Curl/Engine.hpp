#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/UniqueFunction.hpp>
#include <Platform/URLLoading/Curl/RouteMonitor.hpp>
#include <Platform/URLLoading/Curl/SocketOwner.hpp>
#include <Platform/URLLoading/Curl/TimerHeap.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <vector>

namespace tarn::detail {

class CurlTask;
class SessionCore;

/// The one thread that drives every transfer of the process: sockets, deadlines and an inbox of
/// work.
///
/// Made on first use, never destroyed. At exit its thread is stopped and joined, so that nothing
/// runs while the TLS library is torn down; work posted later is dropped. A child of fork() has
/// another one: what is posted to the parent's is dropped there, and sessions on it are dead.
class Engine {
 public:
  /// Throws std::system_error where the process has no thread or descriptor left.
  static Engine& shared();

  /// Runs `work` on the loop thread. Callable from any thread.
  void post(Work work) TARN_EXCLUDES(mutex_);

  /// Whether it is that of the process that this one was forked from.
  bool isAbandoned() const noexcept { return abandoned_; }

  // All below: on the loop thread only.

  /// The time at which this round of the loop began to work.
  Clock::time_point now() const noexcept { return now_; }
  TimerHeap& timers() noexcept { return timers_; }
  RouteMonitor& routes() noexcept { return routes_; }

  /// Registers interest in a socket for its owner; `events` are epoll's, none of them ends it.
  void watch(int socket, std::uint32_t events, SocketOwner& owner);
  void unwatch(int socket) noexcept;
  /// Tells of the socket of a connection that is kept. Its registration then outlives the end of
  /// interest until something happens on it: mostly the next transfer takes the connection over
  /// before, and nothing has to be changed. Ends with socketClosed().
  void connectionKept(int socket) noexcept;
  void socketClosed(int socket) noexcept;
  /// Ends every registration of an owner.
  void forget(const SocketOwner& owner) noexcept;
  /// Has the session look for finished transfers at the end of this round.
  void serveLater(std::shared_ptr<SessionCore> session);
  /// Has the task hand its events over at the end of this round or one of the next few, so that
  /// those of a small answer go together, and those of several tasks.
  void deliverLater(std::shared_ptr<CurlTask> task);

 private:
  /// One descriptor's registration. The generation tells a late event for a former owner of the
  /// number.
  struct Watch {
    SocketOwner* owner = nullptr;
    std::uint32_t events = 0;
    std::uint32_t generation = 0;
    bool lingers = false;
    bool ended = false;  // nobody is interested any more

    void clear() noexcept {
      ++generation;
      owner = nullptr;
      events = 0;
      ended = false;
    }
  };

  Engine();
  ~Engine() = delete;

  void startThread();
  void stop() noexcept;
  static void stopAtExit() noexcept;
  static void beginInChild() noexcept;
  void abandon() noexcept TARN_EXCLUDES(mutex_);

  void run() noexcept;
  /// Whether a socket was ready.
  bool waitForEvents() noexcept;
  int timeout() const noexcept;
  void dispatch(std::uint64_t tag, std::uint32_t events) noexcept;
  void drainInbox() noexcept;
  void settle() noexcept;
  void fireTimers() noexcept;
  void serveSessions() noexcept;
  Watch& watchOf(int socket);
  void endWatch(int socket, Watch& watch) noexcept;
  void deliver() noexcept;
  void wake() noexcept;

  const int epoll_;
  const int wakeUp_;
  const std::size_t processors_;
  pthread_t thread_{};
  std::atomic<bool> stopped_{false};
  bool abandoned_ = false;  // set while the process has one thread

  Mutex mutex_;
  std::vector<Work> inbox_ TARN_GUARDED_BY(mutex_);
  bool asleep_ TARN_GUARDED_BY(mutex_) = false;

  Clock::time_point now_;
  TimerHeap timers_;
  RouteMonitor routes_{*this};
  std::vector<Watch> watches_;
  std::vector<Work> work_;
  std::vector<std::shared_ptr<SessionCore>> sessions_;
  std::vector<std::shared_ptr<CurlTask>> deliveries_;
  Clock::time_point heldSince_;  // the round in which the first of them came
};

}  // namespace tarn::detail
