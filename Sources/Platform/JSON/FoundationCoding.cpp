#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/FoundationCoding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <cmath>

namespace tarn::detail {
namespace {

// What T::parse makes of a string.
template <class T>
T parsed(JSONReader& reader, const char* expected) {
  const std::string text = reader.string();
  const auto value = T::parse(text);
  if (!value)
    reader.failCorrupted(std::string("expected ") + expected + ", found the string " +
                         quoted(text));
  return *value;
}

}  // namespace

JSONDate decodeDate(JSONReader& reader) {
  const auto& strategy = reader.decoder().dateDecodingStrategy;
  return strategy ? strategy(reader) : JSONDecoder::secondsSinceReferenceDate(reader);
}

void encodeDate(JSONDate date, JSONWriter& writer) {
  const auto& strategy = writer.encoder().dateEncodingStrategy;
  strategy ? strategy(date, writer) : JSONEncoder::secondsSinceReferenceDate(date, writer);
}

std::optional<std::int64_t> scaled(std::int64_t count, TimeScale scale,
                                   Rounding rounding) noexcept {
  std::int64_t whole = count / scale.divisor;
  std::int64_t rest = count % scale.divisor;
  if (rest < 0) {
    --whole;
    rest += scale.divisor;
  }
  if (__builtin_mul_overflow(whole, scale.factor, &whole) ||
      __builtin_mul_overflow(rest, scale.factor, &rest) ||
      __builtin_add_overflow(whole, rest / scale.divisor, &whole))
    return std::nullopt;
  rest %= scale.divisor;
  const std::int64_t missing = scale.divisor - rest;
  const bool isUp =
      rounding == Rounding::nearest && (rest > missing || (rest == missing && whole % 2 != 0));
  if (isUp && __builtin_add_overflow(whole, 1, &whole)) return std::nullopt;
  return whole;
}

void failDateOutOfRange(JSONReader& reader) { reader.failCorrupted("this date is out of range"); }

void failDateOutOfRange(JSONWriter& writer) { writer.failInvalid("this date is out of range"); }

namespace {

double decodeUnits(JSONReader& reader, TimeScale perSecond) {
  return reader.floatingPoint<double>() * static_cast<double>(perSecond.factor) /
         static_cast<double>(perSecond.divisor);
}

[[noreturn]] void failSecondsOutOfRange(JSONReader& reader) {
  reader.failCorrupted("this number of seconds is out of range");
}

}  // namespace

// What is not a number is in no range.
double decodeUnits(JSONReader& reader, TimeScale perSecond, long double greatest) {
  const double units = decodeUnits(reader, perSecond);
  if (!(units >= -greatest && units <= greatest)) failSecondsOutOfRange(reader);
  return units;
}

double decodeWholeUnits(JSONReader& reader, TimeScale perSecond, double least, double beyond) {
  const double units = std::nearbyint(decodeUnits(reader, perSecond));
  if (!(units >= least && units < beyond)) failSecondsOutOfRange(reader);
  return units;
}

URL DefaultCoding<URL>::decode(JSONReader& reader) { return parsed<URL>(reader, "a URL"); }

void DefaultCoding<URL>::encode(const URL& url, JSONWriter& writer) {
  writer.string(url.absoluteString());
}

UUID DefaultCoding<UUID>::decode(JSONReader& reader) { return parsed<UUID>(reader, "a UUID"); }

void DefaultCoding<UUID>::encode(const UUID& uuid, JSONWriter& writer) {
  writer.string(uuid.uuidString());
}

Data DefaultCoding<Data>::decode(JSONReader& reader) {
  const auto& strategy = reader.decoder().dataDecodingStrategy;
  return strategy ? strategy(reader) : JSONDecoder::base64(reader);
}

void DefaultCoding<Data>::encode(const Data& bytes, JSONWriter& writer) {
  const auto& strategy = writer.encoder().dataEncodingStrategy;
  strategy ? strategy(bytes, writer) : JSONEncoder::base64(bytes, writer);
}

}  // namespace tarn::detail
