#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Case = DecodingError::Case;
using Read = std::function<void(JSONReader&)>;

/// Lets a test read as the coding of a type of one's own does.
struct Custom {
  static thread_local const Read* read;

  static Custom decode(JSONReader& reader) {
    (*read)(reader);
    return {};
  }
};
thread_local const Read* Custom::read = nullptr;

void read(std::string_view json, const Read& read, const JSONDecoder& decoder = JSONDecoder()) {
  Custom::read = &read;
  decoder.decode<Custom>(json);
}

/// The error that reading ends with; fails the test where there is none.
DecodingError errorOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const DecodingError& error) {
    return error;
  }
  ADD_FAILURE() << "nothing was thrown";
  return DecodingError::valueNotFound({}, "none");
}

DecodingError readError(std::string_view json, const Read& body) {
  return errorOf([&] { read(json, body); });
}

TEST(JSONReaderTests, TellsTheKindOfTheNextValueWithoutTakingIt) {
  using Kind = JSONReader::Kind;
  const std::pair<const char*, Kind> rows[] = {
      {"null", Kind::null},   {"true", Kind::boolean}, {" false", Kind::boolean},
      {"0", Kind::number},    {"-1", Kind::number},    {"9.5", Kind::number},
      {"\"\"", Kind::string}, {"[]", Kind::array},     {"\n{}", Kind::object},
  };
  for (const auto& [json, kind] : rows) {
    SCOPED_TRACE(json);
    read(json, [&, kind = kind](JSONReader& reader) {
      EXPECT_EQ(reader.kind(), kind);
      EXPECT_EQ(reader.kind(), kind);
      reader.skip();
    });
  }
}

TEST(JSONReaderTests, ReadsEachKindOfValue) {
  read(R"([null, true, false, -5, 200, 1.5, 0.25, "t\u0065xt"])", [](JSONReader& reader) {
    int index = 0;
    reader.array([&] {
      switch (index++) {
        case 0:
          EXPECT_TRUE(reader.null());
          break;
        case 1:
          EXPECT_FALSE(reader.null());
          EXPECT_TRUE(reader.boolean());
          break;
        case 2:
          EXPECT_FALSE(reader.boolean());
          break;
        case 3:
          EXPECT_EQ(reader.integer<std::int8_t>(), -5);
          break;
        case 4:
          EXPECT_EQ(reader.integer<std::uint8_t>(), 200);
          break;
        case 5:
          EXPECT_EQ(reader.floatingPoint<double>(), 1.5);
          break;
        case 6:
          EXPECT_EQ(reader.floatingPoint<float>(), 0.25F);
          break;
        default:
          EXPECT_EQ(reader.string(), "text");
      }
    });
    EXPECT_EQ(index, 8);
  });
}

TEST(JSONReaderTests, GivesMembersInTheirOrderTwiceWhereAKeyComesTwice) {
  std::string found;
  read(R"({"b":1, "a":2, "b":3, "k\u0065y\n":4})", [&](JSONReader& reader) {
    reader.object([&](std::string_view key) {
      found += std::string(key) + '=' + std::to_string(reader.integer<int>()) + ';';
    });
  });
  EXPECT_EQ(found, "b=1;a=2;b=3;key\n=4;");
}

TEST(JSONReaderTests, PassesOverWhatACallbackLeavesAlone) {
  int members = 0;
  int elements = 0;
  read(R"({"a":[1,{"x":[[]]}], "b":"\"", "c":[true,null,-1.5e3]})", [&](JSONReader& reader) {
    reader.object([&](std::string_view key) {
      ++members;
      if (key == "c") reader.array([&] { ++elements; });
    });
  });
  EXPECT_EQ(members, 3);
  EXPECT_EQ(elements, 3);
  read("[1, 2]", [](JSONReader&) {});  // nor does a coding have to read anything
}

TEST(JSONReaderTests, ChecksWhatACallbackLeavesAlone) {
  for (const char* json : {R"([[1,]])", R"([{"a"}])", R"(["\x"])", "[01]", "[nul]", "[tru]", "[}]",
                           R"([{"\ud800":1}])", "[1.]", "[[]"}) {
    SCOPED_TRACE(json);
    EXPECT_EQ(readError(json, [](JSONReader& reader) { reader.array([] {}); }).kind(),
              Case::dataCorrupted);
    EXPECT_EQ(readError(json, [](JSONReader&) {}).kind(), Case::dataCorrupted);
  }
}

TEST(JSONReaderTests, ReadingTwiceIsCorrupted) {
  const Read twice[] = {
      [](JSONReader& reader) { reader.integer<int>(), reader.integer<int>(); },
      [](JSONReader& reader) { reader.skip(), reader.skip(); },
      [](JSONReader& reader) { reader.skip(), reader.string(); },
      [](JSONReader& reader) { reader.skip(), reader.boolean(); },
      [](JSONReader& reader) { reader.skip(), reader.text(); },
      [](JSONReader& reader) { reader.skip(), reader.floatingPoint<double>(); },
      [](JSONReader& reader) { reader.skip(), reader.array([] {}); },
      [](JSONReader& reader) { reader.skip(), reader.object([](std::string_view) {}); },
      [](JSONReader& reader) { reader.skip(), reader.kind(); },
      [](JSONReader& reader) { reader.skip(), reader.decode<JSONValue>(); },
      [](JSONReader& reader) { reader.skip(), reader.failExpecting("more"); },
  };
  int index = 0;
  for (const auto& body : twice) {
    SCOPED_TRACE(index++);
    EXPECT_EQ(readError("1", body).kind(), Case::dataCorrupted);
    const auto inArray = [&](JSONReader& reader) { reader.array([&] { body(reader); }); };
    EXPECT_EQ(readError("[1]", inArray).kind(), Case::dataCorrupted);
    EXPECT_EQ(readError("[1,2]", inArray).kind(), Case::dataCorrupted);
    const auto inObject = [&](JSONReader& reader) {
      reader.object([&](std::string_view) { body(reader); });
    };
    EXPECT_EQ(readError(R"({"a":1,"b":2})", inObject).kind(), Case::dataCorrupted);
    EXPECT_EQ(readError(R"({"a":1})", inObject).kind(), Case::dataCorrupted);
  }
}

TEST(JSONReaderTests, ThereIsNoNullBehindAValue) {
  read("[1]", [](JSONReader& reader) {
    reader.array([&] {
      reader.skip();
      EXPECT_FALSE(reader.null());
    });
    EXPECT_FALSE(reader.null());
  });
}

TEST(JSONReaderTests, TextIsTheValueAsItStands) {
  const char* rows[] = {"null", "true",      "-1.50e+3",        R"("a\u0065 ,]")",
                        "[ ]",  "[1 , [2]]", R"({ "a" : [ ] })"};
  for (const std::string value : rows) {
    SCOPED_TRACE(value);
    const Read expectText = [&](JSONReader& reader) { EXPECT_EQ(reader.text(), value); };
    read(value, expectText);
    read(" \n" + value + "\t ", expectText);
    read("[" + value + " \r\n, " + value + " ]",
         [&](JSONReader& reader) { reader.array([&] { expectText(reader); }); });
    read(R"({"k" :)" + value + "\n}",
         [&](JSONReader& reader) { reader.object([&](auto) { expectText(reader); }); });
  }
  EXPECT_EQ(readError("[1,[2}]", [](JSONReader& reader) { reader.text(); }).kind(),
            Case::dataCorrupted);
}

TEST(JSONReaderTests, AttemptGoesBackToTheValueItStartedAt) {
  read(R"([{"a":[1,"x"]}, 7])", [](JSONReader& reader) {
    int index = 0;
    reader.array([&] {
      if (index++ == 1) {
        EXPECT_TRUE(reader.attempt([&] { EXPECT_EQ(reader.integer<int>(), 7); }));
        return;
      }
      EXPECT_FALSE(reader.attempt([&] {
        reader.object([&](std::string_view) { reader.array([&] { reader.integer<int>(); }); });
      }));
      EXPECT_EQ(description(reader.codingPath()), "[0]");
      EXPECT_EQ(reader.text(), R"({"a":[1,"x"]})");
    });
    EXPECT_EQ(index, 2);
  });
}

TEST(JSONReaderTests, AttemptGoesBackBehindAValueThatWasRead) {
  read("[5]", [](JSONReader& reader) {
    EXPECT_FALSE(reader.attempt([&] {
      reader.skip();
      reader.failCorrupted("not this one");
    }));
    EXPECT_EQ(reader.decode<std::vector<int>>(), std::vector{5});
  });
}

TEST(JSONReaderTests, AFailedAttemptDoesNotHideIllFormedText) {
  const Read attempt = [](JSONReader& reader) {
    EXPECT_FALSE(reader.attempt([&] { reader.decode<std::vector<std::string>>(); }));
  };
  EXPECT_EQ(readError(R"(["a",])", attempt).kind(), Case::dataCorrupted);
  EXPECT_EQ(readError(R"(["\q"])", attempt).kind(), Case::dataCorrupted);
}

TEST(JSONReaderTests, WhoCatchesAnErrorGoesOn) {
  std::vector<int> numbers;
  read(R"([1, "x", [2,[{"a":"y"}]], {"b":1e99}, 3, null, 999])", [&](JSONReader& reader) {
    reader.array([&] {
      try {
        if (reader.kind() == JSONReader::Kind::array)
          reader.decode<std::vector<std::vector<std::map<std::string, int>>>>();
        if (reader.kind() == JSONReader::Kind::object)
          reader.object([&](std::string_view) { reader.integer<int>(); });
        numbers.push_back(reader.integer<std::int8_t>());
      } catch (const DecodingError&) {
        numbers.push_back(-1);
      }
    });
    EXPECT_TRUE(reader.codingPath().empty());
  });
  EXPECT_EQ(numbers, (std::vector{1, -1, -1, -1, 3, -1, -1}));
}

template <class T>
void decodeValue(JSONReader& reader) {
  reader.decode<T>();
}

TEST(JSONReaderTests, AFailedReadLeavesTheValueToBeReadOtherwise) {
  struct Pair {
    int first{};
    int second{};
  };
  enum class Colour { red };
  JSONDecoder decoder;
  decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  const struct {
    void (*read)(JSONReader&);
    const char* json;
  } rows[] = {
      {decodeValue<std::int8_t>, "300"},
      {decodeValue<std::uint8_t>, "-1"},
      {decodeValue<int>, "1.5"},
      {decodeValue<float>, "1e39"},
      {decodeValue<double>, "1e400"},
      {decodeValue<double>, R"("other")"},
      {decodeValue<bool>, "1"},
      {decodeValue<std::string>, "1"},
      {decodeValue<URL>, R"("a b")"},
      {decodeValue<UUID>, R"("a")"},
      {decodeValue<Data>, R"("?")"},
      {decodeValue<JSONDate>, "1e300"},
      {decodeValue<std::chrono::sys_time<std::chrono::nanoseconds>>, "9e12"},
      {decodeValue<std::chrono::seconds>, "1e300"},
      {decodeValue<Colour>, R"("blue")"},
      {decodeValue<std::array<int, 2>>, "[1]"},
      {decodeValue<Pair>, R"({"first":1})"},
      {decodeValue<Pair>, R"({"first":1,"second":1e99})"},
      {[](JSONReader& reader) { reader.skip(), reader.failCorrupted("no"); }, "[[1], 2]"},
      {[](JSONReader& reader) { reader.skip(), reader.failMissing("key"); }, R"({"a":[1]})"},
  };
  for (const auto& [body, value] : rows) {
    SCOPED_TRACE(value);
    std::vector<std::string> texts;
    const Read catching = [&, body = body](JSONReader& reader) {
      EXPECT_THROW(body(reader), DecodingError);
      texts.emplace_back(reader.text());
    };
    read(value, catching, decoder);
    const std::string text = value;
    read(
        "[" + text + "," + text + "]",
        [&](JSONReader& reader) { reader.array([&] { catching(reader); }); }, decoder);
    read(R"({"k":)" + text + "}",
         [&](JSONReader& reader) { reader.object([&](std::string_view) { catching(reader); }); },
         decoder);
    EXPECT_EQ(texts, std::vector<std::string>(4, text));
  }
}

TEST(JSONReaderTests, AFailedReadCanBePassedOver) {
  std::vector<int> numbers;
  read("[1,300,3]", [&](JSONReader& reader) {
    reader.array([&] {
      try {
        numbers.push_back(reader.integer<std::int8_t>());
      } catch (const DecodingError&) {
        reader.skip();
        numbers.push_back(-1);
      }
    });
  });
  EXPECT_EQ(numbers, (std::vector{1, -1, 3}));
}

TEST(JSONReaderTests, WhoCatchesAnExceptionOfOnesOwnInsideAnArrayGoesOn) {
  std::string found;
  read(R"([[1,2,3],{"a":1,"b":2},4])", [&](JSONReader& reader) {
    reader.array([&] {
      try {
        if (reader.kind() == JSONReader::Kind::array)
          reader.array([&] {
            if (reader.integer<int>() == 2) throw std::runtime_error("two");
          });
        else if (reader.kind() == JSONReader::Kind::object)
          reader.object([](std::string_view) { throw std::runtime_error("member"); });
        else
          found += std::to_string(reader.integer<int>());
      } catch (const std::runtime_error& error) {
        found += error.what();
        found += ' ';
      }
    });
  });
  EXPECT_EQ(found, "two member 4");
}

TEST(JSONReaderTests, WhoCatchesTheErrorOfIllFormedTextDoesNotGetPast) {
  for (const char* json :
       {R"(["\q"])", R"(["\ud800", 1])", R"([{"\q":1}])", "[nul]", "[01]", "[tru]", "[[1}]"}) {
    SCOPED_TRACE(json);
    const auto error = readError(json, [](JSONReader& reader) {
      reader.array([&] {
        try {
          reader.decode<JSONValue>();
        } catch (const DecodingError&) {
        }
      });
    });
    EXPECT_EQ(error.kind(), Case::dataCorrupted);
  }
}

TEST(JSONReaderTests, ForeignExceptionsPassThrough) {
  const auto run = [] {
    read(R"({"a":[1]})", [](JSONReader& reader) {
      reader.object(
          [&](std::string_view) { reader.array([] { throw std::out_of_range("my own"); }); });
    });
  };
  EXPECT_THROW(run(), std::out_of_range);
}

TEST(JSONReaderTests, KnowsWhereItIs) {
  std::vector<std::string> paths;
  read(R"({"items":[{"price":1},{"odd key":2}],"k\u0065y":3})", [&](JSONReader& reader) {
    const auto note = [&] { paths.push_back(description(reader.codingPath())); };
    reader.object([&](std::string_view key) {
      note();
      if (key != "items") return;
      reader.array([&] {
        note();
        reader.object([&](std::string_view) { note(); });
      });
    });
    note();
  });
  EXPECT_EQ(paths, (std::vector<std::string>{"items", "items[0]", "items[0].price", "items[1]",
                                             R"(items[1]["odd key"])", "key", ""}));
}

TEST(JSONReaderTests, LendsTheDecoderAtWork) {
  JSONDecoder decoder;
  decoder.maximumDepth = 7;
  read(
      "1", [&](JSONReader& reader) { EXPECT_EQ(&reader.decoder(), &decoder); }, decoder);
}

TEST(JSONReaderTests, FailsWithThePathOfTheValue) {
  const auto inside = [](auto fail) {
    return [fail](JSONReader& reader) { reader.object([&](std::string_view) { fail(reader); }); };
  };
  const auto expecting = [](JSONReader& reader) { reader.failExpecting("a colour"); };
  EXPECT_EQ(readError(R"({"a":1.50})", inside(expecting)).message(),
            "a: expected a colour, found the number 1.50");
  EXPECT_EQ(readError(R"({"a":null})", inside(expecting)).message(),
            "a: expected a colour, found null");
  EXPECT_EQ(readError(R"({"a":null})", inside(expecting)).kind(), Case::valueNotFound);
  const auto corrupted = [](JSONReader& reader) {
    reader.skip();
    reader.failCorrupted("no colour");
  };
  EXPECT_EQ(readError(R"({"a":1})", inside(corrupted)).message(), "a: no colour");
  const auto error = readError(R"({"a":{"b":1}})", inside([](JSONReader& reader) {
                                 reader.skip();
                                 reader.failMissing("colour");
                               }));
  EXPECT_EQ(error.message(), R"(a: the key "colour" is missing)");
  EXPECT_EQ(error.kind(), Case::keyNotFound);
  EXPECT_EQ(error.key(), "colour");
}

template <class T>
struct NumberRow {
  const char* text;
  std::optional<T> value;  // nothing: dataCorrupted
};

template <class T>
void expectNumbers(const std::vector<NumberRow<T>>& rows) {
  for (const auto& [text, value] : rows) {
    SCOPED_TRACE(text);
    const auto decode = [text = text] { return JSONDecoder().decode<T>(text); };
    if (!value) {
      EXPECT_EQ(errorOf(decode).kind(), Case::dataCorrupted);
      continue;
    }
    const T read = decode();
    EXPECT_EQ(read, *value);
    EXPECT_EQ(std::signbit(static_cast<double>(read)), std::signbit(static_cast<double>(*value)));
  }
}

TEST(JSONReaderNumberTests, WholeNumbersAreExactTo64Bits) {
  expectNumbers<std::int64_t>({
      {"0", 0},
      {"-0", 0},
      {"-0.0", 0},
      {"0e999999999999", 0},
      {"1.0e2", 100},
      {"0.1e1", 1},
      {"1E+2", 100},
      {"1e3", 1000},
      {"12.0", 12},
      {"1200e-2", 12},
      {"0.0000012e7", 12},
      {"120e-2", std::nullopt},
      {"0.5", std::nullopt},
      {"1e-1", std::nullopt},
      {"9007199254740993", 9007199254740993},
      {"9007199254740993.0", 9007199254740993},
      {"900719925474099.3e1", 9007199254740993},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775807.000", INT64_MAX},
      {"922337203685477580700e-2", INT64_MAX},
      {"9223372036854775808", std::nullopt},
      {"-9223372036854775808", INT64_MIN},
      {"-9.223372036854775808e18", INT64_MIN},
      {"-9223372036854775809", std::nullopt},
      {"1e18", 1'000'000'000'000'000'000},
      {"1e19", std::nullopt},
      {"1e20", std::nullopt},
      {"1e400", std::nullopt},
      {"1e99999999999999999999", std::nullopt},
      {"1e-99999999999999999999", std::nullopt},
      {"123456789012345678901234567890", std::nullopt},
  });
  expectNumbers<std::uint64_t>({
      {"9999999999999999999", 9'999'999'999'999'999'999U},
      {"10000000000000000000", 10'000'000'000'000'000'000U},
      {"18446744073709551615", UINT64_MAX},
      {"1.8446744073709551615e19", UINT64_MAX},
      {"18446744073709551616", std::nullopt},
      {"1e19", 10'000'000'000'000'000'000U},
      {"99999999999999999999", std::nullopt},
      {"-0", 0},
      {"-0.0e5", 0},
      {"-1", std::nullopt},
      {"-18446744073709551615", std::nullopt},
  });
}

TEST(JSONReaderNumberTests, WholeNumbersFitTheirType) {
  expectNumbers<std::int8_t>({{"127", std::int8_t{127}},
                              {"128", std::nullopt},
                              {"-128", std::int8_t{-128}},
                              {"-129", std::nullopt}});
  expectNumbers<std::uint8_t>({{"255", std::uint8_t{255}}, {"256", std::nullopt}});
  expectNumbers<std::int16_t>({{"32767", std::int16_t{32767}}, {"32768", std::nullopt}});
  expectNumbers<std::uint16_t>({{"65535", std::uint16_t{65535}}, {"65536", std::nullopt}});
  expectNumbers<std::int32_t>({{"-2147483648", INT32_MIN}, {"2147483648", std::nullopt}});
  expectNumbers<std::uint32_t>({{"4294967295", UINT32_MAX}, {"4294967296", std::nullopt}});
}

TEST(JSONReaderNumberTests, FloatingPointNumbersAreTheNearest) {
  constexpr double least = std::numeric_limits<double>::denorm_min();
  expectNumbers<double>({
      {"0", 0.0},
      {"-0", -0.0},
      {"-0.0", -0.0},
      {"0e400", 0.0},
      {"1e400", std::nullopt},
      {"-1e400", std::nullopt},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"0.0001e400", std::nullopt},
      {"1e99999999999999999999", std::nullopt},
      {"1e-99999999999999999999", 0.0},
      {"9007199254740991", 9007199254740991.0},
      {"9007199254740992", 9007199254740992.0},
      {"9007199254740993", 9007199254740992.0},
      {"9007199254740992e22", 9007199254740992e22},
      {"9007199254740993e22", 9007199254740993e22},
      {"0.0000000000000000000001", 1e-22},
      {"0.00000000000000000000001", 1e-23},
      {"9999999999999999999", 9999999999999999999.0},
      {"99999999999999999999", 99999999999999999999.0},
      {"9007199254740993.00000000000000000001", 9007199254740994.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"1.7976931348623158e308", std::numeric_limits<double>::max()},
      {"1.7976931348623159e308", std::nullopt},
      {"17976931348623159e292", std::nullopt},
      {"5e-324", least},
      {"2.4703282292062328e-324", least},
      {"2.4703282292062327e-324", 0.0},
      {"0.1", 0.1},
      {"1E+2", 100.0},
      {"1e22", 1e22},
      {"1e23", 1e23},
      {"7e-22", 7e-22},
      {"7e-23", 7e-23},
      {"9007199254740993e1", 90071992547409930.0},
      {"9007199254740993e-1", 900719925474099.3},
      {"1234567890123456789e-19", 0.1234567890123456789},
      {"0.3", 0.3},
      {"123456789.123456789", 123456789.123456789},
  });
}

TEST(JSONReaderNumberTests, FloatsAreNotRoundedTwice) {
  expectNumbers<float>({
      {"3.4028235e38", std::numeric_limits<float>::max()},
      {"3.4028235677973365e38", std::numeric_limits<float>::max()},
      {"3.4028236e38", std::nullopt},
      {"-3.4028236e38", std::nullopt},
      {"1e-45", std::numeric_limits<float>::denorm_min()},
      {"1e-46", 0.0F},
      {"-1e-46", -0.0F},
      // Halfway between two floats once it is rounded to a double.
      {"1.00000017881393432617187499", 1.00000011920928955078125F},
      {"16777217", 16777216.0F},
      {"16777217e1", 167772170.0F},
      {"16777217e-3", 16777.217F},
      {"7e10", 7e10F},
      {"7e11", 7e11F},
      {"7e-11", 7e-11F},
      {"0.1", 0.1F},
  });
}

/// A number made up of everything a number can have.
std::string madeUpNumber(std::mt19937& random) {
  const auto below = [&](std::uint32_t bound) {
    return static_cast<std::uint32_t>(random() % bound);
  };
  const auto digits = [&](std::uint32_t count) {
    std::string text;
    for (; count > 0; --count) text += static_cast<char>('0' + below(10));
    return text;
  };
  std::string text = below(4) == 0 ? "-" : "";
  text += below(4) == 0 ? "0" : static_cast<char>('1' + below(9)) + digits(below(21));
  if (below(2) == 0) text += '.' + digits(1 + below(12));
  if (below(3) == 0) text += "e" + std::to_string(static_cast<int>(below(60)) - 30);
  return text;
}

TEST(JSONReaderNumberTests, NumbersAreThoseOfTheCLibrary) {
  std::mt19937 random(8);
  for (int i = 0; i < 20'000; ++i) {
    const auto text = madeUpNumber(random);
    SCOPED_TRACE(text);
    ASSERT_EQ(JSONDecoder().decode<double>(text), std::strtod(text.c_str(), nullptr));
    const float nearest = std::strtof(text.c_str(), nullptr);
    if (std::isfinite(nearest))
      ASSERT_EQ(JSONDecoder().decode<float>(text), nearest);
    else
      ASSERT_THROW(JSONDecoder().decode<float>(text), DecodingError);
    if (text.find_first_of(".e") != text.npos) continue;
    std::int64_t whole = 0;
    const auto error = std::from_chars(text.data(), text.data() + text.size(), whole).ec;
    if (error == std::errc())
      ASSERT_EQ(JSONDecoder().decode<std::int64_t>(text), whole);
    else
      ASSERT_THROW(JSONDecoder().decode<std::int64_t>(text), DecodingError);
  }
}

TEST(JSONReaderNumberTests, LongNumbersAreRead) {
  const std::string zeros(100'000, '0');
  EXPECT_EQ(JSONDecoder().decode<std::int64_t>("5" + zeros + "e-100000"), 5);
  EXPECT_EQ(JSONDecoder().decode<std::int64_t>("0." + zeros + "5e100001"), 5);
  EXPECT_EQ(JSONDecoder().decode<double>("1." + zeros), 1.0);
  EXPECT_EQ(JSONDecoder().decode<double>("0." + zeros + "1"), 0.0);
  EXPECT_EQ(errorOf([&] { JSONDecoder().decode<double>("1" + zeros); }).kind(),
            Case::dataCorrupted);
}

TEST(JSONReaderStringTests, EscapesStandForCharacters) {
  const std::pair<const char*, const char*> rows[] = {
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {R"("\u0041")", "A"},
      {R"("\u007f")", "\x7f"},
      {R"("\u0080")", "\xc2\x80"},
      {R"("\u07FF")", "\xdf\xbf"},
      {R"("\u0800")", "\xe0\xa0\x80"},
      {R"("\ud7ff")", "\xed\x9f\xbf"},
      {R"("\uE000")", "\xee\x80\x80"},
      {R"("\uffff")", "\xef\xbf\xbf"},
      {R"("\ud800\udc00")", "\xf0\x90\x80\x80"},
      {R"("\uDBFF\uDFFF")", "\xf4\x8f\xbf\xbf"},
      {R"("\ud83d\ude39!")", "\xf0\x9f\x98\xb9!"},
      {R"("a\\")", "a\\"},
      {R"("\\\\\"")", "\\\\\""},
      {R"("1234567\"")", "1234567\""},
      {R"("12345678\n12345678")", "12345678\n12345678"},
  };
  for (const auto& [json, text] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(JSONDecoder().decode<std::string>(json), text);
    const auto object = '{' + std::string(json) + ":1}";
    EXPECT_EQ((JSONDecoder().decode<std::map<std::string, int>>(object)),
              (std::map<std::string, int>{{text, 1}}));
  }
  EXPECT_EQ(JSONDecoder().decode<std::string>(R"("a\u0000b")"), std::string("a\0b", 3));
}

TEST(JSONReaderStringTests, MalformedEscapesAreCorrupted) {
  const char* rows[] = {
      R"("\a")",           R"("\x41")",         R"("\U0041")",       R"("\u")",
      R"("\u1")",          R"("\u12")",         R"("\u123")",        R"("\u123g")",
      R"("\u-123")",       R"("\u+123")",       R"("\u 123")",       R"("\u0x1")",
      R"("\ud800")",       R"("\ud800x")",      R"("\ud800\n")",     R"("\ud800\u")",
      R"("\ud800\u12")",   R"("\ud800\u0041")", R"("\ud800\ud800")", R"("\udc00")",
      R"("\udc00\ud800")", R"("\udfff")",       R"("\ud800\ue000")", R"("\ud800\\udc00")",
      "\"\\\n\"",          "\"\\\xc3\xa9\"",
  };
  for (const char* json : rows) {
    SCOPED_TRACE(json);
    const auto object = '{' + std::string(json) + ":1}";
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<std::string>(json); }).kind(),
              Case::dataCorrupted);
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<JSONValue>(json); }).kind(), Case::dataCorrupted);
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<int>(json); }).kind(), Case::dataCorrupted);
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<std::map<std::string, int>>(object); }).kind(),
              Case::dataCorrupted);
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<int>(object); }).kind(), Case::dataCorrupted);
  }
}

TEST(JSONReaderStringTests, TextIsUTF8) {
  struct Row {
    const char* bytes;
    bool isText;
  };
  const Row rows[] = {
      {"\x7f", true},
      {"\xc2\x80", true},
      {"\xdf\xbf", true},
      {"\xe0\xa0\x80", true},
      {"\xed\x9f\xbf", true},
      {"\xee\x80\x80", true},
      {"\xef\xbf\xbf", true},
      {"\xf0\x90\x80\x80", true},
      {"\xf4\x8f\xbf\xbf", true},
      {"\x80", false},  // continues nothing
      {"\xbf", false},
      {"\xc0\x80", false},  // longer than needed
      {"\xc1\xbf", false},
      {"\xe0\x80\x80", false},
      {"\xe0\x9f\xbf", false},
      {"\xf0\x80\x80\x80", false},
      {"\xf0\x8f\xbf\xbf", false},
      {"\xed\xa0\x80", false},  // halves of a surrogate pair
      {"\xed\xbf\xbf", false},
      {"\xed\xa0\xbd\xed\xb8\xb9", false},
      {"\xf4\x90\x80\x80", false},  // beyond U+10FFFF
      {"\xf5\x80\x80\x80", false},
      {"\xf8\x88\x80\x80\x80", false},  // five and six bytes
      {"\xfc\x84\x80\x80\x80\x80", false},
      {"\xfe", false},
      {"\xff", false},
      {"\xc3", false},  // cut
      {"\xe2\x82", false},
      {"\xf0\x9f\x98", false},
      {"\xc3(", false},
      {"\xe2(\xac", false},
  };
  for (const auto& [bytes, isText] : rows) {
    // Where the characters stand in the blocks of 64 that are looked at as one must not matter.
    for (std::size_t before = 0; before < 130; ++before) {
      SCOPED_TRACE(testing::Message() << testing::PrintToString(bytes) << " after " << before);
      const auto text = std::string(before, 'a') + bytes + 'z';
      const auto json = '"' + text + '"';
      if (isText)
        ASSERT_EQ(JSONDecoder().decode<std::string>(json), text);
      else
        ASSERT_EQ(errorOf([&] { JSONDecoder().decode<std::string>(json); }).message(),
                  "the text is not UTF-8");
    }
  }
}

TEST(JSONReaderStringTests, UTF8CutByTheEndOfTheTextIsCorrupted) {
  for (const char* bytes : {"\xc3", "\xe2\x82", "\xf0\x9f\x98"}) {
    for (std::size_t before = 0; before < 130; ++before) {
      SCOPED_TRACE(before);
      const auto json = std::string(before, ' ') + "1 " + bytes;
      ASSERT_EQ(errorOf([&] { JSONDecoder().decode<JSONValue>(json); }).kind(),
                Case::dataCorrupted);
    }
  }
}

TEST(JSONReaderStringTests, ControlCharactersAreEscaped) {
  for (int c = 0; c < 0x20; ++c) {
    SCOPED_TRACE(c);
    const auto json = "\"a" + std::string(1, static_cast<char>(c)) + '"';
    EXPECT_EQ(errorOf([&] { JSONDecoder().decode<std::string>(json); }).message(),
              "a string holds a control character, which has to be escaped");
  }
}

TEST(JSONReaderStringTests, QuotesAndBackslashesEndStringsAtEveryPosition) {
  for (std::size_t before = 0; before < 140; ++before) {
    SCOPED_TRACE(before);
    const std::string plain(before, 'x');
    ASSERT_EQ(JSONDecoder().decode<std::vector<std::string>>("[\"" + plain + R"(\\","b"])"),
              (std::vector<std::string>{plain + '\\', "b"}));
    ASSERT_EQ(JSONDecoder().decode<std::vector<std::string>>("[\"" + plain + R"(\"","b"])"),
              (std::vector<std::string>{plain + '"', "b"}));
    ASSERT_EQ(JSONDecoder().decode<std::string>('"' + std::string(before * 2, '\\') + '"'),
              std::string(before, '\\'));
  }
}

// Where one search for backslashes ends and the next begins.
TEST(JSONReaderStringTests, EscapesAreFoundWhereverTheyStand) {
  for (const std::size_t before : {0U, 100U, 4000U, 4080U, 4096U, 5000U}) {
    for (std::size_t length = 0; length < 20; ++length) {
      SCOPED_TRACE(std::to_string(before) + " and " + std::to_string(length));
      const std::string first(before, 'x');
      const std::string second(length, 'y');
      const std::string third(4096 + length, 'z');
      ASSERT_EQ(JSONDecoder().decode<std::vector<std::string>>("[\"" + first + "\",\"" + second +
                                                               R"(\n","",")" + second + "\",\"" +
                                                               third + R"(\t","\u0041"])"),
                (std::vector<std::string>{first, second + '\n', "", second, third + '\t', "A"}));
    }
  }
}

TEST(JSONReaderStringTests, EscapesAreFoundAgainAfterAFailedAttempt) {
  std::string again, last;
  read(R"([["plain","a\nb","c","d\te"],"f\ng"])", [&](JSONReader& reader) {
    int element = 0;
    reader.array([&] {
      if (element++ > 0) return reader.string(last);
      const auto fail = [&] {
        reader.array([&] { reader.string(); });
        reader.failCorrupted("not this one");
      };
      EXPECT_FALSE(reader.attempt(fail));
      reader.array([&] { again += reader.string() + ';'; });
    });
  });
  EXPECT_EQ(again, "plain;a\nb;c;d\te;");
  EXPECT_EQ(last, "f\ng");
}

}  // namespace
}  // namespace tarn
