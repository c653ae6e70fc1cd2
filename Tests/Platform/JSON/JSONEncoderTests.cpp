#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

struct Inner {
  int oneTwo = 0;
  std::optional<std::string> maybeText;
};
struct Outer {
  std::string firstName;
  Inner myURLProperty;
  std::vector<Inner> allOfThem;
  std::map<std::string, int> byName;
};

template <class T>
std::string encoded(const T& value, const JSONEncoder& encoder = {}) {
  return std::string(encoder.encode(value).view());
}

template <class T>
std::string failure(const T& value, const JSONEncoder& encoder = {}) {
  try {
    return "encoded: " + encoded(value, encoder);
  } catch (const EncodingError& error) {
    return error.message();
  }
}

const Outer outer{"Ada", {1, {}}, {{2, "x"}, {3, {}}}, {{"someKey", 4}}};

TEST(JSONEncoderTests, WritesMembersInTheirOrder) {
  EXPECT_EQ(encoded(outer),
            R"({"firstName":"Ada","myURLProperty":{"oneTwo":1},)"
            R"("allOfThem":[{"oneTwo":2,"maybeText":"x"},{"oneTwo":3}],"byName":{"someKey":4}})");
}

TEST(JSONEncoderTests, SortsAndIndentsMembers) {
  JSONEncoder encoder;
  encoder.outputFormatting = {.sortedKeys = true, .prettyPrinted = true};
  EXPECT_EQ(encoded(Inner{2, "x"}, encoder), "{\n  \"maybeText\": \"x\",\n  \"oneTwo\": 2\n}");
}

TEST(JSONEncoderTests, ConvertsTheKeysOfStructsButNotOfMaps) {
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
  EXPECT_EQ(encoded(outer, encoder),
            R"({"first_name":"Ada","my_url_property":{"one_two":1},)"
            R"("all_of_them":[{"one_two":2,"maybe_text":"x"},{"one_two":3}],)"
            R"("by_name":{"someKey":4}})");
}

TEST(JSONEncoderTests, ConvertedKeysAreEscapedAndSorted) {
  JSONEncoder encoder;
  encoder.outputFormatting.sortedKeys = true;
  encoder.keyEncodingStrategy = [](std::string_view key) {
    return key == "oneTwo" ? std::string("z\"") : std::string("a/");
  };
  EXPECT_EQ(encoded(Inner{2, "x"}, encoder), R"({"a/":"x","z\"":2})");
}

TEST(JSONEncoderTests, AKeyStrategysErrorPassesThrough) {
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = [](std::string_view) -> std::string {
    throw std::runtime_error("no key");
  };
  EXPECT_THROW(encoder.encode(Inner{}), std::runtime_error);
}

TEST(JSONEncoderTests, ErrorsNameTheMember) {
  struct Point {
    double x = 0;
    std::vector<double> more;
  };
  EXPECT_EQ(failure(Point{0, {1, std::numeric_limits<double>::infinity()}}),
            "more[1]: the number is not finite");
  EXPECT_EQ(failure(std::map<std::string, std::string>{{"odd key", "\xff"}}),
            "[\"odd key\"]: the text is not UTF-8");
}

TEST(JSONEncoderTests, AValueThatContainsItselfTooDeeplyIsRefused) {
  struct Tree {
    std::vector<Tree> children;
  };
  Tree root;
  // 2 levels each: the object and its array.
  for (int i = 0; i < 256; ++i) {
    Tree next;
    next.children.push_back(std::move(root));
    root = std::move(next);
  }
  EXPECT_THROW(encoded(root), EncodingError);
  JSONEncoder encoder;
  encoder.maximumDepth = 514;
  // Each of the 257 is {"children":[]}.
  EXPECT_EQ(encoded(root, encoder).size(), 257u * 15);
}

TEST(JSONEncoderTests, ConvertsToSnakeCase) {
  const struct {
    const char* name;
    const char* key;
  } rows[] = {
      {"", ""},
      {"name", "name"},
      {"firstName", "first_name"},
      {"oneTwoThree", "one_two_three"},
      {"myURLProperty", "my_url_property"},
      {"URL", "url"},
      {"URLPath", "url_path"},
      {"pathOfURL", "path_of_url"},
      {"aB", "a_b"},
      {"aBC", "a_bc"},
      {"aBCd", "a_b_cd"},
      {"version2Beta", "version2_beta"},
      {"isHTTP2Ready", "is_http2_ready"},
      {"_firstName_", "_first_name_"},
      {"first_name", "first_name"},
      {"first_Name", "first_name"},
      {"First", "first"},
      {"___", "___"},
      {"größeÄnderung", "größeÄnderung"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(JSONEncoder::convertToSnakeCase(row.name), row.key);
  }
}

TEST(JSONEncoderTests, ConvertsFromSnakeCase) {
  const struct {
    const char* key;
    const char* name;
  } rows[] = {
      {"", ""},
      {"name", "name"},
      {"firstName", "firstName"},
      {"URL", "URL"},
      {"first_name", "firstName"},
      {"_first_name_", "_firstName_"},
      {"__first_name__", "__firstName__"},
      {"FIRST_NAME", "firstName"},
      {"First_name", "firstName"},
      {"first__name", "firstName"},
      {"my_URL_property", "myUrlProperty"},
      {"_URL_", "_URL_"},
      {"a_1_b", "a1B"},
      {"_", "_"},
      {"___", "___"},
      {"größe_änderung", "größeänderung"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key);
    EXPECT_EQ(JSONDecoder::convertFromSnakeCase(row.key), row.name);
  }
}

TEST(JSONEncoderTests, AnEncoderInACodingWritesADocumentOfItsOwn) {
  struct Wrapping {
    void encode(JSONWriter& writer) const {
      writer.array([&] {
        writer.element([&] { writer.text(JSONEncoder().encode(Inner{1, {}}).view()); });
        writer.element(encoded(Inner{2, {}}));
      });
    }
  };
  EXPECT_EQ(encoded(Wrapping{}), R"([{"oneTwo":1},"{\"oneTwo\":2}"])");
}

TEST(JSONEncoderTests, EncodesOnSeveralThreadsAtOnce) {
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
  encoder.outputFormatting.sortedKeys = true;
  const std::string expected = encoded(outer, encoder);
  std::vector<int> differing(4);
  std::vector<std::thread> threads;
  for (int& count : differing)
    threads.emplace_back([&encoder, &expected, &count] {
      for (int i = 0; i < 200; ++i) count += encoded(outer, encoder) != expected;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(differing, std::vector<int>(4));
}

TEST(JSONEncoderTests, WritesLargeDocumentsWhole) {
  std::vector<Inner> values;
  std::string expected = "[";
  for (int i = 0; i < 20'000; ++i) {
    values.push_back({i, std::string(static_cast<std::size_t>(i % 50), 'x')});
    expected += "{\"oneTwo\":" + std::to_string(i) + ",\"maybeText\":\"" +
                std::string(static_cast<std::size_t>(i % 50), 'x') + "\"},";
  }
  expected.back() = ']';
  EXPECT_EQ(encoded(values), expected);
}

}  // namespace
}  // namespace tarn
