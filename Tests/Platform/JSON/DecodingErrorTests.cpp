#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarn {
namespace {

using Case = DecodingError::Case;

struct Item {
  std::string name;
  double price = 0;
};
struct Order {
  std::vector<Item> items;
  std::optional<int> count;
};

template <class T>
DecodingError errorOf(std::string_view json) {
  try {
    JSONDecoder().decode<T>(json);
  } catch (const DecodingError& error) {
    return error;
  }
  ADD_FAILURE() << "accepted: " << json;
  return DecodingError::valueNotFound({}, "none");
}

const CodingPath toPrice = {CodingKey("items"), CodingKey(std::size_t{3}), CodingKey("price")};

TEST(DecodingErrorTests, HoldsItsParts) {
  const auto error = DecodingError::typeMismatch(toPrice, "expected a number");
  EXPECT_EQ(error.kind(), Case::typeMismatch);
  EXPECT_EQ(error.codingPath(), toPrice);
  EXPECT_EQ(error.reason(), "expected a number");
  EXPECT_EQ(error.key(), "");
  EXPECT_EQ(error.message(), "items[3].price: expected a number");
  EXPECT_EQ(std::string(error.what()), error.message());
}

TEST(DecodingErrorTests, AtTheRootTheReasonIsTheMessage) {
  EXPECT_EQ(DecodingError::dataCorrupted({}, "the text is empty").message(), "the text is empty");
}

TEST(DecodingErrorTests, AMissingKeyIsNamedAtItsObject) {
  const auto error = DecodingError::keyNotFound("price", {toPrice[0], toPrice[1]});
  EXPECT_EQ(error.kind(), Case::keyNotFound);
  EXPECT_EQ(error.key(), "price");
  EXPECT_EQ(error.message(), R"(items[3]: the key "price" is missing)");
}

TEST(DecodingErrorTests, CodesArePositionsOfTheCases) {
  EXPECT_EQ(DecodingError::typeMismatch({}, "").code(), 0);
  EXPECT_EQ(DecodingError::valueNotFound({}, "").code(), 1);
  EXPECT_EQ(DecodingError::keyNotFound("", {}).code(), 2);
  EXPECT_EQ(DecodingError::dataCorrupted({}, "").code(), 3);
}

/// What a coding that catches the error itself is told.
std::string failureOfCaught(std::string_view json) {
  struct Catching {
    std::string message;

    static Catching decode(JSONReader& reader) {
      try {
        reader.integer<int>();
        return {};
      } catch (const DecodingError& error) {
        throw std::runtime_error(error.message());
      }
    }
  };
  try {
    JSONDecoder().decode<Catching>(json);
    return "decoded";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

struct MismatchRow {
  Case kind;
  DecodingError (*decode)(std::string_view json);
  const char* json;
  const char* message;
};

TEST(DecodingErrorTests, TellsWhatWasExpectedAndFound) {
  using Numbers = std::vector<int>;
  const MismatchRow rows[] = {
      {Case::typeMismatch, errorOf<int>, R"("12,50")",
       R"(expected a number, found the string "12,50")"},
      {Case::typeMismatch, errorOf<int>, "true", "expected a number, found true"},
      {Case::typeMismatch, errorOf<int>, "[]", "expected a number, found an array"},
      {Case::typeMismatch, errorOf<double>, "{}", "expected a number, found an object"},
      {Case::valueNotFound, errorOf<double>, "null", "expected a number, found null"},
      {Case::typeMismatch, errorOf<bool>, "1", "expected true or false, found the number 1"},
      {Case::valueNotFound, errorOf<bool>, "null", "expected true or false, found null"},
      {Case::typeMismatch, errorOf<std::string>, "-1.50",
       "expected a string, found the number -1.50"},
      {Case::typeMismatch, errorOf<std::string>, "false", "expected a string, found false"},
      {Case::valueNotFound, errorOf<std::string>, "null", "expected a string, found null"},
      {Case::typeMismatch, errorOf<Numbers>, "{}", "expected an array, found an object"},
      {Case::valueNotFound, errorOf<Numbers>, "null", "expected an array, found null"},
      {Case::valueNotFound, errorOf<Numbers>, "[0,null]", "[1]: expected a number, found null"},
      {Case::typeMismatch, errorOf<Item>, "[]", "expected an object, found an array"},
      {Case::typeMismatch, errorOf<Order>, R"({"items":[{"name":"a","price":"12,50"}]})",
       R"(items[0].price: expected a number, found the string "12,50")"},
      {Case::keyNotFound, errorOf<Order>, R"({"items":[{"name":"a","price":1},{"name":"b"}]})",
       R"(items[1]: the key "price" is missing)"},
      {Case::keyNotFound, errorOf<Order>, "{}", R"(the key "items" is missing)"},
      {Case::dataCorrupted, errorOf<std::int8_t>, "128",
       "expected a whole number from -128 to 127, found 128"},
      {Case::dataCorrupted, errorOf<unsigned char>, "-1",
       "expected a whole number from 0 to 255, found -1"},
      {Case::dataCorrupted, errorOf<int>, "0.5",
       "expected a whole number from -2147483648 to 2147483647, found 0.5"},
      {Case::dataCorrupted, errorOf<double>, "1e400", "the number 1e400 is out of range"},
      {Case::dataCorrupted, errorOf<std::string>, R"("\ud800")",
       R"(the string "\ud800" has a malformed escape sequence)"},
  };
  for (const auto& [kind, decode, json, message] : rows) {
    SCOPED_TRACE(json);
    const auto error = decode(json);
    EXPECT_EQ(error.message(), message);
    EXPECT_EQ(error.kind(), kind);
  }
}

TEST(DecodingErrorTests, LongTextIsShortenedToWholeCharacters) {
  const std::string before(63, 'x');
  EXPECT_EQ(errorOf<int>('"' + before + "\u00e9tc\"").message(),
            "expected a number, found the string \"" + before + "…\"");
  EXPECT_EQ(errorOf<int>('"' + before + "y\"").message(),
            "expected a number, found the string \"" + before + "y\"");
  const std::string digits(64, '1');
  EXPECT_EQ(errorOf<std::string>(digits).message(),
            "expected a string, found the number " + digits);
  const MismatchRow rows[] = {
      {Case::typeMismatch, errorOf<std::string>, "", "expected a string, found the number "},
      {Case::dataCorrupted, errorOf<int>, "", ", found "},
      {Case::dataCorrupted, errorOf<double>, "", "the number "},
      {Case::dataCorrupted, errorOf<JSONValue>, "", "the number "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const auto error = row.decode(std::string(400, '1'));
    EXPECT_EQ(error.kind(), row.kind);
    EXPECT_NE(error.message().find(row.message + digits + "…"), std::string::npos)
        << error.message();
  }
}

TEST(DecodingErrorTests, MessagesHoldNoControlCharacters) {
  JSONDecoder decoder;
  decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  const struct {
    std::string message;
    const char* expected;
  } rows[] = {
      {decodingFailure<double>(R"("a\nb\u001b[31m\u007f\u009b\"\u00e9")", decoder),
       R"(dataCorrupted: expected a number, found the string "a\nb\u001b[31m\u007f\u009b\"é")"},
      {decodingFailure<int>("\"\x7f\xc2\x9b\xc2\xa0\""),
       "typeMismatch: expected a number, found the string \"\\u007f\\u009b\xc2\xa0\""},
      {decodingFailure<URL>(R"(" \u009b")"),
       R"(dataCorrupted: expected a URL, found the string " \u009b")"},
      {decodingFailure<bool>("t\x1b[31m"),
       R"(dataCorrupted: expected a value, found "t\u001b" (line 1, column 1))"},
      {failureOfCaught("t\x1b rue"), "expected a number, found t\\u001b"},
      {failureOfCaught("t\r\nINFO"), "expected a number, found t"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    EXPECT_EQ(row.message, row.expected);
  }
}

// MARK: Text that is no JSON

struct SyntaxRow {
  const char* json;
  const char* message;
};

constexpr SyntaxRow syntaxRows[] = {
    {"", "the text is empty"},
    {" \n\t", "the text is empty"},
    {"\"abc", "a string is not closed"},
    {"\"\xff\"", "the text is not UTF-8"},
    {"[", R"([0]: expected a value, found the end of the text (line 1, column 2))"},
    {"[1", R"([0]: expected "," or "]", found the end of the text (line 1, column 3))"},
    {"[1 2]", R"([0]: expected "," or "]", found "2" (line 1, column 4))"},
    {"[1 \"a b\"]", R"([0]: expected "," or "]", found the string "a b" (line 1, column 4))"},
    {"[1,]", R"([1]: expected a value, found "]" (line 1, column 4))"},
    {"[1}", R"([0]: expected "," or "]", found "}" (line 1, column 3))"},
    {"{\"a\":1]", R"(a: expected "," or "}", found "]" (line 1, column 7))"},
    {"{\"a\" 1}", R"(expected ":", found "1" (line 1, column 6))"},
    {"{\"a\":1,}", R"(a: expected a key, found "}" (line 1, column 8))"},
    {"{\"a\":1,\"b\" 2}", R"(b: expected ":", found "2" (line 1, column 12))"},
    {"{a:1}", R"(expected a key, found "a" (line 1, column 2))"},
    {"{1:1}", R"(expected a key, found "1" (line 1, column 2))"},
    {"nul", R"(expected a value, found "nul" (line 1, column 1))"},
    {"True", R"(expected a value, found "True" (line 1, column 1))"},
    {"truth", R"(expected a value, found "truth" (line 1, column 1))"},
    {"01", R"(expected a number, found "01" (line 1, column 1))"},
    {"-", R"(expected a number, found "-" (line 1, column 1))"},
    {"1.e3", R"(expected a number, found "1.e3" (line 1, column 1))"},
    {"'a'", R"(expected a value, found "'a'" (line 1, column 1))"},
    {"[1\x01]", R"([0]: expected a number, found "1\u0001" (line 1, column 2))"},
    {"1 2", R"(expected the end of the text, found "2" (line 1, column 3))"},
    {"{}\n}", R"(expected the end of the text, found "}" (line 2, column 1))"},
    {"[\n  1,\n  x\n]", R"([1]: expected a value, found "x" (line 3, column 3))"},
    {"[\r\n1 2]", R"([0]: expected "," or "]", found "2" (line 2, column 3))"},
    {"[\"\u20ac\U0001d11e\", ?]", R"([1]: expected a value, found "?" (line 1, column 8))"},
    {"{\"items\":[{},{},{\n\"n\":[0,1 x]}]}",
     R"(items[2].n[1]: expected "," or "]", found "x" (line 2, column 10))"},
};

TEST(DecodingErrorTests, SyntaxErrorsTellLineAndColumn) {
  for (const auto& [json, message] : syntaxRows) {
    SCOPED_TRACE(json);
    const auto error = errorOf<JSONValue>(json);
    EXPECT_EQ(error.message(), message);
    EXPECT_EQ(error.kind(), Case::dataCorrupted);
  }
}

TEST(DecodingErrorTests, SyntaxErrorsAreTheSameInWhatNobodyReads) {
  struct Skips {
    static Skips decode(JSONReader&) { return {}; }
  };
  for (const auto& [json, message] : syntaxRows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(errorOf<Skips>(json).message(), message);
  }
}

TEST(DecodingErrorTests, IllFormedTextGoesBeforeEverythingElse) {
  constexpr std::string_view fault = R"(expected "," or "]", found the end of the text)";
  const MismatchRow rows[] = {
      {Case::dataCorrupted, errorOf<int>, "[1", ""},
      {Case::dataCorrupted, errorOf<std::string>, "[1", ""},
      {Case::dataCorrupted, errorOf<Item>, R"([{"name":null})", ""},
      {Case::dataCorrupted, errorOf<std::vector<Item>>, R"([{"name":"a"})", ""},
      {Case::dataCorrupted, errorOf<std::vector<Item>>, R"([{"name":null})", ""},
      {Case::dataCorrupted, errorOf<std::vector<std::variant<int, bool>>>, R"(["x")", ""},
      {Case::dataCorrupted, errorOf<std::array<std::array<int, 1>, 1>>, R"([["x"])", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    const auto error = row.decode(row.json);
    EXPECT_EQ(error.kind(), row.kind);
    EXPECT_NE(error.message().find(fault), std::string::npos) << error.message();
  }
}

}  // namespace
}  // namespace tarn
