#pragma once

#include <Platform/Types/TimeInterval.hpp>

#include <compare>
#include <cstdint>
#include <limits>

namespace tarn {

/// A point in time of the Dispatch clock, which only runs forward and knows nothing of dates.
///
/// The clock is the system's monotonic one, unless a ManualDispatchClock is installed.
class DispatchTime {
 public:
  /// The present, by the Dispatch clock. Callable from any thread.
  static DispatchTime now() noexcept;

  /// The time that never comes: a wait until then has no time-out, a deadline then is never met.
  static constexpr DispatchTime distantFuture() noexcept {
    return DispatchTime(std::numeric_limits<std::int64_t>::max());
  }

  /// Negative values give the clock's zero.
  constexpr explicit DispatchTime(std::int64_t nanoseconds) noexcept
      : nanoseconds_(nanoseconds < 0 ? 0 : nanoseconds) {}

  constexpr std::int64_t nanoseconds() const noexcept { return nanoseconds_; }

  /// The time `interval` later. Too far ahead, infinite or not a number gives distantFuture(); a
  /// negative interval goes back, at most to the clock's zero.
  friend DispatchTime operator+(DispatchTime time, TimeInterval interval) noexcept {
    return time.advanced(interval);
  }

  /// The span from `earlier` to `later`; infinite when `later` never comes.
  friend TimeInterval operator-(DispatchTime later, DispatchTime earlier) noexcept {
    return later.since(earlier);
  }

  friend constexpr auto operator<=>(DispatchTime, DispatchTime) noexcept = default;

 private:
  DispatchTime advanced(TimeInterval interval) const noexcept;
  TimeInterval since(DispatchTime earlier) const noexcept;

  std::int64_t nanoseconds_;
};

}  // namespace tarn
