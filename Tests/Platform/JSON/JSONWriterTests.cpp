#include <Platform/JSON/JSONEncoder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

namespace tarn {
namespace {

using Write = std::function<void(JSONWriter&)>;

// A value that is written as the test says.
struct Scripted {
  Write write;
  void encode(JSONWriter& writer) const { write(writer); }
};

std::string written(const Write& write, const JSONEncoder& encoder = {}) {
  return std::string(encoder.encode(Scripted{write}).view());
}

// The message of the EncodingError, or the text that came out without one.
std::string failure(const Write& write, const JSONEncoder& encoder = {}) {
  try {
    return "written: " + written(write, encoder);
  } catch (const EncodingError& error) {
    return error.message();
  }
}

JSONEncoder formatted(bool isPretty, bool isSorted) {
  JSONEncoder encoder;
  encoder.outputFormatting = {.sortedKeys = isSorted, .prettyPrinted = isPretty};
  return encoder;
}

TEST(JSONWriterTests, WritesScalars) {
  const struct {
    Write write;
    const char* text;
  } rows[] = {
      {[](JSONWriter& w) { w.null(); }, "null"},
      {[](JSONWriter& w) { w.boolean(true); }, "true"},
      {[](JSONWriter& w) { w.boolean(false); }, "false"},
      {[](JSONWriter& w) { w.integer(0); }, "0"},
      {[](JSONWriter& w) { w.integer(std::int8_t{-128}); }, "-128"},
      {[](JSONWriter& w) { w.integer(std::uint8_t{255}); }, "255"},
      {[](JSONWriter& w) { w.integer(std::numeric_limits<std::int64_t>::min()); },
       "-9223372036854775808"},
      {[](JSONWriter& w) { w.integer(std::numeric_limits<std::int64_t>::max()); },
       "9223372036854775807"},
      {[](JSONWriter& w) { w.integer(std::numeric_limits<std::uint64_t>::max()); },
       "18446744073709551615"},
      {[](JSONWriter& w) { w.string(""); }, "\"\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(written(row.write), row.text);
  }
}

TEST(JSONWriterTests, WritesDoublesInTheirShortestForm) {
  const struct {
    double value;
    const char* text;
  } rows[] = {
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {1.0, "1.0"},
      {-42.0, "-42.0"},
      {100000.0, "100000.0"},
      {999999999999999.0, "999999999999999.0"},
      {-999999999999999.0, "-999999999999999.0"},
      {1e15, "1e+15"},
      {1234567890123456.0, "1234567890123456.0"},
      {9007199254740993.0, "9007199254740992.0"},
      {1e22, "1e+22"},
      {0.1, "0.1"},
      {12.5, "12.5"},
      {-19.99, "-19.99"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1.0 / 3, "0.3333333333333333"},
      {123456789.123, "123456789.123"},
      {1e-7, "1e-07"},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {2.2250738585072014e-308, "2.2250738585072014e-308"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(written([&](JSONWriter& w) { w.floatingPoint(row.value); }), row.text);
    EXPECT_EQ(std::strtod(row.text, nullptr), row.value);
  }
}

// Decimals take another way than numbers with many digits; what std::to_chars makes of a number is
// the measure of both.
TEST(JSONWriterTests, WritesEveryDecimalAsShortAsItIs) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 50'000; ++i) {
    const double scale = std::pow(10.0, static_cast<double>(random() % 12));
    const double number = static_cast<double>(random() % 1'000'000'000'000'000) / scale;
    for (const double value : {number, -std::fmod(number, 1000.0), std::nextafter(number, 0.0)}) {
      char text[40];
      const std::string shortest(text, std::to_chars(text, text + sizeof text, value).ptr);
      const std::string json = written([&](JSONWriter& w) { w.floatingPoint(value); });
      ASSERT_EQ(std::strtod(json.c_str(), nullptr), value) << json;
      // Whole numbers have their ".0", and no exponent where their digits fit.
      if (value != std::trunc(value)) {
        ASSERT_EQ(json, shortest);
      }
    }
  }
}

TEST(JSONWriterTests, WritesFloatsInTheirOwnShortestForm) {
  const struct {
    float value;
    const char* text;
  } rows[] = {
      {0.1f, "0.1"},
      {1.0f, "1.0"},
      {16777216.0f, "16777216.0"},
      {0.3333333f, "0.3333333"},
      {999999.0f, "999999.0"},
      {3.4028235e38f, "3.4028235e+38"},
      {-0.0f, "-0.0"},
      {1e-45f, "1e-45"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(written([&](JSONWriter& w) { w.floatingPoint(row.value); }), row.text);
  }
}

TEST(JSONWriterTests, RefusesNumbersThatAreNotFinite) {
  for (const double value :
       {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN()}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(failure([&](JSONWriter& w) { w.floatingPoint(value); }), "the number is not finite");
    EXPECT_EQ(failure([&](JSONWriter& w) { w.floatingPoint(static_cast<float>(value)); }),
              "the number is not finite");
  }
}

TEST(JSONWriterTests, WritesTheTextsOfNumbersThatAreNotFinite) {
  JSONEncoder encoder;
  encoder.nonConformingFloats = {.positiveInfinity = "+\"", .negativeInfinity = "-oo", .nan = "?"};
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(written(
                [&](JSONWriter& w) {
                  w.encode(std::vector<double>{infinity, -infinity, std::nan(""), 1.5});
                },
                encoder),
            R"(["+\"","-oo","?",1.5])");
  EXPECT_EQ(written([&](JSONWriter& w) { w.floatingPoint(static_cast<float>(infinity)); }, encoder),
            R"("+\"")");
}

TEST(JSONWriterTests, EscapesOnlyWhatHasTo) {
  const struct {
    std::string text;
    const char* json;
  } rows[] = {
      {"\"", R"("\"")"},
      {"\\", R"("\\")"},
      {"a/b", R"("a/b")"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {std::string("\0\x01\x0b\x1f", 4), R"("\u0000\u0001\u000b\u001f")"},
      {" \x7f~", "\" \x7f~\""},
      {"größe 😀 \u2028", "\"größe 😀 \u2028\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    EXPECT_EQ(written([&](JSONWriter& w) { w.string(row.text); }), row.json);
    EXPECT_EQ(written([&](JSONWriter& w) { w.object([&] { w.member(row.text, 1); }); }),
              std::string("{") + row.json + ":1}");
  }
}

TEST(JSONWriterTests, EscapesAtEveryPlaceOfEveryLength) {
  const std::map<char, std::string> escapes = {{'"', "\\\""}, {'\\', "\\\\"},
                                               {'\n', "\\n"}, {'\x1f', "\\u001f"},
                                               {' ', " "},    {'\x7f', "\x7f"}};
  for (const auto& [character, escape] : escapes) {
    for (std::size_t length = 1; length < 40; ++length) {
      for (std::size_t place = 0; place < length; ++place) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
        std::string expected = text;
        text[place] = character;
        expected.replace(place, 1, escape);
        ASSERT_EQ(written([&](JSONWriter& w) { w.string(text); }), '"' + expected + '"')
            << length << " at " << place;
      }
    }
  }
}

TEST(JSONWriterTests, GrowsForTextsOfNothingButEscapes) {
  for (const std::size_t length : {681u, 682u, 683u, 4093u, 4094u, 4095u, 4096u, 100'003u}) {
    SCOPED_TRACE(length);
    std::string expected = "\"";
    for (std::size_t i = 0; i < length; ++i) expected += "\\u0001";
    expected += '"';
    EXPECT_EQ(written([&](JSONWriter& w) { w.string(std::string(length, '\x01')); }), expected);
    EXPECT_EQ(written([&](JSONWriter& w) { w.string(std::string(length, 'x')); }),
              '"' + std::string(length, 'x') + '"');
  }
}

TEST(JSONWriterTests, RefusesTextThatIsNotUTF8) {
  for (const std::string bad : {"\xff", "\xc3", "\xed\xa0\x80", "\xc0\x80", "\xf4\x90\x80\x80"}) {
    for (std::size_t ahead = 0; ahead < 20; ++ahead) {
      const std::string text = std::string(ahead, 'a') + bad + std::string(20 - ahead, 'b');
      ASSERT_EQ(failure([&](JSONWriter& w) { w.string(text); }), "the text is not UTF-8") << ahead;
      ASSERT_EQ(failure([&](JSONWriter& w) { w.object([&] { w.member(text, 1); }); }),
                "a key is not UTF-8")
          << ahead;
    }
    EXPECT_EQ(failure([&](JSONWriter& w) { w.string(bad); }), "the text is not UTF-8");
  }
}

const Write nested = [](JSONWriter& w) {
  w.object([&] {
    w.member("b", [&] {
      w.array([&] {
        w.element(1);
        w.element([&] { w.array([] {}); });
        w.element([&] { w.object([] {}); });
      });
    });
    w.member("a", [&] {
      w.object([&] {
        w.member("z", true);
        w.member("y", "text");
      });
    });
  });
};

TEST(JSONWriterTests, WritesTightly) {
  EXPECT_EQ(written(nested), R"({"b":[1,[],{}],"a":{"z":true,"y":"text"}})");
}

TEST(JSONWriterTests, PrintsPretty) {
  EXPECT_EQ(written(nested, formatted(true, false)), R"({
  "b": [
    1,
    [],
    {}
  ],
  "a": {
    "z": true,
    "y": "text"
  }
})");
  EXPECT_EQ(written([](JSONWriter& w) { w.array([] {}); }, formatted(true, false)), "[]");
  EXPECT_EQ(written([](JSONWriter& w) { w.object([] {}); }, formatted(true, false)), "{}");
}

TEST(JSONWriterTests, SortsKeysAtEveryLevel) {
  EXPECT_EQ(written(nested, formatted(false, true)),
            R"({"a":{"y":"text","z":true},"b":[1,[],{}]})");
}

TEST(JSONWriterTests, PrintsSortedKeysPretty) {
  EXPECT_EQ(written(nested, formatted(true, true)), R"({
  "a": {
    "y": "text",
    "z": true
  },
  "b": [
    1,
    [],
    {}
  ]
})");
}

TEST(JSONWriterTests, SortsByTheBytesOfTheKeys) {
  // Escaped, "\n" would come behind "!"; as signed characters, "é" would come first.
  const Write members = [](JSONWriter& w) {
    w.object([&] {
      for (const char* key : {"é", "b", "!", "\n", "B", "", "ba", "a"}) w.member(key, 0);
    });
  };
  EXPECT_EQ(written(members, formatted(false, true)),
            R"({"":0,"\n":0,"!":0,"B":0,"a":0,"b":0,"ba":0,"é":0})");
}

TEST(JSONWriterTests, KeysThatComeTwiceStayInOrderWhenSorted) {
  const Write members = [](JSONWriter& w) {
    w.object([&] {
      for (int i = 0; i < 40; ++i) w.member(i % 2 == 0 ? "b" : "a", i);
    });
  };
  std::string expected = "{";
  for (const int first : {1, 0})
    for (int i = first; i < 40; i += 2)
      expected += (first == 1 ? "\"a\":" : "\"b\":") + std::to_string(i) + ",";
  expected.back() = '}';
  EXPECT_EQ(written(members, formatted(false, true)), expected);
}

TEST(JSONWriterTests, RefusesNoneOrTwoValuesInOnePlace) {
  const struct {
    const char* what;
    Write write;
    const char* message;
  } rows[] = {
      {"root: none", [](JSONWriter&) {}, "no value was written"},
      {"root: two",
       [](JSONWriter& w) {
         w.null();
         w.null();
       },
       "more than one value was written here"},
      {"root: an array behind a number",
       [](JSONWriter& w) {
         w.integer(1);
         w.array([] {});
       },
       "more than one value was written here"},
      {"root: a number behind an object",
       [](JSONWriter& w) {
         w.object([] {});
         w.integer(1);
       },
       "more than one value was written here"},
      {"root: a text behind a string",
       [](JSONWriter& w) {
         w.string("a");
         w.text("1");
       },
       "more than one value was written here"},
      {"member: none", [](JSONWriter& w) { w.object([&] { w.member("a", [] {}); }); },
       "a: no value was written"},
      {"member: two",
       [](JSONWriter& w) {
         w.object([&] {
           w.member("a", [&] {
             w.boolean(true);
             w.boolean(true);
           });
         });
       },
       "a: more than one value was written here"},
      {"element: none", [](JSONWriter& w) { w.array([&] { w.element([] {}); }); },
       "[0]: no value was written"},
      {"element: two",
       [](JSONWriter& w) {
         w.array([&] {
           w.element(1);
           w.element([&] {
             w.floatingPoint(1.0);
             w.string("a");
           });
         });
       },
       "[1]: more than one value was written here"},
      {"value in an object, not in a member",
       [](JSONWriter& w) { w.object([&] { w.integer(1); }); },
       "a value was written outside of a member"},
      {"value in an array, not in an element",
       [](JSONWriter& w) { w.array([&] { w.object([] {}); }); },
       "a value was written outside of an element"},
      {"member without an object", [](JSONWriter& w) { w.member("a", 1); },
       "a member was written outside of an object"},
      {"member behind an object",
       [](JSONWriter& w) {
         w.object([] {});
         w.member("a", 1);
       },
       "a member was written outside of an object"},
      {"member in an array", [](JSONWriter& w) { w.array([&] { w.member("a", 1); }); },
       "a member was written outside of an object"},
      {"member in a member",
       [](JSONWriter& w) { w.object([&] { w.member("a", [&] { w.member("b", 1); }); }); },
       "a: a member was written outside of an object"},
      {"member behind the value of a member",
       [](JSONWriter& w) {
         w.object([&] {
           w.member("a", [&] {
             w.integer(1);
             w.member("b", 1);
           });
         });
       },
       "a: a member was written outside of an object"},
      {"element without an array", [](JSONWriter& w) { w.element(1); },
       "an element was written outside of an array"},
      {"element in an object", [](JSONWriter& w) { w.object([&] { w.element(1); }); },
       "an element was written outside of an array"},
      {"element in an element",
       [](JSONWriter& w) { w.array([&] { w.element([&] { w.element(1); }); }); },
       "[0]: an element was written outside of an array"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    for (const bool isSorted : {false, true})
      EXPECT_EQ(failure(row.write, formatted(false, isSorted)), row.message);
  }
}

TEST(JSONWriterTests, ACallThatThrowsLeavesNothingBehind) {
  const auto attempt = [](const std::function<void()>& write) {
    try {
      write();
      ADD_FAILURE() << "was to throw";
    } catch (const std::runtime_error&) {
    } catch (const EncodingError&) {
    }
  };
  const auto fail = [] { throw std::runtime_error("no"); };
  const Write write = [&](JSONWriter& w) {
    attempt([&] { w.object([&] { w.member("lost", fail); }); });
    attempt([&] { w.array([&] { w.element(fail); }); });
    attempt([&] { w.string("\xff"); });
    attempt([&] { w.floatingPoint(std::nan("")); });
    attempt([&] { w.text("{"); });
    w.object([&] {
      attempt([&] { w.member("lost", fail); });
      w.member("b", 1);
      attempt([&] { w.member("\xff", 1); });
      attempt([&] { w.member("lost", [] {}); });
      attempt([&] { w.null(); });
      w.member("a", [&] {
        EXPECT_EQ(description(w.codingPath()), "a");
        attempt([&] {
          w.array([&] {
            w.element(1);
            w.element([&] { w.object([&] { w.member("lost", fail); }); });
          });
        });
        EXPECT_EQ(description(w.codingPath()), "a");
        w.array([&] {
          w.element(1);
          attempt([&] { w.element(fail); });
          w.element(2);
        });
      });
      EXPECT_EQ(description(w.codingPath()), "");
    });
  };
  EXPECT_EQ(written(write), R"({"b":1,"a":[1,2]})");
  EXPECT_EQ(written(write, formatted(false, true)), R"({"a":[1,2],"b":1})");
}

TEST(JSONWriterTests, AStructThatFailsLeavesNothingBehind) {
  struct Point {
    int x = 0;
    double y = 0;
  };
  const Write write = [](JSONWriter& w) {
    w.array([&] {
      w.element([&] {
        EXPECT_THROW(w.encode(Point{1, std::nan("")}), EncodingError);
        EXPECT_EQ(description(w.codingPath()), "[0]");
        w.encode(Point{1, 2});
      });
    });
  };
  EXPECT_EQ(written(write), R"([{"x":1,"y":2.0}])");
  EXPECT_EQ(written(write, formatted(false, true)), R"([{"x":1,"y":2.0}])");
}

TEST(JSONWriterTests, KnowsWhereItIs) {
  std::vector<std::string> places;
  written([&](JSONWriter& w) {
    const auto note = [&] { places.push_back(description(w.codingPath())); };
    note();
    w.object([&] {
      note();
      w.member("list", [&] {
        note();
        w.array([&] {
          w.element(0);
          w.element([&] {
            note();
            w.null();
            note();
          });
          note();
        });
      });
      note();
    });
    note();
  });
  EXPECT_THAT(places, testing::ElementsAre("", "", "list", "list[1]", "list[1]", "list", "", ""));
}

TEST(JSONWriterTests, FailInvalidNamesThePlace) {
  EXPECT_EQ(failure([](JSONWriter& w) {
              w.object([&] { w.member("a", [&] { w.failInvalid("not today"); }); });
            }),
            "a: not today");
}

Write nestedArrays(std::size_t depth) {
  return [depth](JSONWriter& writer) {
    const auto next = [&writer](const auto& self, std::size_t left) -> void {
      writer.array([&] {
        if (left > 1) writer.element([&] { self(self, left - 1); });
      });
    };
    next(next, depth);
  };
}

TEST(JSONWriterTests, LimitsTheDepth) {
  EXPECT_EQ(written(nestedArrays(512)), std::string(512, '[') + std::string(512, ']'));
  EXPECT_THROW(written(nestedArrays(513)), EncodingError);

  JSONEncoder encoder;
  encoder.maximumDepth = 2;
  EXPECT_EQ(written(nestedArrays(2), encoder), "[[]]");
  EXPECT_EQ(failure(nestedArrays(3), encoder),
            "[0][0]: more than 2 objects and arrays stand inside each other");
  encoder.maximumDepth = 0;
  EXPECT_EQ(written([](JSONWriter& w) { w.integer(1); }, encoder), "1");
  EXPECT_EQ(failure([](JSONWriter& w) { w.object([] {}); }, encoder),
            "more than 0 objects and arrays stand inside each other");
}

TEST(JSONWriterTests, SiblingsDoNotCountAsDepth) {
  JSONEncoder encoder;
  encoder.maximumDepth = 2;
  const std::vector<std::vector<int>> lists = {{1}, {}, {2}};
  EXPECT_EQ(written([&](JSONWriter& w) { w.encode(lists); }, encoder), "[[1],[],[2]]");
}

TEST(JSONWriterTests, InsertsTextAsItIs) {
  const Write write = [](JSONWriter& w) {
    w.object([&] {
      w.member("a", [&] { w.text(R"({"z":1, "b":[ 1.50 ]})"); });
      w.member("b", 1);
    });
  };
  EXPECT_EQ(written(write), R"({"a":{"z":1, "b":[ 1.50 ]},"b":1})");
  EXPECT_EQ(written(write, formatted(true, true)), R"({
  "a": {"z":1, "b":[ 1.50 ]},
  "b": 1
})");
}

TEST(JSONWriterTests, RefusesTextThatIsNotOneValue) {
  for (const char* json :
       {"", " ", "{", "1 2", "1,", "nul", "\"a", "[1,]", "{\"a\":}", "\"\xff\"", "1],\"x\":[2"}) {
    SCOPED_TRACE(json);
    EXPECT_EQ(failure([&](JSONWriter& w) { w.array([&] { w.element([&] { w.text(json); }); }); }),
              "[0]: the text is not one JSON value");
  }
}

TEST(JSONWriterTests, InsertedTextCountsAsDepth) {
  JSONEncoder encoder;
  encoder.maximumDepth = 2;
  const auto inArray = [](std::string json) {
    return [json](JSONWriter& w) { w.array([&] { w.element([&] { w.text(json); }); }); };
  };
  EXPECT_EQ(written(inArray("[1]"), encoder), "[[1]]");
  EXPECT_EQ(failure(inArray("[[]]"), encoder), "[0]: the text is not one JSON value");
}

}  // namespace
}  // namespace tarn
