#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/NlohmannCoding.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace foreign {

struct Intrusive {
  std::uint64_t id{};
  std::string name;
  NLOHMANN_DEFINE_TYPE_INTRUSIVE(Intrusive, id, name)
};

struct Outside {
  double price{};
  Intrusive inner;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Outside, price, inner)

/// No aggregate, and other keys than its members.
class Private {
 public:
  Private() = default;
  explicit Private(int value) : value_(value) {}
  int value() const { return value_; }
  friend void to_json(nlohmann::json& json, const Private& value) {
    json = nlohmann::json{{"hidden", value.value_}};
  }
  friend void from_json(const nlohmann::json& json, Private& value) {
    json.at("hidden").get_to(value.value_);
  }

 private:
  int value_ = 0;
};

enum class Mapped { first, second };
NLOHMANN_JSON_SERIALIZE_ENUM(Mapped, {{Mapped::first, "1st"}, {Mapped::second, "2nd"}})
enum class Plain { here, there };

struct OnlyWritten {};
void to_json(nlohmann::json& json, const OnlyWritten&) { json = "written"; }

/// Both libraries could: this one's own coding counts.
struct Both {
  static Both decode(tarn::JSONReader& reader) {
    reader.skip();
    return {};
  }
  void encode(tarn::JSONWriter& writer) const { writer.string("own"); }
};
void to_json(nlohmann::json& json, const Both&) { json = "nlohmann"; }

struct Failing {};
void to_json(nlohmann::json&, const Failing&) { throw std::out_of_range("of another class"); }
void from_json(const nlohmann::json&, Failing&) { throw std::out_of_range("of another class"); }

struct NotUTF8 {};
void to_json(nlohmann::json& json, const NotUTF8&) { json = "\xff"; }

/// Reaches for types of the standard library, which are not its own.
template <class T>
void to_json(nlohmann::json& json, const std::vector<T>&) {
  json = "taken";
}

/// Reflected, with members of all kinds.
struct Reflected {
  std::vector<Intrusive> list;
  std::optional<Private> maybe;
  Mapped mapped{};
  Plain plain{};
};

}  // namespace foreign

namespace tarn {
namespace {

static_assert(JSONReadable<foreign::Intrusive> && JSONWritable<foreign::Intrusive>);
static_assert(!JSONReadable<foreign::OnlyWritten> && JSONWritable<foreign::OnlyWritten>);

TEST(NlohmannCodingTests, TypesOfTheMacrosGoBothWays) {
  const auto value = decoded<foreign::Outside>(
      R"({"inner": {"name": "x", "id": 18446744073709551615, "more": 1}, "price": 1.5})");
  EXPECT_EQ(value.price, 1.5);
  EXPECT_EQ(value.inner.id, 18446744073709551615U);
  EXPECT_EQ(encoded(value), R"({"inner":{"id":18446744073709551615,"name":"x"},"price":1.5})");
}

TEST(NlohmannCodingTests, FunctionsBesideATypeAreFound) {
  EXPECT_EQ(decoded<foreign::Private>(R"({"hidden": 4})").value(), 4);
  EXPECT_EQ(encoded(foreign::Private(4)), R"({"hidden":4})");
  EXPECT_EQ(encoded(foreign::OnlyWritten()), R"("written")");
}

TEST(NlohmannCodingTests, TheyWinOverReflectionAndStrategiesDoNotReachIn) {
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = [](std::string_view key) { return '_' + std::string(key); };
  EXPECT_EQ(
      encoder.encode(foreign::Reflected{{{1, "x"}}, foreign::Private(2), {}, {}}).view(),
      R"({"_list":[{"id":1,"name":"x"}],"_maybe":{"hidden":2},"_mapped":"1st","_plain":"here"})");
}

TEST(NlohmannCodingTests, OtherTypesAreReadAndWrittenAsBefore) {
  const auto value = decoded<foreign::Reflected>(
      R"({"list": [{"id": 1, "name": "x"}], "mapped": "2nd", "plain": "there"})");
  EXPECT_EQ(value.list.at(0).name, "x");
  EXPECT_EQ(value.mapped, foreign::Mapped::second);
  EXPECT_EQ(value.plain, foreign::Plain::there);
  EXPECT_FALSE(value.maybe);
  EXPECT_EQ(encoded(value), R"({"list":[{"id":1,"name":"x"}],"mapped":"2nd","plain":"there"})");
  EXPECT_EQ(encoded(foreign::Both()), R"("own")");
}

TEST(NlohmannCodingTests, ItsExceptionsBecomeErrorsWithThePath) {
  EXPECT_EQ(decodingFailure<foreign::Reflected>(R"({"list": [{"id": 1, "name": "x"}, {"id": 2}]})"),
            "dataCorrupted: list[1]: [json.exception.out_of_range.403] key 'name' not found");
  EXPECT_EQ(decodingFailure<foreign::Intrusive>(R"({"id": "x", "name": "x"})"),
            "dataCorrupted: [json.exception.type_error.302] type must be number, but is string");
  // JSON, but beyond the range of the numbers there.
  const auto overflow = decodingError<foreign::Intrusive>(R"({"id": 1e999, "name": "x"})");
  ASSERT_TRUE(overflow);
  EXPECT_EQ(overflow->kind(), DecodingError::Case::dataCorrupted);
  EXPECT_NE(overflow->reason().find("number overflow"), std::string::npos) << overflow->reason();
  EXPECT_EQ(encodingFailure(std::vector{foreign::NotUTF8()}),
            "[0]: [json.exception.type_error.316] invalid UTF-8 byte at index 0: 0xFF");
}

TEST(NlohmannCodingTests, TheTextIsCheckedByThisLibrary) {
  EXPECT_EQ(decodingFailure<foreign::Intrusive>(R"({"id": 1, "name": x})"),
            R"(dataCorrupted: name: expected a value, found "x" (line 1, column 19))");
  JSONDecoder decoder;
  decoder.maximumDepth = 2;
  EXPECT_EQ(decodingFailure<foreign::Intrusive>(R"({"more": [[1]]})", decoder),
            "dataCorrupted: more[0]: more than 2 objects and arrays are inside each other");
}

TEST(NlohmannCodingTests, OtherExceptionsPass) {
  EXPECT_THROW(decoded<foreign::Failing>("1"), std::out_of_range);
  EXPECT_THROW(encoded(foreign::Failing()), std::out_of_range);
}

TEST(NlohmannCodingTests, AnyValueOfItsOwnGoesBothWays) {
  struct Holder {
    nlohmann::json any;
  };
  const auto value = decoded<Holder>(R"({"any": {"b": [1, null], "a": -9223372036854775808}})");
  EXPECT_EQ(value.any["b"][0], 1);
  EXPECT_EQ(encoded(value), R"({"any":{"a":-9223372036854775808,"b":[1,null]}})");
}

}  // namespace
}  // namespace tarn
