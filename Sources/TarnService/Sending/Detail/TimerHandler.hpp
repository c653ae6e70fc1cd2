#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchTimer.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <functional>
#include <memory>

namespace tarn::detail {

/// The timer of one polled type: runs its block at a fixed rate on a serial queue of its own.
///
/// Callable from any thread. A change takes its turn on the timer's queue, so it waits for a block
/// that is running; inside of any timer's block it is made at once, so that blocks never wait for
/// each other.
class TimerHandler {
 public:
  enum class State { suspended, resumed };

  /// A running timer; its first tick comes after one interval.
  static std::shared_ptr<TimerHandler> start(TimeInterval timeInterval,
                                             std::function<void()> block);
  TimerHandler() = delete;
  ~TimerHandler();
  TimerHandler(const TimerHandler&) = delete;
  TimerHandler& operator=(const TimerHandler&) = delete;

  /// Without effect on a timer that is in the state already, as suspend() is.
  void resume();
  void suspend();
  /// Suspends for good: what is resumed later stays silent.
  void stop();

  State state() const TARN_EXCLUDES(mutex_);

 private:
  explicit TimerHandler(std::function<void()> block);

  template <class F>
  void onQueue(F change);
  void set(State state) TARN_EXCLUDES(mutex_);

  const std::function<void()> block_;
  const DispatchQueue timerQueue_;
  DispatchTimer timer_;
  mutable Mutex mutex_;
  State state_ TARN_GUARDED_BY(mutex_) = State::suspended;
};

}  // namespace tarn::detail
