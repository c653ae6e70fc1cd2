#include <Platform/JSON/Detail/Base64.hpp>
#include <Platform/JSON/Detail/ISO8601.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/Detail/ReferenceDate.hpp>
#include <Platform/JSON/Detail/SnakeCase.hpp>
#include <Platform/JSON/JSONDecoder.hpp>

#include <cmath>

namespace tarn {
namespace {

[[noreturn]] void failOutOfRange(JSONReader& reader) {
  reader.failCorrupted("this date is out of range");
}

// The fraction by itself: together with the units it would be rounded twice.
JSONDate decodeUnits(JSONReader& reader, JSONDate origin, std::chrono::microseconds unit) {
  const double value = reader.floatingPoint<double>();
  const double units = std::trunc(value);
  // 2^63 is the first double above the range; what is not a number is no less than it either.
  if (!(units >= -0x1p63 && units < 0x1p63)) failOutOfRange(reader);
  std::int64_t microseconds = 0;
  if (__builtin_mul_overflow(static_cast<std::int64_t>(units), unit.count(), &microseconds) ||
      __builtin_add_overflow(microseconds,
                             std::llround((value - units) * static_cast<double>(unit.count())),
                             &microseconds) ||
      __builtin_add_overflow(microseconds, origin.time_since_epoch().count(), &microseconds))
    failOutOfRange(reader);
  return JSONDate(std::chrono::microseconds(microseconds));
}

}  // namespace

std::string JSONDecoder::convertFromSnakeCase(std::string_view key) {
  return detail::camelCase(key);
}

JSONDate JSONDecoder::secondsSinceReferenceDate(JSONReader& reader) {
  return decodeUnits(reader, detail::referenceDate, std::chrono::seconds(1));
}

JSONDate JSONDecoder::secondsSince1970(JSONReader& reader) {
  return decodeUnits(reader, JSONDate(), std::chrono::seconds(1));
}

JSONDate JSONDecoder::millisecondsSince1970(JSONReader& reader) {
  return decodeUnits(reader, JSONDate(), std::chrono::milliseconds(1));
}

JSONDate JSONDecoder::iso8601(JSONReader& reader) {
  const std::string text = reader.string();
  const auto date = detail::parseISO8601(text);
  if (!date)
    reader.failCorrupted("expected a date like 2026-11-20T08:30:00Z, found the string " +
                         detail::quoted(text));
  return *date;
}

Data JSONDecoder::base64(JSONReader& reader) {
  const std::string text = reader.string();
  auto bytes = detail::base64Bytes(text);
  if (!bytes) reader.failCorrupted("expected Base64, found the string " + detail::quoted(text));
  return Data(*std::move(bytes));
}

}  // namespace tarn
