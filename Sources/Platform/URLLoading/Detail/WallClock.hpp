#pragma once

#include <chrono>

namespace tarn::detail {

using WallTime = std::chrono::system_clock::time_point;

/// The present by the calendar: what dates in header fields are compared with.
WallTime wallTime() noexcept;

/// Puts another clock in the place of the system's, for tests; null puts the system's back.
void setWallClock(WallTime (*clock)() noexcept) noexcept;

}  // namespace tarn::detail
