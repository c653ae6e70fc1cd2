#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarn {
namespace {

struct Point {
  int x{};
  int y{};
};
struct Circle {
  int radius{};
};
enum class Colour { red, green };

/// Counts how often it is tried.
struct Counted {
  static thread_local int tries;

  static Counted decode(JSONReader& reader) {
    ++tries;
    reader.failCorrupted("never");
  }
};
thread_local int Counted::tries = 0;

struct Quoted {
  int value = 0;
};

}  // namespace

/// Reads numbers from strings, though what it inherits reads an object.
template <>
struct JSONCoding<Quoted> : detail::DefaultCoding<Quoted> {
  static Quoted decode(JSONReader& reader) { return {std::stoi(reader.string())}; }
};

namespace {

template <class... T>
std::string failureOfOne(std::string_view json) {
  return decodingFailure<std::variant<T...>>(json);
}

TEST(VariantCodingTests, AnAlternativeAloneTellsWhatIsWrong) {
  using Map = std::map<std::string, int>;
  const struct {
    std::string (*failure)(std::string_view json);
    const char* json;
    const char* message;
  } rows[] = {
      {failureOfOne<std::int8_t>, "300",
       "dataCorrupted: expected a whole number from -128 to 127, found 300"},
      {failureOfOne<std::int8_t, std::string>, "300",
       "dataCorrupted: expected a whole number from -128 to 127, found 300"},
      // Several that go by the same name count as one; the last is what could be read still.
      {failureOfOne<std::int8_t, std::int16_t>, "70000",
       "dataCorrupted: expected a whole number from -32768 to 32767, found 70000"},
      {failureOfOne<int, Point>, R"({"x": 1})", R"(keyNotFound: the key "y" is missing)"},
      {failureOfOne<std::vector<int>, Point>, "[1, true]",
       "typeMismatch: [1]: expected a number, found true"},
      {failureOfOne<Map, std::string>, R"({"a": []})",
       "typeMismatch: a: expected a number, found an array"},
      {failureOfOne<int, Colour>, R"("blue")",
       R"(dataCorrupted: expected one of "red", "green", found the string "blue")"},
      {failureOfOne<int, bool>, "tru",
       R"(dataCorrupted: expected a value, found "tru" (line 1, column 1))"},
  };
  for (const auto& [failure, json, message] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(failure(json), message);
  }
}

TEST(VariantCodingTests, WhatFitsNoneIsToldByReadableNames) {
  using Numbers = std::vector<int>;
  using Map = std::map<std::string, int>;
  const struct {
    std::string (*failure)(std::string_view json);
    const char* json;
    const char* message;
  } rows[] = {
      {failureOfOne<std::int8_t, std::uint64_t, double>, "true",
       "typeMismatch: expected a number, found true"},
      {failureOfOne<signed char, std::string, bool>, "[]",
       "typeMismatch: expected a number, a string or true or false, found an array"},
      {failureOfOne<Numbers, Map, Colour, URL>, "1",
       "typeMismatch: expected an array, an object, Colour or URL, found the number 1"},
      {failureOfOne<std::chrono::seconds, std::monostate>, R"("x")",
       "typeMismatch: expected a number or null, found the string \"x\""},
      {failureOfOne<Point, Circle>, "{}",
       "typeMismatch: expected Point or Circle, found an object"},
      {failureOfOne<Point, Circle>, "null", "valueNotFound: expected Point or Circle, found null"},
  };
  for (const auto& [failure, json, message] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(failure(json), message);
  }
}

TEST(VariantCodingTests, CodingsOfOnesOwnAreTriedWithEveryKind) {
  Counted::tries = 0;
  const auto values =
      decoded<std::vector<std::variant<Counted, JSONValue>>>(R"([null, true, 1, "x", [], {}])");
  EXPECT_EQ(values.size(), 6U);
  EXPECT_EQ(Counted::tries, 6);
  EXPECT_EQ(std::get<Quoted>(decoded<std::variant<int, Quoted>>(R"("12")")).value, 12);
}

TEST(VariantCodingTests, KindsFollowTheDecodersSettings) {
  using Variant = std::variant<double, std::string>;
  JSONDecoder decoder;
  EXPECT_EQ(decoder.decode<Variant>(R"("inf")"), Variant("inf"));
  decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  EXPECT_EQ(decoder.decode<Variant>(R"("inf")").index(), 0U);
  EXPECT_EQ(decoder.decode<Variant>(R"("other")"), Variant("other"));
  using Date = std::variant<JSONDate, int>;
  decoder.dateDecodingStrategy = JSONDecoder::iso8601;
  EXPECT_EQ(decoder.decode<Date>(R"("1970-01-01T00:00:00Z")"), Date(JSONDate()));
  EXPECT_EQ(decoder.decode<Date>("5"), Date(5));
}

TEST(VariantCodingTests, EmptyOptionalsAndInnerVariantsAreAlternatives) {
  using Inner = std::variant<bool, std::string>;
  using Variant = std::variant<std::optional<int>, Inner>;
  EXPECT_EQ(decoded<Variant>("null"), Variant(std::optional<int>()));
  EXPECT_EQ(decoded<Variant>("7"), Variant(std::optional<int>(7)));
  EXPECT_EQ(decoded<Variant>("true"), Variant(Inner(true)));
  EXPECT_EQ(decoded<Variant>(R"("x")"), Variant(Inner("x")));
}

// MARK: Attempts inside each other

struct First;
struct Second;
using Either = std::variant<First, Second>;
struct First {
  std::vector<Either> c;
  int a{};
};
struct Second {
  std::vector<Either> c;
  int b{};
};

std::string nestedEithers(int depth, const std::string& end) {
  std::string json;
  for (int i = 0; i < depth; ++i) json += R"({"c":[)";
  for (int i = 0; i < depth; ++i) json += "]" + end + "}";
  return json;
}

TEST(VariantCodingTests, TryingWithinTryingIsBounded) {
  const std::string nested = nestedEithers(200, "");
  EXPECT_EQ(decodingFailure<Either>(nested), "dataCorrupted: too many alternatives were tried");
  EXPECT_EQ(decodingFailure<std::vector<Either>>("[" + nested + "," + nested + "]"),
            "dataCorrupted: [0]: too many alternatives were tried");
  // All are the second, which each level finds out by reading what is inside twice.
  EXPECT_EQ(decodingFailure<Either>(nestedEithers(200, R"(,"b":1)")),
            "dataCorrupted: too many alternatives were tried");
}

TEST(VariantCodingTests, WhoCatchesTheErrorOfTooManyTriesTriesNoMore) {
  struct Lenient {
    int failures = 0;

    static Lenient decode(JSONReader& reader) {
      Lenient result;
      reader.array([&] {
        try {
          reader.decode<Either>();
        } catch (const DecodingError&) {
          ++result.failures;
        }
      });
      return result;
    }
  };
  std::string json = "[" + nestedEithers(200, "");
  for (int i = 0; i < 100; ++i) json += "," + nestedEithers(200, "");
  EXPECT_EQ(decoded<Lenient>(json + "]").failures, 101);
}

TEST(VariantCodingTests, AFewLevelsOfTryingAreRead) {
  EXPECT_EQ(decodingFailure<Either>(nestedEithers(8, R"(,"b":1)")), "decoded");
  EXPECT_EQ(decodingFailure<Either>(nestedEithers(8, "")),
            "typeMismatch: expected First or Second, found an object");
  EXPECT_EQ(decodingFailure<Either>(nestedEithers(200, R"(,"a":1)")), "decoded");
}

template <std::size_t I>
struct Message {
  std::map<std::string, int> body;
  std::variant<Point, Circle> shape;
};
struct Last {
  int last{};
};

TEST(VariantCodingTests, LongArraysOfVariantsAreRead) {
  constexpr std::size_t count = 100'000;
  std::string json = "[";
  for (std::size_t i = 0; i < count; ++i) json += R"({"radius":1},)";
  json.back() = ']';
  const auto shapes = decoded<std::vector<std::variant<Point, Circle, Last>>>(json);
  ASSERT_EQ(shapes.size(), count);
  EXPECT_EQ(std::get<Circle>(shapes.back()).radius, 1);
}

TEST(VariantCodingTests, ManyAlternativesBesideEachOtherAreRead) {
  constexpr int count = 2'000;
  std::string json = "[";
  for (int i = 0; i < count; ++i)
    json += R"({"body":{"a":1,"b":2,"c":3,"d":4},"last":1,"shape":{"side":1}},)";
  json.back() = ']';
  using Variant =
      std::variant<Message<0>, Message<1>, Message<2>, Message<3>, Message<4>, Message<5>,
                   Message<6>, Message<7>, Message<8>, Message<9>, Message<10>, Message<11>, Last>;
  const auto values = decoded<std::vector<Variant>>(json);
  ASSERT_EQ(values.size(), std::size_t{count});
  EXPECT_EQ(std::get<Last>(values.back()).last, 1);
}

}  // namespace
}  // namespace tarn
