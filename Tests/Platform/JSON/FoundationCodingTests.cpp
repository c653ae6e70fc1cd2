#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

template <class T>
std::string encoded(const T& value, const JSONEncoder& encoder = {}) {
  try {
    return std::string(encoder.encode(value).view());
  } catch (const EncodingError& error) {
    return "error: " + error.message();
  }
}

// The message of the error; "decoded" where there is none.
template <class T>
std::string failure(std::string_view json, const JSONDecoder& decoder = {}) {
  try {
    decoder.decode<T>(json);
    return "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Case::dataCorrupted);
    return error.message();
  }
}

std::string inQuotes(std::string_view text) { return '"' + std::string(text) + '"'; }

JSONDecoder decoderOf(JSONDate (*strategy)(JSONReader&)) {
  JSONDecoder decoder;
  decoder.dateDecodingStrategy = strategy;
  return decoder;
}

JSONEncoder encoderOf(void (*strategy)(JSONDate, JSONWriter&)) {
  JSONEncoder encoder;
  encoder.dateEncodingStrategy = strategy;
  return encoder;
}

JSONDate date(int y, unsigned m, unsigned d, microseconds time = 0us) {
  return sys_days(year(y) / month(m) / day(d)) + time;
}

TEST(FoundationCodingTests, CodesURLs) {
  const URL url("https://example.com/a%20b?c=d/e#f");
  EXPECT_EQ(encoded(url), R"("https://example.com/a%20b?c=d/e#f")");
  EXPECT_EQ(JSONDecoder().decode<URL>(R"("https:\/\/example.com/a%20b?c=d/e#f")"), url);
  EXPECT_EQ(failure<URL>(R"("")"), "expected a URL, found the string \"\"");
  EXPECT_EQ(failure<std::vector<URL>>(R"(["/", "a b\n"])"),
            "[1]: expected a URL, found the string \"a b\\n\"");
  EXPECT_EQ(failure<URL>(inQuotes(std::string(100, ' '))),
            "expected a URL, found the string \"" + std::string(64, ' ') + "…\"");
}

TEST(FoundationCodingTests, CodesUUIDs) {
  const char* const upper = R"("00112233-4455-6677-8899-AABBCCDDEEFF")";
  const UUID uuid = JSONDecoder().decode<UUID>(upper);
  EXPECT_EQ(encoded(uuid), upper);
  EXPECT_EQ(JSONDecoder().decode<UUID>(R"("00112233-4455-6677-8899-aabbccddeeff")"), uuid);
  EXPECT_EQ(failure<UUID>(R"("00112233")"), "expected a UUID, found the string \"00112233\"");
}

TEST(FoundationCodingTests, CodesBytesAsBase64) {
  const struct {
    const char* bytes;
    const char* text;
  } rows[] = {
      // RFC 4648 section 10.
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xfb\xff\xbf", "+/+/"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(encoded(Data(std::string_view(row.bytes))), inQuotes(row.text));
    EXPECT_EQ(JSONDecoder().decode<Data>(inQuotes(row.text)).view(), row.bytes);
  }
}

TEST(FoundationCodingTests, CodesEveryByteAtEveryPlace) {
  std::vector<std::uint8_t> bytes;
  for (int place = 0; place < 3; ++place) {
    for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<std::uint8_t>(value));
    const Data data(bytes);
    EXPECT_EQ(JSONDecoder().decode<Data>(JSONEncoder().encode(data)), data);
    bytes.insert(bytes.begin(), 0xA5);
  }
}

TEST(FoundationCodingTests, RefusesWhatIsNotBase64) {
  for (const char* text :
       {"Z", "Zg", "Zg=", "Zm8", "Zm9", "=", "==", "====", "Z===", "Zg==Zg==", "Zm8=Zm8=", "Zm9v=",
        "Zm9v====", "Zg=v", "Z=g=", "=Zg=", "Zm 9", "Zm9v ", " Zm9v", "Zm9v\\n", "Zm9v\\r\\nZm9v",
        // The alphabet of section 5.
        "-_-_", "Zm9.", "Zm9\\u00e9",
        // Bits that no byte takes.
        "Zh==", "Zm9=", "Z/==", "Zm/="}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failure<Data>(inQuotes(text)),
              std::string("expected Base64, found the string \"") +
                  (text == std::string_view("Zm9\\u00e9") ? "Zm9é" : text) + '"');
  }
}

TEST(FoundationCodingTests, OtherStrategiesTakeOver) {
  JSONEncoder encoder;
  encoder.dataEncodingStrategy = [](const Data& data, JSONWriter& writer) {
    writer.integer(data.size());
  };
  encoder.dateEncodingStrategy = [](JSONDate, JSONWriter& writer) { writer.string("some day"); };
  EXPECT_EQ(encoded(Data("abc"), encoder), "3");
  EXPECT_EQ(encoded(std::vector{date(2020, 1, 1)}, encoder), R"(["some day"])");

  JSONDecoder decoder;
  decoder.dataDecodingStrategy = [](JSONReader& reader) { return Data(reader.string()); };
  decoder.dateDecodingStrategy = [](JSONReader& reader) {
    return JSONDate(microseconds(reader.integer<int>()));
  };
  EXPECT_EQ(decoder.decode<Data>(R"("abc")"), Data("abc"));
  EXPECT_EQ(decoder.decode<std::vector<JSONDate>>("[7]"), std::vector{JSONDate(7us)});
}

TEST(FoundationCodingTests, CodesDatesAsNumbers) {
  const auto since2001 = JSONEncoder::secondsSinceReferenceDate;
  const auto seconds1970 = JSONEncoder::secondsSince1970;
  const auto milliseconds1970 = JSONEncoder::millisecondsSince1970;
  const auto from2001 = JSONDecoder::secondsSinceReferenceDate;
  const auto fromSeconds1970 = JSONDecoder::secondsSince1970;
  const auto fromMilliseconds1970 = JSONDecoder::millisecondsSince1970;
  const struct {
    void (*encode)(JSONDate, JSONWriter&);
    JSONDate (*decode)(JSONReader&);
    JSONDate date;
    const char* text;
  } rows[] = {
      {since2001, from2001, date(2001, 1, 1), "0"},
      {since2001, from2001, date(1970, 1, 1), "-978307200"},
      {since2001, from2001, date(2026, 11, 20, 8h + 30min + 250ms), "816856200.25"},
      {since2001, from2001, date(2001, 1, 1, 1us), "1e-06"},
      {since2001, from2001, date(2001, 1, 1, -1us), "-1e-06"},
      {seconds1970, fromSeconds1970, date(1970, 1, 1), "0"},
      {seconds1970, fromSeconds1970, date(2001, 1, 1), "978307200"},
      {seconds1970, fromSeconds1970, date(2001, 1, 1, 123456us), "978307200.123456"},
      {seconds1970, fromSeconds1970, date(1969, 12, 31, 23h), "-3600"},
      {milliseconds1970, fromMilliseconds1970, date(2001, 1, 1, 1ms), "978307200001"},
      {milliseconds1970, fromMilliseconds1970, date(2001, 1, 1, 1500us), "978307200001.5"},
      {milliseconds1970, fromMilliseconds1970, date(1969, 12, 31, 86400s - 1us), "-0.001"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(encoded(row.date, encoderOf(row.encode)), row.text);
    EXPECT_EQ(decoderOf(row.decode).decode<JSONDate>(row.text), row.date);
  }
}

TEST(FoundationCodingTests, DatesCountFromTheReferenceDateByDefault) {
  EXPECT_EQ(encoded(date(2001, 1, 1, 1500ms)), "1.5");
  EXPECT_EQ(JSONDecoder().decode<JSONDate>("1.5"), date(2001, 1, 1, 1500ms));
}

TEST(FoundationCodingTests, NumbersOfDatesKeepMicroseconds) {
  std::mt19937_64 random(7);
  std::uniform_int_distribution<std::int64_t> micros(date(1800, 1, 1).time_since_epoch().count(),
                                                     date(2200, 1, 1).time_since_epoch().count());
  for (int i = 0; i < 2000; ++i) {
    const JSONDate value(microseconds{micros(random)});
    ASSERT_EQ(JSONDecoder().decode<JSONDate>(JSONEncoder().encode(value)), value);
    ASSERT_EQ(decoderOf(JSONDecoder::millisecondsSince1970)
                  .decode<JSONDate>(encoderOf(JSONEncoder::millisecondsSince1970).encode(value)),
              value);
    ASSERT_EQ(decoderOf(JSONDecoder::iso8601)
                  .decode<JSONDate>(encoderOf(JSONEncoder::iso8601).encode(value)),
              value);
  }
}

TEST(FoundationCodingTests, RefusesNumbersOfDatesOutOfRange) {
  const auto from2001 = decoderOf(JSONDecoder::secondsSinceReferenceDate);
  const auto from1970 = decoderOf(JSONDecoder::secondsSince1970);
  const auto fromMilliseconds = decoderOf(JSONDecoder::millisecondsSince1970);
  for (const char* text : {"1e13", "-1e13", "1e300", "-1e308", "9223372036854.778", "9.3e12"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failure<JSONDate>(text, from1970), "this date is out of range");
    EXPECT_EQ(failure<JSONDate>(text, from2001),
              text[0] == '-' && text[1] == '9' ? "decoded" : "this date is out of range");
  }
  EXPECT_EQ(failure<JSONDate>("9223372036854.76", from1970), "decoded");
  EXPECT_EQ(failure<JSONDate>("-9223372036854.775", from1970), "decoded");
  // The reference date adds 31 years.
  EXPECT_EQ(failure<JSONDate>("9223372036854.76", from2001), "this date is out of range");
  EXPECT_EQ(failure<JSONDate>("9222393729654.0", from2001), "decoded");
  EXPECT_EQ(failure<JSONDate>("1e16", fromMilliseconds), "this date is out of range");
}

TEST(FoundationCodingTests, RefusesDatesThatAreNotFinite) {
  auto decoder = decoderOf(JSONDecoder::secondsSince1970);
  decoder.nonConformingFloats = {.positiveInfinity = "+", .negativeInfinity = "-", .nan = "?"};
  for (const char* text : {R"("+")", R"("-")", R"("?")"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failure<JSONDate>(text, decoder), "this date is out of range");
    EXPECT_EQ(failure<seconds>(text, decoder), "this number of seconds is out of range");
  }
}

TEST(FoundationCodingTests, RefusesToEncodeDatesOutOfRange) {
  using DoubleTime = sys_time<duration<double>>;
  for (const double value : {1e13, -1e13, 1e300, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(encoded(DoubleTime(duration<double>(value))), "error: this date is out of range");
  }
  EXPECT_EQ(encoded(sys_time<hours>(hours(1LL << 60))), "error: this date is out of range");
  EXPECT_EQ(encoded(JSONDate::min() + 1us), "error: this date is out of range");
  EXPECT_EQ(encoded(JSONDate::max() - 1us).substr(0, 5), "92223");
}

TEST(FoundationCodingTests, CodesEveryPrecisionOfTime) {
  const auto iso = encoderOf(JSONEncoder::iso8601);
  const auto fromISO = decoderOf(JSONDecoder::iso8601);
  EXPECT_EQ(encoded(sys_days(2026y / 11 / 20), iso), R"("2026-11-20T00:00:00Z")");
  EXPECT_EQ(encoded(sys_time<nanoseconds>(1500ns), iso), R"("1970-01-01T00:00:00.000002Z")");
  EXPECT_EQ(encoded(sys_time<duration<double>>(duration<double>(0.5)), iso),
            R"("1970-01-01T00:00:00.5Z")");
  EXPECT_EQ(fromISO.decode<sys_days>(R"("2026-11-20T11:59:59Z")"), sys_days(2026y / 11 / 20));
  EXPECT_EQ(fromISO.decode<sys_days>(R"("2026-11-20T23:59:59.9Z")"), sys_days(2026y / 11 / 20));
  EXPECT_EQ(fromISO.decode<sys_time<nanoseconds>>(R"("1970-01-01T00:00:00.25Z")"),
            sys_time<nanoseconds>(250ms));
  EXPECT_EQ(fromISO.decode<sys_time<duration<double>>>(R"("1970-01-01T00:00:00.25Z")"),
            sys_time<duration<double>>(duration<double>(0.25)));
  EXPECT_EQ(failure<sys_time<nanoseconds>>(R"("2300-01-01T00:00:00Z")", fromISO),
            "this date is out of range");
}

template <class D>
std::string unitsFrom1970(const std::string& json) {
  const auto decoder = decoderOf(JSONDecoder::secondsSince1970);
  try {
    return std::to_string(decoder.decode<sys_time<D>>(json).time_since_epoch().count());
  } catch (const DecodingError& error) {
    return error.message();
  }
}

TEST(FoundationCodingTests, RoundsTimesToTheirUnitWithinItsRange) {
  using Seconds32 = duration<std::int32_t>;
  using Thirds = duration<std::int64_t, std::ratio<1, 3>>;
  const char* const outside = "this date is out of range";
  const struct {
    std::string (*decode)(const std::string&);
    const char* json;
    const char* units;
  } rows[] = {
      // Days and longer units hold the time; they begin with the first of 1970.
      {unitsFrom1970<days>, "86399.999999", "0"},
      {unitsFrom1970<days>, "86400", "1"},
      {unitsFrom1970<days>, "-0.000001", "-1"},
      {unitsFrom1970<days>, "-86400", "-1"},
      {unitsFrom1970<weeks>, "604799", "0"},
      {unitsFrom1970<weeks>, "-1", "-1"},
      {unitsFrom1970<years>, "31556951", "0"},
      {unitsFrom1970<years>, "-1", "-1"},
      // Shorter ones are the nearest, halves the even one.
      {unitsFrom1970<hours>, "1799", "0"},
      {unitsFrom1970<hours>, "1800", "0"},
      {unitsFrom1970<hours>, "5400", "2"},
      {unitsFrom1970<hours>, "-1801", "-1"},
      {unitsFrom1970<seconds>, "1.5", "2"},
      {unitsFrom1970<seconds>, "2.5", "2"},
      {unitsFrom1970<seconds>, "-1.5", "-2"},
      {unitsFrom1970<seconds>, "-2.5", "-2"},
      {unitsFrom1970<seconds>, "-2.6", "-3"},
      {unitsFrom1970<seconds>, "9223372036854.775", "9223372036855"},
      {unitsFrom1970<seconds>, "-9223372036854.775", "-9223372036855"},
      {unitsFrom1970<Thirds>, "0.5", "2"},
      {unitsFrom1970<Thirds>, "-0.333333", "-1"},
      {unitsFrom1970<nanoseconds>, "9223372036", "9223372036000000000"},
      {unitsFrom1970<nanoseconds>, "9223372037", outside},
      {unitsFrom1970<nanoseconds>, "-9223372037", outside},
      {unitsFrom1970<Seconds32>, "2147483647", "2147483647"},
      {unitsFrom1970<Seconds32>, "2147483647.4", "2147483647"},
      {unitsFrom1970<Seconds32>, "2147483647.6", outside},
      {unitsFrom1970<Seconds32>, "2147483648", outside},
      {unitsFrom1970<Seconds32>, "-2147483648", "-2147483648"},
      {unitsFrom1970<Seconds32>, "-2147483649", outside},
      {unitsFrom1970<duration<std::uint32_t>>, "4294967295", "4294967295"},
      {unitsFrom1970<duration<std::uint32_t>>, "-1", outside},
      {unitsFrom1970<duration<std::uint32_t>>, "-0.5", "0"},
      {unitsFrom1970<duration<std::uint64_t>>, "-1", outside},
      {unitsFrom1970<duration<std::int8_t, std::ratio<60>>>, "7620", "127"},
      {unitsFrom1970<duration<std::int8_t, std::ratio<60>>>, "7680", outside},
      {unitsFrom1970<duration<double, std::ratio<60>>>, "90", "1.500000"},
  };
  int number = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(number++) + ": " + row.json);
    EXPECT_EQ(row.decode(row.json), row.units);
  }
}

TEST(FoundationCodingTests, WritesTimesOfEveryUnitWithinTheRange) {
  using Unsigned = duration<std::uint64_t>;
  const auto encoder = encoderOf(JSONEncoder::secondsSince1970);
  EXPECT_EQ(encoded(sys_time<nanoseconds>::max(), encoder), "9223372036.854776");
  EXPECT_EQ(encoded(sys_time<nanoseconds>::min(), encoder), "-9223372036.854776");
  EXPECT_EQ(encoded(sys_time<duration<std::int32_t>>::max(), encoder), "2147483647");
  EXPECT_EQ(encoded(sys_time<Unsigned>(Unsigned(5)), encoder), "5");
  EXPECT_EQ(encoded(sys_time<Unsigned>::max(), encoder), "error: this date is out of range");
  EXPECT_EQ(encoded(sys_time<weeks>(weeks(-1)), encoder), "-604800");
}

TEST(FoundationCodingTests, WritesDatesOfISO8601) {
  const auto encoder = encoderOf(JSONEncoder::iso8601);
  const struct {
    JSONDate date;
    const char* text;
  } rows[] = {
      {date(2026, 11, 20, 8h + 30min), "2026-11-20T08:30:00Z"},
      {date(2026, 1, 2, 3h + 4min + 5s + 60ms), "2026-01-02T03:04:05.06Z"},
      {date(1969, 12, 31, 86400s - 1us), "1969-12-31T23:59:59.999999Z"},
      {date(2024, 2, 29), "2024-02-29T00:00:00Z"},
      {date(0, 1, 1), "0000-01-01T00:00:00Z"},
      {date(9999, 12, 31, 86400s - 1us), "9999-12-31T23:59:59.999999Z"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(encoded(row.date, encoder), inQuotes(row.text));
    EXPECT_EQ(decoderOf(JSONDecoder::iso8601).decode<JSONDate>(inQuotes(row.text)), row.date);
  }
  for (const JSONDate outside : {date(0, 1, 1, -1us), date(10000, 1, 1), JSONDate::max() - 1us,
                                 JSONDate::min() + 1us, date(32767, 12, 31), date(-32767, 1, 1)}) {
    SCOPED_TRACE(outside.time_since_epoch().count());
    EXPECT_EQ(encoded(outside, encoder), "error: this date is outside of the years 0 to 9999");
  }
}

TEST(FoundationCodingTests, ReadsDatesOfISO8601) {
  const auto decoder = decoderOf(JSONDecoder::iso8601);
  const struct {
    const char* text;
    JSONDate date;
  } rows[] = {
      {"2026-11-20t08:30:00z", date(2026, 11, 20, 8h + 30min)},
      {"2026-11-20T08:30:00+00:00", date(2026, 11, 20, 8h + 30min)},
      {"2026-11-20T08:30:00-00:00", date(2026, 11, 20, 8h + 30min)},
      {"2026-11-20T08:30:00+01:30", date(2026, 11, 20, 7h)},
      {"2026-11-20T08:30:00-08:15", date(2026, 11, 20, 16h + 45min)},
      {"2026-01-01T00:00:00+23:59", date(2025, 12, 31, 1min)},
      {"0000-01-01T00:00:00+00:01", date(0, 1, 1, -1min)},
      {"2026-11-20T08:30:00.5Z", date(2026, 11, 20, 8h + 30min + 500ms)},
      {"2026-11-20T08:30:00.123456Z", date(2026, 11, 20, 8h + 30min + 123456us)},
      {"2026-11-20T08:30:00.1234564999Z", date(2026, 11, 20, 8h + 30min + 123456us)},
      {"2026-11-20T08:30:00.1234565Z", date(2026, 11, 20, 8h + 30min + 123457us)},
      {"2026-11-20T08:30:00.99999950000+01:00", date(2026, 11, 20, 7h + 30min + 1s)},
      {"2026-11-20T08:30:00.000000000000000000000000000000000000000001Z",
       date(2026, 11, 20, 8h + 30min)},
      {"2024-02-29T00:00:00Z", date(2024, 2, 29)},
      {"2000-02-29T00:00:00Z", date(2000, 2, 29)},
      // Leap seconds.
      {"2016-12-31T23:59:60Z", date(2017, 1, 1)},
      {"2016-12-31T23:59:60.25Z", date(2017, 1, 1, 250ms)},
      {"1990-12-31T15:59:60-08:00", date(1991, 1, 1)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(decoder.decode<JSONDate>(inQuotes(row.text)), row.date);
  }
}

TEST(FoundationCodingTests, RefusesWhatIsNoDateOfISO8601) {
  const auto decoder = decoderOf(JSONDecoder::iso8601);
  for (const char* text : {"",
                           "2026",
                           "2026-11-20",
                           "08:30:00Z",
                           "2026-11-20T08:30:00",
                           "2026-11-20T08:30Z",
                           "2026-11-20 08:30:00Z",
                           "20261120T083000Z",
                           "2026-11-20T08:30:00Z ",
                           " 2026-11-20T08:30:00Z",
                           "2026-11-20T08:30:00ZZ",
                           "2026-11-20T08:30:00.Z",
                           "2026-11-20T08:30:00,5Z",
                           "2026-11-20T08:30:00.5",
                           "2026-11-20T08:30:00.+01:00",
                           "2026-11-20T08:30:00+0100",
                           "2026-11-20T08:30:00+01",
                           "2026-11-20T08:30:00+24:00",
                           "2026-11-20T08:30:00+01:60",
                           "2026-11-20T08:30:00+1:00",
                           "2026-11-20T08:30:00 01:00",
                           "2026-00-20T08:30:00Z",
                           "2026-13-20T08:30:00Z",
                           "2026-11-00T08:30:00Z",
                           "2026-11-31T08:30:00Z",
                           "2026-02-29T08:30:00Z",
                           "1900-02-29T08:30:00Z",
                           "2026-11-20T24:00:00Z",
                           "2026-11-20T08:60:00Z",
                           "2026-11-20T08:30:61Z",
                           "2026-11-20T08:30:60Z",
                           "2016-12-31T23:59:60+01:00",
                           "-001-11-20T08:30:00Z",
                           "+2026-11-20T08:30:00Z",
                           "12026-11-20T08:30:00Z",
                           "2026-1-20T08:30:00Z",
                           "2026-11-2xT08:30:00Z"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(
        failure<JSONDate>(inQuotes(text), decoder),
        std::string("expected a date like 2026-11-20T08:30:00Z, found the string \"") + text + '"');
  }
}

TEST(FoundationCodingTests, CodesSpansOfTimeInSeconds) {
  EXPECT_EQ(encoded(1500ms), "1.5");
  EXPECT_EQ(encoded(2h), "7200.0");
  EXPECT_EQ(encoded(duration<double>(0.1)), "0.1");
  EXPECT_EQ(encoded(duration<double>(std::nan(""))), "error: the number is not finite");
  EXPECT_EQ(JSONDecoder().decode<milliseconds>("1.5"), 1500ms);
  EXPECT_EQ(JSONDecoder().decode<milliseconds>("-0.0015"), -2ms);
  EXPECT_EQ(JSONDecoder().decode<hours>("7200"), 2h);
  EXPECT_EQ(JSONDecoder().decode<duration<double>>("0.1"), duration<double>(0.1));
  EXPECT_EQ(JSONDecoder().decode<nanoseconds>("4e9"), nanoseconds(4000000000000000000));
}

TEST(FoundationCodingTests, RefusesSpansOfTimeOutOfRange) {
  for (const char* text : {"1e300", "-1e300", "9.3e9", "-9.3e9"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(failure<nanoseconds>(text), "this number of seconds is out of range");
  }
}

template <class D>
std::string unitsOfSpan(const std::string& json) {
  try {
    return std::to_string(JSONDecoder().decode<D>(json).count());
  } catch (const DecodingError& error) {
    return error.message();
  }
}

TEST(FoundationCodingTests, ReadsSpansOfTimeOfEveryKindWithinTheirRange) {
  const char* const outside = "this number of seconds is out of range";
  const struct {
    std::string (*decode)(const std::string&);
    const char* json;
    const char* units;
  } rows[] = {
      {unitsOfSpan<duration<std::int8_t>>, "127", "127"},
      {unitsOfSpan<duration<std::int8_t>>, "127.4", "127"},
      {unitsOfSpan<duration<std::int8_t>>, "127.5", outside},
      {unitsOfSpan<duration<std::int8_t>>, "-128.5", "-128"},
      {unitsOfSpan<duration<std::int8_t>>, "-129", outside},
      {unitsOfSpan<duration<std::uint32_t>>, "4294967295", "4294967295"},
      {unitsOfSpan<duration<std::uint32_t>>, "4294967296", outside},
      {unitsOfSpan<duration<std::uint32_t>>, "-5", outside},
      {unitsOfSpan<duration<std::uint32_t>>, "-0.5", "0"},
      {unitsOfSpan<duration<std::uint64_t>>, "-1", outside},
      {unitsOfSpan<duration<std::uint64_t>>, "18446744073709551615", outside},
      {unitsOfSpan<duration<std::uint64_t>>, "18446744073709549568", "18446744073709549568"},
      {unitsOfSpan<seconds>, "9223372036854775807", outside},
      {unitsOfSpan<seconds>, "9223372036854774784", "9223372036854774784"},
      {unitsOfSpan<seconds>, "-9223372036854775808", "-9223372036854775808"},
      {unitsOfSpan<hours>, "5400", "2"},
      {unitsOfSpan<days>, "86399", "1"},
      {unitsOfSpan<duration<double, std::ratio<60>>>, "90", "1.500000"},
      {unitsOfSpan<duration<double, std::ratio<3600>>>, "-5400", "-1.500000"},
      {unitsOfSpan<duration<double, std::ratio<60>>>, "1e400", "the number 1e400 is out of range"},
      {unitsOfSpan<duration<double, std::milli>>, "1e308", outside},
      {unitsOfSpan<duration<float>>, "0.5", "0.500000"},
      {unitsOfSpan<duration<float>>, "1e300", outside},
      {unitsOfSpan<duration<long double>>, "-2.5", "-2.500000"},
  };
  int number = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(number++) + ": " + row.json);
    EXPECT_EQ(row.decode(row.json), row.units);
  }
  EXPECT_EQ(encoded(duration<double, std::ratio<60>>(1.5)), "90.0");
}

TEST(FoundationCodingTests, ANullStrategyIsTheDefaultOne) {
  JSONDecoder decoder;
  decoder.dateDecodingStrategy = nullptr;
  decoder.dataDecodingStrategy = nullptr;
  EXPECT_EQ(decoder.decode<JSONDate>("1.5"), date(2001, 1, 1, 1500ms));
  EXPECT_EQ(decoder.decode<Data>(R"("Zm9v")"), Data("foo"));
  JSONEncoder encoder;
  encoder.dateEncodingStrategy = nullptr;
  encoder.dataEncodingStrategy = nullptr;
  EXPECT_EQ(encoded(date(2001, 1, 1, 1500ms), encoder), "1.5");
  EXPECT_EQ(encoded(Data("foo"), encoder), R"("Zm9v")");
}

}  // namespace
}  // namespace tarn
