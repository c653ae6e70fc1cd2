#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/CodingPath.hpp>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {
namespace {

CodingKey key(const char* text) { return CodingKey(std::string(text)); }
CodingKey index(std::size_t value) { return CodingKey(value); }

TEST(CodingPathTests, DescriptionReadsLikeCode) {
  const struct {
    CodingPath path;
    const char* text;
  } rows[] = {
      {{}, ""},
      {{key("name")}, "name"},
      {{key("_id2")}, "_id2"},
      {{index(0)}, "[0]"},
      {{key("items"), index(3), key("price")}, "items[3].price"},
      {{index(1), index(20)}, "[1][20]"},
      {{index(1), key("a")}, "[1].a"},
      {{key("a"), key("b"), key("c")}, "a.b.c"},
      {{key("odd key")}, "[\"odd key\"]"},
      {{key("a"), key("b-c"), key("d")}, "a[\"b-c\"].d"},
      {{key("")}, "[\"\"]"},
      {{key("2nd")}, "[\"2nd\"]"},
      {{key("7")}, "[\"7\"]"},
      {{key("$ref")}, "[\"$ref\"]"},
      {{key("größe")}, "[\"größe\"]"},
      {{key("a\"b\\c")}, "[\"a\\\"b\\\\c\"]"},
      {{key("line\nbreak\x01")}, "[\"line\\nbreak\\u0001\"]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(description(row.path), row.text);
  }
}

TEST(CodingPathTests, LongKeysAreCutAfterAWholeCharacter) {
  EXPECT_EQ(description({CodingKey(std::string(63, ' ') + "x")}),
            "[\"" + std::string(63, ' ') + "x\"]");
  EXPECT_EQ(description({CodingKey(std::string(64, ' ') + "x")}),
            "[\"" + std::string(64, ' ') + "…\"]");
  for (std::size_t ahead = 60; ahead < 64; ++ahead) {
    SCOPED_TRACE(ahead);
    // The four bytes of the character stand across the limit but for the first row.
    const std::string start(ahead, ' ');
    EXPECT_EQ(description({CodingKey(start + "😀 and on")}),
              "[\"" + start + (ahead == 60 ? "😀" : "") + "…\"]");
  }
}

TEST(CodingPathTests, KeysTellIndicesFromDigits) {
  EXPECT_EQ(index(7).intValue(), 7u);
  EXPECT_EQ(index(7).stringValue(), "7");
  EXPECT_EQ(key("7").intValue(), std::nullopt);
  EXPECT_NE(index(7), key("7"));
  EXPECT_EQ(index(7), index(7));
}

TEST(CodingPathTests, OfAnErrorGoesFromTheRootInwards) {
  using Items = std::map<std::string, std::vector<std::map<std::string, int>>>;
  const auto pathOfError = [](std::string_view json) {
    const auto error = decodingError<Items>(json);
    return error ? error->codingPath() : CodingPath{key("decoded")};
  };
  EXPECT_EQ(pathOfError(R"({"items":[{},{"a":1},{},{"b":2,"price":"x"}]})"),
            (CodingPath{key("items"), index(3), key("price")}));
  EXPECT_EQ(pathOfError("1"), CodingPath());
}

}  // namespace
}  // namespace tarn
