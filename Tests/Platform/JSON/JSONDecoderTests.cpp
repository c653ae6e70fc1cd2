#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

namespace tarn {
namespace {

using Case = DecodingError::Case;

struct Person {
  std::string firstName;
  std::optional<int> age;
  std::vector<std::string> tags;
  static constexpr JSONMembers defaultedMembers = {"tags"};
  bool operator==(const Person&) const = default;
};

/// Nothing where the text is accepted.
template <class T>
std::optional<Case> failureOf(std::string_view json, const JSONDecoder& decoder = JSONDecoder()) {
  try {
    decoder.decode<T>(json);
    return std::nullopt;
  } catch (const DecodingError& error) {
    return error.kind();
  }
}

std::string nested(std::size_t depth, const char* open, const char* middle, const char* close) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += open;
  text += middle;
  for (std::size_t i = 0; i < depth; ++i) text += close;
  return text;
}

/// Memory of exactly the text's size: the address sanitizer sees each byte read beyond it.
template <class T>
std::optional<Case> failureOfExact(std::string_view json) {
  const auto copy = std::make_unique<char[]>(json.size());
  if (!json.empty()) std::memcpy(copy.get(), json.data(), json.size());
  return failureOf<T>({copy.get(), json.size()});
}

TEST(JSONDecoderTests, DecodesTextAndData) {
  constexpr std::string_view json = R"({"firstName":"Ada","age":36,"tags":["x"]})";
  const Person ada{"Ada", 36, {"x"}};
  EXPECT_EQ(JSONDecoder().decode<Person>(json), ada);
  EXPECT_EQ(JSONDecoder().decode<Person>(Data(json)), ada);
  EXPECT_EQ(failureOf<Person>(""), Case::dataCorrupted);
  try {
    JSONDecoder().decode<Person>(Data());
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.message(), "the text is empty");
  }
}

TEST(JSONDecoderTests, PassesOverOneByteOrderMarkInFront) {
  const std::string mark = "\xef\xbb\xbf";
  const struct {
    std::string json;
    std::string message;  // empty: decoded
  } rows[] = {
      {mark + "[1]", ""},
      {mark + " [1]", ""},
      {mark + "\"" + mark + "\"", ""},
      {mark, "the text is empty"},
      {mark + "[1,x]", R"([1]: expected a value, found "x" (line 1, column 4))"},
      {mark + mark + "1", "expected a value, found \"" + mark + "1\" (line 1, column 1)"},
      {" " + mark + "1", "expected a value, found \"" + mark + "1\" (line 1, column 2)"},
      {"1" + mark, "expected a number, found \"1" + mark + "\" (line 1, column 1)"},
      {"\xef\xbb", "the text is not UTF-8"},
  };
  for (const auto& [json, message] : rows) {
    SCOPED_TRACE(json);
    try {
      JSONDecoder().decode<JSONValue>(json);
      EXPECT_EQ(message, "");
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.message(), message);
    }
  }
  EXPECT_EQ(JSONDecoder().decode<std::string>(mark + "\"" + mark + "\""), mark);
}

TEST(JSONDecoderTests, PassesOverUnknownKeysAndTakesTheLastOfTwo) {
  EXPECT_EQ(JSONDecoder().decode<Person>(
                R"({"x":{"firstName":1},"firstName":"A","tags":["a","b"],"age":1,"y":[[]],
                    "firstName":"B","tags":["c"],"age":null})"),
            (Person{"B", std::nullopt, {"c"}}));
}

TEST(JSONDecoderTests, ConvertsKeysOfStructsOnly) {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  EXPECT_EQ(decoder.decode<Person>(R"({"first_name":"A"})"), (Person{"A", std::nullopt, {}}));
  EXPECT_EQ((decoder.decode<std::map<std::string, int>>(R"({"a_key":1})")),
            (std::map<std::string, int>{{"a_key", 1}}));
}

TEST(JSONDecoderTests, ExceptionsOfStrategiesPassThrough) {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = [](std::string_view) -> std::string {
    throw std::length_error("");
  };
  EXPECT_THROW(decoder.decode<Person>(R"({"firstName":"A"})"), std::length_error);
  decoder.dateDecodingStrategy = [](JSONReader&) -> JSONDate { throw std::length_error(""); };
  EXPECT_THROW(decoder.decode<JSONDate>("1"), std::length_error);
}

TEST(JSONDecoderTests, ReadsNumbersThatAreNotFiniteByTheirTexts) {
  JSONDecoder decoder;
  EXPECT_EQ(failureOf<double>(R"("inf")", decoder), Case::typeMismatch);
  decoder.nonConformingFloats = {"inf", "-inf", "not \"a\" number"};
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(decoder.decode<double>(R"("inf")"), infinity);
  EXPECT_EQ(decoder.decode<double>(R"("-\u0069nf")"), -infinity);
  EXPECT_TRUE(std::isnan(decoder.decode<double>(R"("not \"a\" number")")));
  EXPECT_EQ(decoder.decode<std::vector<float>>(R"(["inf",1.5])"),
            (std::vector{std::numeric_limits<float>::infinity(), 1.5F}));
  EXPECT_EQ(failureOf<double>(R"("Inf")", decoder), Case::dataCorrupted);
  EXPECT_EQ(failureOf<double>("1e400", decoder), Case::dataCorrupted);
  EXPECT_EQ(failureOf<double>("inf", decoder), Case::dataCorrupted);
  EXPECT_EQ(failureOf<int>(R"("inf")", decoder), Case::typeMismatch);
  EXPECT_EQ(decoder.decode<JSONValue>(R"("inf")"), JSONValue("inf"));
}

// MARK: Depth

struct Chain {
  std::vector<Chain> next;
  static constexpr JSONMembers defaultedMembers = {"next"};
};

/// Whether 512 levels pass and 513 do not, and that at other limits too.
template <class T>
void expectLimit(const char* open, const char* middle, const char* close,
                 const std::string& before = "", const std::string& after = "") {
  const std::size_t outside = before.empty() ? 0 : 1;
  for (const std::size_t limit : {512U, 1U, 7U, 600U}) {
    SCOPED_TRACE(limit);
    JSONDecoder decoder;
    if (limit != 512) decoder.maximumDepth = limit;
    const auto document = [&](std::size_t depth) {
      return before + nested(depth - outside, open, middle, close) + after;
    };
    EXPECT_EQ(failureOf<T>(document(limit), decoder), std::nullopt);
    EXPECT_EQ(failureOf<T>(document(limit + 1), decoder), Case::dataCorrupted);
  }
}

TEST(JSONDecoderDepthTests, LimitsArrays) { expectLimit<JSONValue>("[", "0", "]"); }

TEST(JSONDecoderDepthTests, LimitsObjects) { expectLimit<JSONValue>(R"({"a":)", "1", "}"); }

TEST(JSONDecoderDepthTests, LimitsWhatNobodyReads) {
  expectLimit<Chain>("[", "0", "]", R"({"x":)", "}");
  expectLimit<Chain>(R"({"a":)", "1", "}", R"({"x":)", "}");
}

TEST(JSONDecoderDepthTests, LimitsRecursiveTypes) {
  JSONDecoder decoder;
  decoder.maximumDepth = 101;
  const auto json = [](std::size_t levels) { return nested(levels, R"({"next":[)", "{}", "]}"); };
  EXPECT_EQ(failureOf<Chain>(json(50), decoder), std::nullopt);
  EXPECT_EQ(failureOf<Chain>(json(51), decoder), Case::dataCorrupted);
}

TEST(JSONDecoderDepthTests, GoesBeforeAMismatch) {
  EXPECT_EQ(failureOf<int>(nested(512, "[", "", "]")), Case::typeMismatch);
  EXPECT_EQ(failureOf<int>(nested(513, "[", "", "]")), Case::dataCorrupted);
}

TEST(JSONDecoderDepthTests, CountsWhatIsInsideEachOtherOnly) {
  std::string json = "[";
  for (int i = 0; i < 2000; ++i) json += R"([{"a":[]}],)";
  EXPECT_EQ(JSONDecoder().decode<JSONValue>(json + "1]").array().size(), 2001u);
}

TEST(JSONDecoderDepthTests, TellsTheLimitAndThePlace) {
  JSONDecoder decoder;
  decoder.maximumDepth = 2;
  try {
    decoder.decode<JSONValue>(R"([0,{"a":[]}])");
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.message(), "[1].a: more than 2 objects and arrays are inside each other");
  }
}

TEST(JSONDecoderDepthTests, ZeroLeavesPlainValues) {
  JSONDecoder decoder;
  decoder.maximumDepth = 0;
  EXPECT_EQ(decoder.decode<int>("1"), 1);
  EXPECT_EQ(failureOf<std::vector<int>>("[]", decoder), Case::dataCorrupted);
}

// MARK: The text's end

std::string longDocument() {
  return R"({"firstName":"J\u00f6rg \ud83d\ude39","age":-12.0e+0,"tags":["a","b\"",""],)"
         R"("more":{"null":null,"bools":[true,false,{"x":[[],{},-0.5E-3]}],"text":"\\\"\\"},)"
         "\"utf8\":\"\u20ac\U0001d11e\u00e9\" , \"last\" :\t[ 1 , 2 ]\r\n}";
}

TEST(JSONDecoderEndTests, TextsCutAnywhereAreCorrupted) {
  const auto json = longDocument();
  ASSERT_GT(json.size(), 190u);
  ASSERT_EQ(failureOfExact<JSONValue>(json), std::nullopt);
  ASSERT_EQ(failureOfExact<Person>(json), std::nullopt);
  for (std::size_t size = 0; size < json.size(); ++size) {
    SCOPED_TRACE(size);
    const auto cut = std::string_view(json).substr(0, size);
    ASSERT_EQ(failureOfExact<JSONValue>(cut), Case::dataCorrupted);
    ASSERT_EQ(failureOfExact<Person>(cut), Case::dataCorrupted);
    ASSERT_EQ(failureOfExact<int>(cut), Case::dataCorrupted);
    ASSERT_EQ(failureOfExact<std::string>(cut), Case::dataCorrupted);
  }
}

TEST(JSONDecoderEndTests, EveryKindOfValueMayEndTheTextAtEveryAlignment) {
  struct Row {
    const char* text;
    bool isDocument;
  };
  const Row rows[] = {
      {"null", true},        {"true", true},     {"false", true},         {"0", true},
      {"-12.5e-3", true},    {"\"\"", true},     {"\"a\\u0041\"", true},  {"[]", true},
      {"{\"a\":[1]}", true}, {"nul", false},     {"tru", false},          {"fals", false},
      {"-", false},          {"1.", false},      {"1e", false},           {"\"", false},
      {"\"\\", false},       {"\"\\u00", false}, {"\"\\ud83d\\u", false}, {"[", false},
      {"[1,", false},        {"{\"a\"", false},  {"{\"a\":", false},      {"\\", false},
      {"\xf0\x9f", false},
  };
  for (const auto& [text, isDocument] : rows) {
    for (std::size_t before = 0; before < 200; ++before) {
      SCOPED_TRACE(testing::Message() << text << " after " << before);
      const auto json = std::string(before, ' ') + text;
      const auto expected = isDocument ? std::nullopt : std::optional(Case::dataCorrupted);
      ASSERT_EQ(failureOfExact<JSONValue>(json), expected);
    }
  }
}

TEST(JSONDecoderEndTests, TextBehindTheValueIsCorrupted) {
  for (const std::string tail :
       {"x", "1", "\"\"", "]", "}", ",", ":", "[]", "\\", "\xef\xbb\xbf"}) {
    for (std::size_t between = 0; between < 70; ++between) {
      SCOPED_TRACE(testing::Message() << tail << " after " << between);
      ASSERT_EQ(failureOfExact<JSONValue>("[]" + std::string(between, '\n') + tail),
                Case::dataCorrupted);
    }
  }
  EXPECT_EQ(failureOf<JSONValue>(std::string_view("[]\0", 3)), Case::dataCorrupted);
}

TEST(JSONDecoderEndTests, MebibytesAreRead) {
  std::string json = "[";
  std::vector<std::string> expected;
  while (json.size() < (std::size_t{4} << 20)) {
    const auto count = expected.size();
    expected.push_back(std::string(count % 150, 'x') + '"' + std::to_string(count));
    json += '"' + std::string(count % 150, 'x') + R"(\")" + std::to_string(count) + "\" , ";
  }
  expected.emplace_back("end");
  json += "\"end\"]";
  EXPECT_EQ(JSONDecoder().decode<std::vector<std::string>>(json), expected);
  EXPECT_EQ(failureOfExact<JSONValue>(json), std::nullopt);
  json.pop_back();
  EXPECT_EQ(failureOfExact<JSONValue>(json), Case::dataCorrupted);
  EXPECT_EQ(failureOfExact<Person>(json), Case::dataCorrupted);
}

TEST(JSONDecoderEndTests, OneLongStringIsRead) {
  const std::string text((std::size_t{3} << 20) + 7, 'y');
  EXPECT_EQ(JSONDecoder().decode<std::string>('"' + text + '"'), text);
  EXPECT_EQ(failureOfExact<std::string>('"' + text), Case::dataCorrupted);
}

TEST(JSONDecoderTests, OneDecoderServesSeveralThreads) {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  const JSONDecoder& shared = decoder;
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&shared, &failures, number] {
      for (int round = 0; round < 200; ++round) {
        const auto name = std::to_string(number * 1000 + round);
        const Person expected{name, round, {std::string(static_cast<std::size_t>(round), 'x')}};
        const auto json = R"({"first_name":")" + name + R"(","age":)" + std::to_string(round) +
                          R"(,"tags":[")" + expected.tags[0] + "\"]}";
        if (shared.decode<Person>(json) != expected) ++failures;
        if (failureOf<Person>(json + '}', shared) != Case::dataCorrupted) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace tarn
