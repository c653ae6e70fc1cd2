#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <functional>
#include <memory>
#include <optional>

namespace tarn {

namespace detail {
class TimerCore;
}

/// A strict timer source: runs its event handler on a queue at a deadline and, if wanted, at a
/// fixed interval after it.
///
/// Each fire is computed from the schedule, so delays do not add up; fires missed while the handler
/// runs, waits for its queue or is suspended become one. Made suspended and without a schedule.
/// Callable from any thread. Destroying the timer cancels it. An exception that leaves a handler is
/// reported under the queue's label.
class DispatchTimer {
 public:
  explicit DispatchTimer(const DispatchQueue& queue);
  ~DispatchTimer();
  DispatchTimer(const DispatchTimer&) = delete;
  DispatchTimer& operator=(const DispatchTimer&) = delete;

  /// What runs at each later fire, in place of the handler before. The handler is released by
  /// cancel().
  void setEventHandler(std::function<void()> handler);

  /// What runs once on the queue after cancel(). Without effect on a timer that is cancelled.
  void setCancelHandler(std::function<void()> handler);

  /// Sets the first fire and the interval of the ones after it (at least one millisecond); replaces
  /// the schedule before.
  void schedule(DispatchTime deadline, std::optional<TimeInterval> repeating = std::nullopt);

  /// Ends one suspend(), or the suspension in which the timer was made; one too many is a fatal
  /// error.
  void resume();

  /// Holds fires back until the balancing resume(); a handler that is running goes on.
  void suspend();

  /// Ends the timer for good, suspended or not.
  ///
  /// Called on the timer's serial queue, no handler starts once it has returned; called elsewhere,
  /// a handler that has started may still be running.
  void cancel();

  bool isCancelled() const;

 private:
  std::shared_ptr<detail::TimerCore> core_;
};

}  // namespace tarn
