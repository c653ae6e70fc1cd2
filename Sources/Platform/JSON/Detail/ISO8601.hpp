#pragma once

#include <Platform/JSON/JSONCoding.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tarn::detail {

/// A date and time of RFC 3339, rounded to microseconds; a leap second is the second after it.
std::optional<JSONDate> parseISO8601(std::string_view text) noexcept;

/// "2026-11-20T08:30:00.25Z"; nothing outside of the years 0 to 9999.
std::optional<std::string> formatISO8601(JSONDate date);

}  // namespace tarn::detail
