#pragma once

#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/UniqueFunction.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace tarn::detail {

/// The Dispatch clock and the one thread that acts on it: calls what is due, and ticks the pool
/// while work waits there.
///
/// The thread sleeps on a timer of the system, which others set: asking for a tick that turns out
/// not to be needed wakes nobody.
class Timekeeper {
 public:
  struct Key {
    DispatchTime deadline = DispatchTime::distantFuture();
    std::uint64_t sequence = 0;  // equal deadlines are met in the order of the calls
    friend auto operator<=>(const Key&, const Key&) = default;
  };

  /// Never destroyed: threads may be at work while the process exits. A child of fork() has another
  /// one, without what was scheduled in the parent.
  static Timekeeper& shared() {
    Timekeeper* const timekeeper = instance_.load(std::memory_order_acquire);
    return timekeeper != nullptr ? *timekeeper : makeShared();
  }

  DispatchTime now() const noexcept;

  /// Calls `callback`, which belongs to this library and does not block, at the deadline.
  Key schedule(DispatchTime deadline, Work callback) TARN_EXCLUDES(mutex_);

  /// Without effect on one that has been called or is about to be.
  void cancel(const Key& key) TARN_EXCLUDES(mutex_);

  /// Sees to it that the pool is ticked until it needs that no longer.
  void watchWorkers() {
    if (!watching_.load()) startWatching();
  }

  /// Calls the tick off, if the pool does not need it. Called by a worker that leaves none active.
  void relax() {
    if (watching_.load()) relaxOrWait();
  }

  /// Stops the clock for the calls below; false when it is stopped already.
  bool beginManual() TARN_EXCLUDES(mutex_);
  void endManual() TARN_EXCLUDES(mutex_);
  void advance(TimeInterval interval) TARN_EXCLUDES(mutex_);
  void recordDelay(TimeInterval delay) TARN_EXCLUDES(mutex_);
  std::vector<TimeInterval> recordedDelays() TARN_EXCLUDES(mutex_);
  bool waitForRecordedDelays(std::size_t count, RealTime deadline) TARN_EXCLUDES(mutex_);

 private:
  Timekeeper() = default;

  static Timekeeper& makeShared();
  static void beginInChild() noexcept;
  static void threadMain(void* timekeeper) noexcept;
  void start() TARN_EXCLUDES(mutex_);
  void run() noexcept;
  void startWatching() TARN_EXCLUDES(mutex_);
  void relaxOrWait() TARN_EXCLUDES(mutex_);
  void stopWatching() TARN_EXCLUDES(mutex_);
  std::vector<Work> takeDue() TARN_REQUIRES(mutex_);
  RealTime nextWakeUp() const TARN_REQUIRES(mutex_);
  void setTimer(RealTime time) TARN_REQUIRES(mutex_);
  void wakeBy(RealTime time) TARN_REQUIRES(mutex_);

  static constinit std::atomic<Timekeeper*> instance_;
  std::atomic<bool> watching_ = false;
  std::atomic<bool> manual_ = false;
  std::atomic<std::int64_t> manualNow_ = 0;
  std::atomic<bool> started_ = false;
  std::atomic<RealTime> relaxed_ = RealTime();
  Mutex mutex_;
  int timerFd_ = -1;  // written once, by start()
  RealTime timerSetTo_ TARN_GUARDED_BY(mutex_) = RealTime::max();
  RealTime tick_ TARN_GUARDED_BY(mutex_) = RealTime::max();
  std::map<Key, Work> scheduled_ TARN_GUARDED_BY(mutex_);
  std::uint64_t lastSequence_ TARN_GUARDED_BY(mutex_) = 0;
  std::vector<TimeInterval> delays_ TARN_GUARDED_BY(mutex_);
  WaitList delayWaiters_ TARN_GUARDED_BY(mutex_);
};

}  // namespace tarn::detail
