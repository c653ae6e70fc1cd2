#pragma once

#include <Platform/URLLoading/Detail/WallClock.hpp>

#include <optional>
#include <string_view>

namespace tarn::detail {

/// A date of a header field in any of its three forms (RFC 9110, 5.6.7), letters in either case;
/// nothing for all else. A year of two digits is the one that lies at most 50 years after `now`.
std::optional<WallTime> parseHTTPDate(std::string_view text, WallTime now = wallTime()) noexcept;

}  // namespace tarn::detail
