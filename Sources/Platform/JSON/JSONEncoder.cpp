#include <Platform/JSON/Detail/Base64.hpp>
#include <Platform/JSON/Detail/ISO8601.hpp>
#include <Platform/JSON/Detail/ReferenceDate.hpp>
#include <Platform/JSON/Detail/SnakeCase.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

namespace tarn {
namespace {

// Whole units are written as whole numbers: services that keep their dates in integers read those
// alone.
void encodeUnits(JSONDate date, JSONDate origin, std::chrono::microseconds unit,
                 JSONWriter& writer) {
  std::int64_t count = 0;
  if (__builtin_sub_overflow(date.time_since_epoch().count(), origin.time_since_epoch().count(),
                             &count))
    writer.failInvalid("this date is out of range");
  if (count % unit.count() == 0)
    writer.integer(count / unit.count());
  else
    writer.floatingPoint(static_cast<double>(count) / static_cast<double>(unit.count()));
}

}  // namespace

std::string JSONEncoder::convertToSnakeCase(std::string_view key) { return detail::snakeCase(key); }

void JSONEncoder::secondsSinceReferenceDate(JSONDate date, JSONWriter& writer) {
  encodeUnits(date, detail::referenceDate, std::chrono::seconds(1), writer);
}

void JSONEncoder::secondsSince1970(JSONDate date, JSONWriter& writer) {
  encodeUnits(date, JSONDate(), std::chrono::seconds(1), writer);
}

void JSONEncoder::millisecondsSince1970(JSONDate date, JSONWriter& writer) {
  encodeUnits(date, JSONDate(), std::chrono::milliseconds(1), writer);
}

void JSONEncoder::iso8601(JSONDate date, JSONWriter& writer) {
  const auto text = detail::formatISO8601(date);
  if (!text) writer.failInvalid("this date is outside of the years 0 to 9999");
  writer.string(*text);
}

void JSONEncoder::base64(const Data& bytes, JSONWriter& writer) {
  writer.string(detail::base64({bytes.begin(), bytes.size()}));
}

}  // namespace tarn
