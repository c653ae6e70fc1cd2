#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Array = JSONValue::Array;
using Object = JSONValue::Object;
using Kind = JSONValue::Kind;

enum Unscoped { enumerator };
static_assert(!std::is_constructible_v<JSONValue, char>);
static_assert(!std::is_constructible_v<JSONValue, int*>);
static_assert(!std::is_constructible_v<JSONValue, Unscoped>);
static_assert(std::is_nothrow_move_constructible_v<JSONValue>);
static_assert(std::is_nothrow_move_assignable_v<JSONValue>);

const JSONValue& sample() {
  static const JSONValue value = Object{{"name", "Ada"},
                                        {"list", Array{1, 2.5, nullptr, Array{}, Object{}}},
                                        {"yes", true},
                                        {"nothing", nullptr}};
  return value;
}
constexpr const char* sampleText =
    R"({"list":[1,2.5,null,[],{}],"name":"Ada","nothing":null,"yes":true})";

TEST(JSONValueTests, ValuesAreBuiltFromPlainOnes) {
  const std::pair<JSONValue, const char*> rows[] = {
      {{}, "null"},
      {nullptr, "null"},
      {true, "true"},
      {false, "false"},
      {1, "1"},
      {std::int8_t{-1}, "-1"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {1.0, "1.0"},
      {0.5F, "0.5"},
      {"text", R"("text")"},
      {std::string("text"), R"("text")"},
      {std::string_view("text"), R"("text")"},
      {Array{}, "[]"},
      {Array{1}, "[1]"},
      {Array{"a", "b"}, R"(["a","b"])"},
      {Array{Array{1}, Array{2, 3}}, "[[1],[2,3]]"},
      {Object{}, "{}"},
      {Object{{"a", "b"}}, R"({"a":"b"})"},
      {Object{{"a", "b"}, {"c", "d"}}, R"({"a":"b","c":"d"})"},
      {Object{{"b", Object{{"x", 1}}}, {"a", Array{2}}}, R"({"a":[2],"b":{"x":1}})"},
      {sample(), sampleText},
  };
  for (const auto& [value, json] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(value.description(), json);
    EXPECT_EQ(encoded(value), json);
    EXPECT_TRUE(decoded<JSONValue>(json) == value);
  }
}

TEST(JSONValueTests, NumbersKeepTheFormTheyAreWrittenIn) {
  const std::pair<const char*, JSONValue> rows[] = {
      {"1", 1},
      {"1.0", 1.0},
      {"1e0", 1.0},
      {"1E2", 100.0},
      {"-0", 0},
      {"-0.0", -0.0},
      {"9007199254740993", 9007199254740993},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"9223372036854775808", 9223372036854775808U},
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
      {"18446744073709551616", 18446744073709551616.0},
      {"-9223372036854775809", -9223372036854775808.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1e-999", 0.0},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_TRUE(decoded<JSONValue>(json) == expected) << decoded<JSONValue>(json).description();
  }
  for (const std::string json : {"1", "1.0", "-0.0", "18446744073709551615", "9007199254740993"})
    EXPECT_EQ(encoded(decoded<JSONValue>(json)), json);
}

TEST(JSONValueTests, NumbersBeyondTheRangeOfDoublesAreRefused) {
  EXPECT_EQ(decodingFailure<JSONValue>(R"({"a": [1, -1e999]})"),
            "dataCorrupted: a[1]: the number -1e999 is out of range");
}

TEST(JSONValueTests, EqualityTellsTheFormsOfNumbersApart) {
  EXPECT_TRUE(JSONValue(1) == JSONValue(1U));
  EXPECT_FALSE(JSONValue(1) == JSONValue(1.0));
  EXPECT_FALSE(JSONValue(1) == JSONValue(true));
  EXPECT_FALSE(JSONValue("1") == JSONValue(1));
  EXPECT_FALSE(JSONValue(Array{}) == JSONValue(Object{}));
  EXPECT_FALSE(JSONValue(Array{1, 2}) == JSONValue(Array{2, 1}));
  EXPECT_TRUE(JSONValue() == nullptr);
  EXPECT_TRUE(sample()["name"] == "Ada");
  EXPECT_TRUE(sample() == JSONValue(sample()));
}

TEST(JSONValueTests, KindsAreTold) {
  const std::pair<JSONValue, Kind> rows[] = {
      {nullptr, Kind::null},  {true, Kind::boolean},
      {1, Kind::number},      {std::numeric_limits<std::uint64_t>::max(), Kind::number},
      {0.5, Kind::number},    {"", Kind::string},
      {Array{}, Kind::array}, {Object{}, Kind::object},
  };
  for (const auto& [value, kind] : rows) {
    SCOPED_TRACE(value.description());
    EXPECT_EQ(value.kind(), kind);
    EXPECT_EQ(value.isNull(), kind == Kind::null);
    EXPECT_EQ(value.isBoolean(), kind == Kind::boolean);
    EXPECT_EQ(value.isNumber(), kind == Kind::number);
    EXPECT_EQ(value.isString(), kind == Kind::string);
    EXPECT_EQ(value.isArray(), kind == Kind::array);
    EXPECT_EQ(value.isObject(), kind == Kind::object);
  }
}

template <class T>
void expectAs(const JSONValue& value, std::optional<T> expected) {
  EXPECT_EQ(value.as<T>(), expected) << value.description();
}

TEST(JSONValueTests, NumbersAreConvertedWhereThatIsExact) {
  using std::nullopt;
  const double beyondInt64 = 9223372036854775808.0;
  expectAs<int>(12, 12);
  expectAs<int>(12.0, 12);
  expectAs<int>(-0.0, 0);
  expectAs<int>(0.5, nullopt);
  expectAs<int>(2147483648, nullopt);
  expectAs<int>(-2147483648.0, std::numeric_limits<int>::min());
  expectAs<std::int8_t>(127, std::int8_t{127});
  expectAs<std::int8_t>(128, nullopt);
  expectAs<std::uint8_t>(255.0, std::uint8_t{255});
  expectAs<std::uint8_t>(-1, nullopt);
  expectAs<std::int64_t>(-beyondInt64, std::numeric_limits<std::int64_t>::min());
  expectAs<std::int64_t>(beyondInt64, nullopt);
  expectAs<std::int64_t>(9223372036854775808U, nullopt);
  expectAs<std::uint64_t>(beyondInt64, 9223372036854775808U);
  expectAs<std::uint64_t>(2 * beyondInt64, nullopt);
  expectAs<std::uint64_t>(-1.0, nullopt);
  expectAs<std::uint64_t>(7, 7U);
  expectAs<std::uint64_t>(18446744073709551615U, 18446744073709551615U);
  expectAs<double>(0.1, 0.1);
  expectAs<double>(9007199254740992, 9007199254740992.0);
  expectAs<double>(9007199254740993, nullopt);
  expectAs<double>(std::numeric_limits<std::int64_t>::max(), nullopt);
  expectAs<double>(std::numeric_limits<std::int64_t>::min(), -beyondInt64);
  expectAs<double>(9223372036854775808U, beyondInt64);
  expectAs<double>(18446744073709551615U, nullopt);
  expectAs<std::int64_t>(std::nan(""), nullopt);
  expectAs<std::uint64_t>(std::numeric_limits<double>::infinity(), nullopt);
}

TEST(JSONValueTests, OtherKindsAreNotConverted) {
  EXPECT_EQ(JSONValue(true).as<bool>(), true);
  EXPECT_EQ(JSONValue(1).as<bool>(), std::nullopt);
  EXPECT_EQ(JSONValue(true).as<int>(), std::nullopt);
  EXPECT_EQ(JSONValue("1").as<int>(), std::nullopt);
  EXPECT_EQ(JSONValue("1").as<double>(), std::nullopt);
  EXPECT_EQ(JSONValue("x").as<std::string>(), "x");
  EXPECT_EQ(JSONValue(1).as<std::string>(), std::nullopt);
  EXPECT_EQ(sample()["name"].as<std::string_view>(), "Ada");
  EXPECT_EQ(JSONValue().as<std::string_view>(), std::nullopt);
}

TEST(JSONValueTests, WhatIsNotThereIsNull) {
  EXPECT_EQ(sample()["list"][1].as<double>(), 2.5);
  EXPECT_TRUE(sample()["list"][5].isNull());
  EXPECT_TRUE(sample()["list"][-1].isNull());
  EXPECT_TRUE(sample()["list"]["name"].isNull());
  EXPECT_TRUE(sample()["missing"]["deeper"][0]["still"].isNull());
  EXPECT_TRUE(sample()[0].isNull());
  EXPECT_TRUE(sample()[std::string("yes")].as<bool>().value_or(false));
  EXPECT_EQ(sample().array().size(), 0U);
  EXPECT_EQ(sample()["list"].array().size(), 5U);
  EXPECT_EQ(sample()["list"].object().size(), 0U);
  EXPECT_EQ(sample().object().size(), 4U);
}

TEST(JSONValueTests, FindTellsNullFromMissing) {
  ASSERT_NE(sample().find("nothing"), nullptr);
  EXPECT_TRUE(sample().find("nothing")->isNull());
  EXPECT_EQ(sample().find("missing"), nullptr);
  EXPECT_EQ(sample()["list"].find("nothing"), nullptr);
}

TEST(JSONValueTests, ValuesAreChangedInPlace) {
  JSONValue value;
  value.makeObject()["list"].makeArray().emplace_back(1);
  value.makeObject()["list"].makeArray().emplace_back("x");
  EXPECT_EQ(value.description(), R"({"list":[1,"x"]})");
  EXPECT_EQ(JSONValue(value).makeArray().size(), 0U);
  value = 3;
  EXPECT_EQ(value.makeObject().size(), 0U);
}

TEST(JSONValueTests, CopiesShareNothing) {
  JSONValue copy = sample();
  copy.makeObject()["name"] = "Eve";
  EXPECT_EQ(copy["name"].as<std::string>(), "Eve");
  EXPECT_EQ(sample()["name"].as<std::string>(), "Ada");
}

TEST(JSONValueTests, AValueMayBeReplacedByAPartOfItself) {
  JSONValue value = Object{{"a", Object{{"b", Array{7, "long enough to be stored apart"}}}}};
  value = value["a"];
  EXPECT_EQ(value.description(), R"({"b":[7,"long enough to be stored apart"]})");
  value = std::move(value.makeObject()["b"]);
  EXPECT_EQ(value.description(), R"([7,"long enough to be stored apart"])");
  value = value[0];
  EXPECT_EQ(value.description(), "7");
}

TEST(JSONValueTests, OfAKeyThatComesTwiceTheLastCounts) {
  EXPECT_EQ(decoded<JSONValue>(R"({"a": {"x": 1}, "a": {"y": 2}})").description(),
            R"({"a":{"y":2}})");
}

TEST(JSONValueTests, MalformedTextsAreRefused) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"a": [1, nul]})",
       R"(dataCorrupted: a[1]: expected a value, found "nul" (line 1, column 11))"},
      {"[1 2]", R"(dataCorrupted: [0]: expected "," or "]", found "2" (line 1, column 4))"},
      {"1 2", R"(dataCorrupted: expected the end of the text, found "2" (line 1, column 3))"},
      {"[01]", R"(dataCorrupted: [0]: expected a number, found "01" (line 1, column 2))"},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decodingFailure<JSONValue>(json), expected);
  }
}

TEST(JSONValueTests, DescribesWhatJSONHasNoFormFor) {
  EXPECT_EQ(JSONValue(Array{std::nan(""), -std::numeric_limits<double>::infinity()}).description(),
            R"(["nan","-inf"])");
  EXPECT_EQ(JSONValue(Array{"\xff"}).description(), "<[0]: the text is not UTF-8>");
  EXPECT_EQ(encodingFailure(JSONValue(Array{std::nan("")})), "[0]: the number is not finite");
}

TEST(JSONValueTests, StandsInStructsAndContainers) {
  struct Holder {
    int id{};
    JSONValue any;
    std::optional<JSONValue> maybe;
  };
  const auto value = decoded<Holder>(R"({"id": 1, "any": [null, {"a": 1.0}]})");
  EXPECT_EQ(value.any[1]["a"].as<int>(), 1);
  EXPECT_FALSE(value.maybe);
  EXPECT_EQ(encoded(value), R"({"id":1,"any":[null,{"a":1.0}]})");
  EXPECT_EQ(decodingFailure<Holder>(R"({"id": 1})"), R"(keyNotFound: the key "any" is missing)");
  EXPECT_EQ(decoded<std::vector<JSONValue>>("[1, true]").at(1).as<bool>(), true);
}

struct Point {
  int x{};
  std::optional<int> y;
};

TEST(JSONValueTests, DecodesTypesFromAValue) {
  const JSONValue value = Object{{"points", Array{Object{{"x", 1}}, Object{{"x", 2.0}, {"y", 3}}}}};
  const auto points = value["points"].decode<std::vector<Point>>();
  EXPECT_EQ(points.at(1).x, 2);
  EXPECT_EQ(points.at(1).y, 3);
  EXPECT_EQ(value["points"].decode<JSONValue>(), value["points"]);
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = [](std::string_view key) { return std::string(key.substr(1)); };
  EXPECT_EQ(JSONValue(Object{{"_x", 4}}).decode<Point>(decoder).x, 4);
  try {
    JSONValue(Array{Object{{"x", "1"}}}).decode<std::vector<Point>>();
    ADD_FAILURE() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.message(), R"([0].x: expected a number, found the string "1")");
  }
}

std::string nestedText(std::size_t levels) {
  std::string text;
  for (std::size_t i = 0; i < levels; ++i) text += i % 2 ? R"({"a":)" : "[";
  text += "1";
  for (std::size_t i = levels; i-- > 0;) text += i % 2 ? '}' : ']';
  return text;
}

TEST(JSONValueTests, DeepDocumentsAreDecodedCopiedAndCompared) {
  const auto json = nestedText(512);
  const auto value = decoded<JSONValue>(json);
  const JSONValue copy = value;
  EXPECT_TRUE(copy == value);
  EXPECT_EQ(encoded(copy), json);
  EXPECT_NE(decodingFailure<JSONValue>(nestedText(513)).find("more than 512 objects and arrays"),
            std::string::npos);
}

TEST(JSONValueTests, ValuesNestedBeyondTheStackAreDestroyed) {
  JSONValue value;
  for (int i = 0; i < 100'000; ++i) {
    JSONValue outer;
    if (i % 2 == 0) {
      outer.makeArray().push_back(std::move(value));
      outer.makeArray().emplace_back(2);
    } else {
      outer.makeObject()["b"] = std::move(value);
      outer.makeObject()["a"] = 1;
    }
    value = std::move(outer);
  }
  EXPECT_NE(encodingFailure(value).find("more than 512 objects and arrays"), std::string::npos);
  JSONValue moved = std::move(value);
  moved = 1;
  EXPECT_EQ(moved.as<int>(), 1);
}

}  // namespace
}  // namespace tarn
