#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

namespace tarn {
namespace {

using ::testing::ElementsAre;

struct Point {
  int x{};
  int y{};
  friend bool operator==(const Point&, const Point&) = default;
  friend auto operator<=>(const Point&, const Point&) = default;
};

template <class T>
void expectBothWays(const T& value, const std::string& json) {
  SCOPED_TRACE(json);
  EXPECT_EQ(encoded(value), json);
  EXPECT_EQ(decoded<T>(json), value);
}

TEST(StandardCodingTests, SequencesAreArrays) {
  expectBothWays(std::vector<int>{}, "[]");
  expectBothWays(std::vector<int>{1, 2, 3}, "[1,2,3]");
  expectBothWays(std::vector<bool>{true, false, true}, "[true,false,true]");
  expectBothWays(std::deque<std::string>{"a", ""}, R"(["a",""])");
  expectBothWays(std::list<double>{1, 0.5}, "[1.0,0.5]");
  expectBothWays(std::vector<std::vector<Point>>{{{1, 2}}, {}}, R"([[{"x":1,"y":2}],[]])");
  expectBothWays(std::vector<std::optional<int>>{1, std::nullopt}, "[1,null]");
}

TEST(StandardCodingTests, SetsAreArraysWhoseRepetitionsCountOnce) {
  expectBothWays(std::set<int>{1, 2, 3}, "[1,2,3]");
  expectBothWays(std::multiset<int>{1, 1, 2}, "[1,1,2]");
  expectBothWays(std::set<Point>{{1, 2}, {1, 3}}, R"([{"x":1,"y":2},{"x":1,"y":3}])");
  expectBothWays(std::unordered_set<std::string>{"a"}, R"(["a"])");
  EXPECT_THAT(decoded<std::set<int>>("[3, 1, 3, 2, 1]"), ElementsAre(1, 2, 3));
  EXPECT_EQ(decoded<std::unordered_set<int>>("[3, 1, 3]"), (std::unordered_set<int>{1, 3}));
}

TEST(StandardCodingTests, ElementsThatDoNotFitAreNamedByTheirIndex) {
  EXPECT_EQ(decodingFailure<std::vector<bool>>("[true, 1]"),
            "typeMismatch: [1]: expected true or false, found the number 1");
  EXPECT_EQ(decodingFailure<std::set<int>>("[1, 2, null]"),
            "valueNotFound: [2]: expected a number, found null");
  EXPECT_EQ(decodingFailure<std::deque<std::vector<int>>>("[[1], [2, []]]"),
            "typeMismatch: [1][1]: expected a number, found an array");
  EXPECT_EQ(decodingFailure<std::vector<int>>(R"({"0": 1})"),
            "typeMismatch: expected an array, found an object");
}

TEST(StandardCodingTests, ArraysHaveExactlyTheirLength) {
  using Array = std::array<int, 2>;
  struct Holder {
    Array value{};
  };
  expectBothWays(Array{1, 2}, "[1,2]");
  expectBothWays(std::array<std::string, 0>{}, "[]");
  EXPECT_EQ(decodingFailure<Array>("[]"), "dataCorrupted: expected an array of 2, found one of 0");
  EXPECT_EQ(decodingFailure<Holder>(R"({"value": [1]})"),
            "dataCorrupted: value: expected an array of 2, found one of 1");
  // What is too much is only counted.
  EXPECT_EQ(decodingFailure<Holder>(R"({"value": [1, 2, "x"]})"),
            "dataCorrupted: value: expected an array of 2, found one of 3");
  EXPECT_EQ(decodingFailure<Array>("[1, true, 3]"),
            "typeMismatch: [1]: expected a number, found true");
}

TEST(StandardCodingTests, MapsWithTextsForKeysAreObjects) {
  expectBothWays(std::map<std::string, int>{}, "{}");
  expectBothWays(std::map<std::string, int>{{"", 1}, {"a \"b\"", 2}}, R"({"":1,"a \"b\"":2})");
  expectBothWays(std::map<std::string, Point, std::less<>>{{"p", {1, 2}}},
                 R"({"p":{"x":1,"y":2}})");
  expectBothWays(std::unordered_map<std::string, std::vector<int>>{{"a", {1}}}, R"({"a":[1]})");
  expectBothWays(std::map<std::string, std::optional<int>>{{"a", std::nullopt}}, R"({"a":null})");
  EXPECT_EQ((decodingFailure<std::unordered_map<std::string, int>>(R"({"a": 1, "b c": "x"})")),
            R"(typeMismatch: ["b c"]: expected a number, found the string "x")");
}

static_assert(!JSONReadable<std::map<int, int>> && !JSONWritable<std::map<int, int>>);
static_assert(!JSONReadable<std::vector<char*>>);
static_assert(!JSONReadable<char> && !JSONWritable<char>);
static_assert(!JSONReadable<std::string_view> && JSONWritable<std::string_view>);

TEST(StandardCodingTests, OptionalsOutsideOfStructsAreNull) {
  expectBothWays(std::optional<int>(), "null");
  expectBothWays(std::optional<int>(4), "4");
  expectBothWays(std::optional<Point>({1, 2}), R"({"x":1,"y":2})");
  // Null ends at the outermost.
  EXPECT_EQ(decoded<std::optional<std::optional<int>>>("null"), std::nullopt);
}

TEST(StandardCodingTests, TextsAreWritten) {
  EXPECT_EQ(encoded(std::string_view("a/b")), R"("a/b")");
  const char* const text = "text";
  EXPECT_EQ(encoded(text), R"("text")");
  EXPECT_EQ(encodingFailure(std::vector<std::string>{"", "\xff"}), "[1]: the text is not UTF-8");
}

TEST(StandardCodingTests, TextsGoBothWays) {
  expectBothWays(std::string("\x01\n\t\"\\\x7f"), R"("\u0001\n\t\"\\)"
                                                  "\x7f\"");
  expectBothWays(std::string("a\0b", 3), R"("a\u0000b")");
  expectBothWays(std::string("\xf0\x9f\x8c\xb2 \xe6\xb0\xb4"), "\"\xf0\x9f\x8c\xb2 \xe6\xb0\xb4\"");
  EXPECT_EQ(decoded<std::string>(R"("\ud83c\udf32\/")"), "\xf0\x9f\x8c\xb2/");
}

TEST(StandardCodingTests, VariantsAreTheirFirstAlternativeThatFits) {
  using Variant = std::variant<int, double, std::string, Point, std::vector<int>>;
  const std::pair<const char*, Variant> rows[] = {
      {"1", 1},
      {"1.0", 1},
      {"1.5", 1.5},
      {"3000000000", 3e9},
      {R"("x")", "x"},
      {R"({"x": 1, "y": 2})", Point{1, 2}},
      {"[1]", std::vector<int>{1}},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decoded<Variant>(json), expected);
  }
  // The order decides.
  EXPECT_EQ((decoded<std::variant<double, int>>("1").index()), 0U);
  EXPECT_EQ(encoded(std::vector<Variant>{1, 1.5, "x", Point{1, 2}, std::vector{1}}),
            R"([1,1.5,"x",{"x":1,"y":2},[1]])");
}

TEST(StandardCodingTests, TheEmptyAlternativeOfAVariantIsNull) {
  using Variant = std::variant<std::monostate, int>;
  expectBothWays(Variant(), "null");
  expectBothWays(Variant(3), "3");
  EXPECT_EQ(decodingFailure<std::monostate>("{}"), "typeMismatch: expected null, found an object");
}

TEST(StandardCodingTests, AVariantThatFailedInTheMiddleStartsOver) {
  struct Deep {
    std::vector<Point> points;
  };
  using Map = std::map<std::string, std::vector<std::map<std::string, int>>>;
  const auto value = decoded<std::vector<std::variant<Deep, Map>>>(
      R"([{"points": [{"x": 1, "z": 2}]}, {"a": []}])");
  EXPECT_EQ(std::get<Map>(value.at(0)), (Map{{"points", {{{"x", 1}, {"z", 2}}}}}));
  EXPECT_EQ(std::get<Map>(value.at(1)), (Map{{"a", {}}}));
}

TEST(StandardCodingTests, AVariantThatFitsNoAlternativeNamesThem) {
  using Variant = std::variant<int, std::string, Point>;
  EXPECT_EQ(decodingFailure<std::vector<Variant>>("[1, true]"),
            "typeMismatch: [1]: expected a number, a string or Point, found true");
  EXPECT_EQ(decodingFailure<Variant>("null"),
            "valueNotFound: expected a number, a string or Point, found null");
  EXPECT_EQ(decodingFailure<Variant>(R"({"x": 1 "y": 2})"),
            R"(dataCorrupted: x: expected "," or "}", found the string "y" (line 1, column 9))");
}

TEST(StandardCodingTests, AStructMayHoldAllOfThem) {
  struct Holder {
    std::array<std::optional<Point>, 2> corners;
    std::optional<std::vector<std::string>> names;
    std::variant<bool, std::string> either;
  };
  const auto value =
      decoded<Holder>(R"({"corners": [null, {"x": 1, "y": 2}], "names": ["a"], "either": "x"})");
  EXPECT_EQ(value.corners[0], std::nullopt);
  EXPECT_EQ(value.corners[1], (Point{1, 2}));
  EXPECT_EQ(value.names, std::vector<std::string>{"a"});
  EXPECT_EQ(encoded(value), R"({"corners":[null,{"x":1,"y":2}],"names":["a"],"either":"x"})");
}

}  // namespace
}  // namespace tarn
