#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/DispatchTime.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace tarn {

DispatchTime DispatchTime::now() noexcept { return detail::Timekeeper::shared().now(); }

DispatchTime DispatchTime::advanced(TimeInterval interval) const noexcept {
  if (*this == distantFuture()) return *this;
  const double nanoseconds = interval.count() * 1e9;
  // Compared as floating point first: the conversion of what is out of range is undefined.
  const double limit = static_cast<double>(std::numeric_limits<std::int64_t>::max());
  if (std::isnan(nanoseconds) || nanoseconds >= limit - static_cast<double>(nanoseconds_)) {
    return distantFuture();
  }
  if (nanoseconds <= -static_cast<double>(nanoseconds_)) return DispatchTime(0);
  return DispatchTime(nanoseconds_ + std::llround(nanoseconds));
}

TimeInterval DispatchTime::since(DispatchTime earlier) const noexcept {
  if (*this == distantFuture()) return TimeInterval(std::numeric_limits<double>::infinity());
  return TimeInterval(static_cast<double>(nanoseconds_ - earlier.nanoseconds_) / 1e9);
}

}  // namespace tarn
