#pragma once

#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <cstddef>
#include <vector>

namespace tarn {

/// Takes the place of the Dispatch clock while it exists, so that tests decide when time passes.
///
/// Time starts at the present of the system's clock and stands still until advance(). Only
/// asyncAfter and timers follow it: waits for a group or semaphore last real time, so that they can
/// bound a test. One at a time: a second one is a fatal error. Callable from any thread. When it
/// goes, the system's clock takes over, and what is already due by that clock fires.
class ManualDispatchClock {
 public:
  ManualDispatchClock();
  ~ManualDispatchClock();
  ManualDispatchClock(const ManualDispatchClock&) = delete;
  ManualDispatchClock& operator=(const ManualDispatchClock&) = delete;

  DispatchTime now() const noexcept;

  /// Moves time on in one leap, then posts what has become due to its queues in order of deadline,
  /// on the calling thread.
  ///
  /// Like any late wake-up, a leap over several deadlines of one repeating timer fires it once. It
  /// does not wait for what it posted to have run; what that schedules in turn counts from the new
  /// time.
  void advance(TimeInterval interval);

  /// The delays that asyncAfter was asked for since this clock was installed, in the order of the
  /// calls.
  std::vector<TimeInterval> requestedDelays() const;

  /// Blocks until asyncAfter has been called at least `count` times since this clock was installed;
  /// false when that does not happen within `limit` of real time.
  bool waitForRequestedDelays(std::size_t count, TimeInterval limit) const;
};

}  // namespace tarn
