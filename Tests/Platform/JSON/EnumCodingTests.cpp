#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/EnumCoding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace paint {

enum class Colour { red, green = 7, blue = -128, last = 127 };
enum class Small : std::uint8_t { none, most = 127 };
enum Plain : std::int16_t { first = -1, second };
enum class Switch : bool { off, on };
enum class Unit { metre, kilogram };
enum class Twice { first = 1, again = 1 };
enum class Letter : char { comma = ',', parenthesis = ')', quote = '\'', z = 'z' };

enum class Status { open = 1000, closed = -2000, lost };
constexpr auto jsonCases(Status) {
  return std::to_array<tarn::JSONCase<Status>>(
      {{Status::open, "OPEN"}, {Status::closed, "is closed"}, {Status::closed, "shut"}});
}

enum class Level : std::uint8_t { low = 1, high = 200 };
constexpr tarn::JSONRawValues jsonCases(Level) { return {}; }

enum class Grade : char { best = 'A', worst = 'F' };
constexpr tarn::JSONRawValues jsonCases(Grade) { return {}; }
enum class Sign : char16_t { last = 0xFFFF };
constexpr tarn::JSONRawValues jsonCases(Sign) { return {}; }

struct Thing {
  Colour colour{};
  Level level{};
};

}  // namespace paint

namespace tarn {
namespace {

enum class Hidden { here, there };

template <class E>
void expectNamed(E value, const std::string& json) {
  SCOPED_TRACE(json);
  EXPECT_EQ(encoded(value), json);
  EXPECT_EQ(decoded<E>(json), value);
}

TEST(EnumCodingTests, EnumsAreTheNamesOfTheirEnumerators) {
  enum class Local { inside };
  expectNamed(paint::Colour::red, R"("red")");
  expectNamed(paint::Colour::green, R"("green")");
  expectNamed(paint::Colour::blue, R"("blue")");
  expectNamed(paint::Colour::last, R"("last")");
  expectNamed(paint::Small::most, R"("most")");
  expectNamed(paint::Small::none, R"("none")");
  expectNamed(paint::first, R"("first")");
  expectNamed(paint::second, R"("second")");
  expectNamed(paint::Switch::on, R"("on")");
  expectNamed(paint::Unit::kilogram, R"("kilogram")");
  expectNamed(paint::Letter::comma, R"("comma")");
  expectNamed(paint::Letter::parenthesis, R"("parenthesis")");
  expectNamed(paint::Letter::quote, R"("quote")");
  expectNamed(paint::Letter::z, R"("z")");
  expectNamed(Hidden::there, R"("there")");
  expectNamed(Local::inside, R"("inside")");
}

TEST(EnumCodingTests, OfTwoNamesForAValueTheFirstCounts) {
  expectNamed(paint::Twice::again, R"("first")");
  EXPECT_EQ(decodingFailure<paint::Twice>(R"("again")"),
            R"(dataCorrupted: expected one of "first", found the string "again")");
}

TEST(EnumCodingTests, OtherTextsComeFromATable) {
  expectNamed(paint::Status::open, R"("OPEN")");
  expectNamed(paint::Status::closed, R"("is closed")");
  // The first of two texts is written, both are read.
  EXPECT_EQ(decoded<paint::Status>(R"("shut")"), paint::Status::closed);
}

TEST(EnumCodingTests, RawEnumsAreNumbers) {
  expectNamed(paint::Level::low, "1");
  expectNamed(paint::Level::high, "200");
  expectNamed(paint::Grade::worst, "70");
  expectNamed(paint::Sign::last, "65535");
  // Whether named or not.
  expectNamed(static_cast<paint::Level>(3), "3");
  EXPECT_EQ(decodingFailure<paint::Level>("256"),
            "dataCorrupted: expected a whole number from 0 to 255, found 256");
}

TEST(EnumCodingTests, UnknownNamesAreRefused) {
  const std::pair<const char*, const char*> rows[] = {
      {R"("Red")",
       R"(dataCorrupted: expected one of "blue", "red", "green", "last", found the string "Red")"},
      {R"("")",
       R"(dataCorrupted: expected one of "blue", "red", "green", "last", found the string "")"},
      {"0", "typeMismatch: expected a string, found the number 0"},
      {"null", "valueNotFound: expected a string, found null"},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decodingFailure<paint::Colour>(json), expected);
  }
  EXPECT_EQ(
      decodingFailure<paint::Status>(R"("open")"),
      R"(dataCorrupted: expected one of "OPEN", "is closed", "shut", found the string "open")");
  EXPECT_EQ(decodingFailure<paint::Thing>(R"({"colour": "x", "level": 1})"),
            R"(dataCorrupted: colour: expected one of "blue", "red", "green", "last", )"
            R"(found the string "x")");
}

TEST(EnumCodingTests, ValuesWithoutANameAreNotWritten) {
  EXPECT_EQ(encodingFailure(static_cast<paint::Colour>(1)), "the value 1 of this enum has no name");
  EXPECT_EQ(encodingFailure(static_cast<paint::Colour>(-300)),
            "the value -300 of this enum has no name");
  EXPECT_EQ(encodingFailure(paint::Status::lost), "the value -1999 of this enum has no name");
  EXPECT_EQ(encodingFailure(std::vector{paint::Small::none, static_cast<paint::Small>(200)}),
            "[1]: the value 200 of this enum has no name");
}

TEST(EnumCodingTests, EnumsStandWhereverValuesStand) {
  EXPECT_EQ(encoded(paint::Thing{paint::Colour::green, paint::Level::high}),
            R"({"colour":"green","level":200})");
  const auto thing = decoded<paint::Thing>(R"({"colour": "r\u0065d", "level": 2e2})");
  EXPECT_EQ(thing.colour, paint::Colour::red);
  EXPECT_EQ(thing.level, paint::Level::high);
  using Map = std::map<std::string, std::vector<paint::Colour>>;
  EXPECT_EQ(decoded<Map>(R"({"a": ["red", "blue"]})"),
            (Map{{"a", {paint::Colour::red, paint::Colour::blue}}}));
}

enum Unfixed { somewhere };
static_assert(!JSONReadable<Unfixed> && !JSONWritable<Unfixed>);

}  // namespace
}  // namespace tarn
