#include <Platform/JSON/Coding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace shop {

struct Size {
  int width{};
  int height{};
  friend bool operator==(const Size&, const Size&) = default;
};

struct Node {
  std::string name;
  std::vector<Node> children;
  friend bool operator==(const Node&, const Node&) = default;
};

/// A type of others.
class Money {
 public:
  explicit Money(std::int64_t cents) : cents_(cents) {}
  std::int64_t cents() const { return cents_; }

 private:
  std::int64_t cents_;
};

struct Invoice {
  std::optional<Money> total;
};

}  // namespace shop

template <>
struct tarn::JSONCoding<shop::Money> {
  static shop::Money decode(JSONReader& reader) {
    const std::string text = reader.string();
    if (text.size() < 4 || text[text.size() - 3] != '.') reader.failCorrupted("this is no money");
    return shop::Money(std::stoll(text.substr(0, text.size() - 3)) * 100 +
                       std::stoll(text.substr(text.size() - 2)));
  }
  static void encode(const shop::Money& money, JSONWriter& writer) {
    writer.string(std::to_string(money.cents() / 100) + '.' +
                  std::to_string(100 + money.cents() % 100).substr(1));
  }
};

namespace tarn {
namespace {

using ::testing::ElementsAre;

struct Everything {
  bool flag{};
  std::int8_t small{};
  std::uint8_t byte{};
  std::int16_t int16{};
  std::uint16_t uint16{};
  std::int32_t int32{};
  std::uint32_t uint32{};
  std::int64_t int64{};
  std::uint64_t uint64{};
  float single{};
  double number{};
  std::string text;
  std::optional<int> maybe;
  std::vector<int> list;
  std::map<std::string, int> map;
  shop::Size size;
  friend bool operator==(const Everything&, const Everything&) = default;
};

TEST(JSONReflectionTests, MembersOfEveryKindGoBothWaysInTheOrderOfTheirDeclaration) {
  const Everything value{true,
                         -8,
                         200,
                         -1600,
                         60000,
                         -100000,
                         4000000000,
                         9007199254740993,
                         18446744073709551615U,
                         0.1F,
                         12.5,
                         "t\"ext",
                         4,
                         {1, 2},
                         {{"a", 1}},
                         {3, 4}};
  const std::string json =
      R"({"flag":true,"small":-8,"byte":200,"int16":-1600,"uint16":60000,"int32":-100000,)"
      R"("uint32":4000000000,"int64":9007199254740993,"uint64":18446744073709551615,"single":0.1,)"
      R"("number":12.5,"text":"t\"ext","maybe":4,"list":[1,2],"map":{"a":1},)"
      R"("size":{"width":3,"height":4}})";
  EXPECT_EQ(encoded(value), json);
  EXPECT_EQ(decoded<Everything>(json), value);
}

TEST(JSONReflectionTests, MembersComeInAnyOrder) {
  EXPECT_EQ(decoded<shop::Size>(R"({"height": 2, "width": 1})"), (shop::Size{1, 2}));
}

template <class T>
struct Holder {
  T value{};
};

template <class T>
void expectBounds(const std::string& below, const std::string& least, const std::string& greatest,
                  const std::string& above) {
  SCOPED_TRACE(greatest);
  const auto object = [](const std::string& number) { return R"({"value":)" + number + '}'; };
  const auto failure = [&](const std::string& number) {
    return "dataCorrupted: value: expected a whole number from " + least + " to " + greatest +
           ", found " + number;
  };
  EXPECT_EQ(decoded<Holder<T>>(object(least)).value, std::numeric_limits<T>::min());
  EXPECT_EQ(decoded<Holder<T>>(object(greatest)).value, std::numeric_limits<T>::max());
  EXPECT_EQ(encoded(Holder<T>{std::numeric_limits<T>::min()}), object(least));
  EXPECT_EQ(encoded(Holder<T>{std::numeric_limits<T>::max()}), object(greatest));
  EXPECT_EQ(decodingFailure<Holder<T>>(object(below)), failure(below));
  EXPECT_EQ(decodingFailure<Holder<T>>(object(above)), failure(above));
}

TEST(JSONReflectionTests, IntegersOfEveryWidthReachToTheirBoundsAndNoFurther) {
  expectBounds<std::int8_t>("-129", "-128", "127", "128");
  expectBounds<std::uint8_t>("-1", "0", "255", "256");
  expectBounds<std::int16_t>("-32769", "-32768", "32767", "32768");
  expectBounds<std::uint16_t>("-1", "0", "65535", "65536");
  expectBounds<std::int32_t>("-2147483649", "-2147483648", "2147483647", "2147483648");
  expectBounds<std::uint32_t>("-1", "0", "4294967295", "4294967296");
  expectBounds<std::int64_t>("-9223372036854775809", "-9223372036854775808", "9223372036854775807",
                             "9223372036854775808");
  expectBounds<long long>("-9223372036854775809", "-9223372036854775808", "9223372036854775807",
                          "9223372036854775808");
  expectBounds<std::uint64_t>("-1", "0", "18446744073709551615", "18446744073709551616");
}

TEST(JSONReflectionTests, WholeNumbersMayHaveAFractionOrExponent) {
  const std::pair<const char*, std::int64_t> rows[] = {
      {"1e3", 1000},
      {"12.0", 12},
      {"-1.50e1", -15},
      {"0.0", 0},
      {"-0", 0},
      {"1200e-2", 12},
      {"9.223372036854775807e18", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808.0", std::numeric_limits<std::int64_t>::min()},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decoded<std::int64_t>(json), expected);
  }
}

TEST(JSONReflectionTests, FractionsAreNoIntegers) {
  for (const std::string number : {"0.5", "1e-1", "12.01", "1e19", "-1e400", "1e99999999999999"}) {
    SCOPED_TRACE(number);
    EXPECT_EQ(decodingFailure<std::int64_t>(number),
              "dataCorrupted: expected a whole number from -9223372036854775808 to "
              "9223372036854775807, found " +
                  number);
  }
}

TEST(JSONReflectionTests, FloatingPointNumbersStayInTheirRange) {
  EXPECT_EQ(decoded<double>("1.7976931348623157e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(decoded<float>("3.4028235e38"), std::numeric_limits<float>::max());
  EXPECT_EQ(decoded<double>("3"), 3.0);
  EXPECT_EQ(decoded<double>("5e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(decoded<double>("1e-400"), 0.0);
  EXPECT_EQ(decodingFailure<double>("1e309"), "dataCorrupted: the number 1e309 is out of range");
  EXPECT_EQ(decodingFailure<float>("1e39"), "dataCorrupted: the number 1e39 is out of range");
  EXPECT_EQ(decodingFailure<Holder<float>>(R"({"value": -1e39})"),
            "dataCorrupted: value: the number -1e39 is out of range");
}

TEST(JSONReflectionTests, NumbersThatAreNotFiniteAreNotWritten) {
  EXPECT_EQ(encodingFailure(Holder<double>{std::nan("")}), "value: the number is not finite");
  EXPECT_EQ(encodingFailure(Holder<float>{std::numeric_limits<float>::infinity()}),
            "value: the number is not finite");
}

TEST(JSONReflectionTests, OptionalMembersMayBeAbsentOrNull) {
  using Optional = Holder<std::optional<int>>;
  EXPECT_EQ(decoded<Optional>("{}").value, std::nullopt);
  EXPECT_EQ(decoded<Optional>(R"({"value": null})").value, std::nullopt);
  EXPECT_EQ(decoded<Optional>(R"({"value": 4})").value, 4);
  EXPECT_EQ(encoded(Optional{}), "{}");
  EXPECT_EQ(encoded(Optional{4}), R"({"value":4})");
  EXPECT_EQ(decodingFailure<Optional>(R"({"value": "4"})"),
            R"(typeMismatch: value: expected a number, found the string "4")");
}

TEST(JSONReflectionTests, OfNestedOptionalsTheOuterIsTheAbsentOne) {
  using Nested = Holder<std::optional<std::optional<int>>>;
  EXPECT_EQ(decoded<Nested>("{}").value, std::nullopt);
  EXPECT_EQ(decoded<Nested>(R"({"value": 4})").value, std::optional(std::optional(4)));
  EXPECT_EQ(encoded(Nested{std::optional(std::optional<int>())}), R"({"value":null})");
  EXPECT_EQ(encoded(Nested{}), "{}");
}

struct Renamed {
  std::string identifier;
  int class_{};
  int same{};
  static constexpr JSONKeys codingKeys = {{"identifier", "_id"}, {"class_", "class"}};
};

TEST(JSONReflectionTests, MembersCanHaveOtherKeys) {
  const auto value = decoded<Renamed>(R"({"_id": "x", "class": 2, "same": 3})");
  EXPECT_EQ(value.identifier, "x");
  EXPECT_EQ(value.class_, 2);
  EXPECT_EQ(value.same, 3);
  EXPECT_EQ(encoded(value), R"({"_id":"x","class":2,"same":3})");
  EXPECT_EQ(decodingFailure<Renamed>(R"({"identifier": "x", "class": 2, "same": 3})"),
            R"(keyNotFound: the key "_id" is missing)");
}

struct Page {
  int number = 1;
  int size = 20;
  std::string filter;
  static constexpr JSONMembers defaultedMembers = {"number", "size"};
};

TEST(JSONReflectionTests, DefaultedMembersKeepTheirInitialValueWhereTheKeyIsMissing) {
  const auto value = decoded<Page>(R"({"size": 5, "filter": "a"})");
  EXPECT_EQ(value.number, 1);
  EXPECT_EQ(value.size, 5);
  EXPECT_EQ(decodingFailure<Page>("{}"), R"(keyNotFound: the key "filter" is missing)");
  EXPECT_EQ(decodingFailure<Page>(R"({"number": null, "filter": "a"})"),
            "valueNotFound: number: expected a number, found null");
  EXPECT_EQ(encoded(Page{}), R"({"number":1,"size":20,"filter":""})");
}

struct Preset {
  std::optional<int> reset = 1;
  std::optional<int> kept = 2;
  static constexpr JSONMembers defaultedMembers = {"kept"};
};

TEST(JSONReflectionTests, AbsentOptionalMembersAreEmptyUnlessDefaulted) {
  const auto value = decoded<Preset>("{}");
  EXPECT_EQ(value.reset, std::nullopt);
  EXPECT_EQ(value.kept, 2);
  EXPECT_EQ(decoded<Preset>(R"({"kept": null})").kept, std::nullopt);
  EXPECT_EQ(decoded<Preset>(R"({"reset": 3})").reset, 3);
}

struct Query {
  Page page = {5, 50, "outer"};
  std::array<Page, 2> pages = {Page{6, 60, ""}, Page{7, 70, ""}};
  std::optional<Page> maybe = Page{8, 80, ""};
};

TEST(JSONReflectionTests, DefaultsAreThoseOfTheStructItselfNotOfWhatHoldsIt) {
  const auto value = decoded<Query>(
      R"({"page": {"filter": "a"}, "pages": [{"filter": "b"}, {"size": 3, "filter": "c"}],)"
      R"( "maybe": {"filter": "d"}})");
  EXPECT_EQ(value.page.number, 1);
  EXPECT_EQ(value.page.size, 20);
  EXPECT_EQ(value.pages[0].number, 1);
  EXPECT_EQ(value.pages[1].number, 1);
  EXPECT_EQ(value.pages[1].size, 3);
  ASSERT_TRUE(value.maybe);
  EXPECT_EQ(value.maybe->number, 1);
}

TEST(JSONReflectionTests, MembersWithAnInitialiserAreStillRequired) {
  struct Local {
    int value = 3;
  };
  EXPECT_EQ(decodingFailure<Local>("{}"), R"(keyNotFound: the key "value" is missing)");
}

struct Person {
  std::string firstName;
  std::map<std::string, int> phoneNumbers;
  std::optional<Holder<int>> bestFriend;
};

TEST(JSONReflectionTests, KeyStrategiesNameMembersAndErrorsTheKeysOfTheDocument) {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  const auto value = decoder.decode<Person>(
      R"({"first_name": "Ada", "phone_numbers": {"at_home": 1}, "best_friend": {"value": 2}})");
  EXPECT_EQ(value.firstName, "Ada");
  EXPECT_EQ(value.phoneNumbers, (std::map<std::string, int>{{"at_home", 1}}));
  EXPECT_EQ(
      decodingFailure<Person>(
          R"({"first_name": "", "phone_numbers": {}, "best_friend": {"value": "x"}})", decoder),
      R"(typeMismatch: best_friend.value: expected a number, found the string "x")");
  EXPECT_EQ(decodingFailure<Person>(R"({"first_name": 3})", decoder),
            "typeMismatch: first_name: expected a string, found the number 3");
}

TEST(JSONReflectionTests, KeyStrategiesNameTheKeysThatAreWrittenButThoseOfMaps) {
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
  EXPECT_EQ(encoder.encode(Person{"Ada", {{"atHome", 1}}, Holder<int>{2}}).view(),
            R"({"first_name":"Ada","phone_numbers":{"atHome":1},"best_friend":{"value":2}})");
}

struct GivenKeys {
  int userName{};
  int otherName{};
  static constexpr JSONKeys codingKeys = {{"userName", "user_Name"}};
};

TEST(JSONReflectionTests, KeyStrategiesLeaveGivenKeysAlone) {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  const auto value = decoder.decode<GivenKeys>(R"({"user_Name": 1, "other_name": 2})");
  EXPECT_EQ(value.userName, 1);
  EXPECT_EQ(value.otherName, 2);
  EXPECT_EQ(decodingFailure<GivenKeys>(R"({"user_name": 1, "other_name": 2})", decoder),
            R"(keyNotFound: the key "user_Name" is missing)");
  JSONEncoder encoder;
  encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
  EXPECT_EQ(encoder.encode(value).view(), R"({"user_Name":1,"other_name":2})");
}

struct Measure {
  using value_type = double;
  value_type value{};
};

TEST(JSONReflectionTests, AValueTypeMakesNoContainer) {
  EXPECT_EQ(decoded<Measure>(R"({"value": 1.5})").value, 1.5);
  EXPECT_EQ(encoded(Measure{1.5}), R"({"value":1.5})");
}

struct Constant {
  const int value = 3;
  std::optional<const char*> text = "x";
};

TEST(JSONReflectionTests, ConstMembersAreWritten) {
  EXPECT_EQ(encoded(Constant()), R"({"value":3,"text":"x"})");
}

struct Filled {
  std::optional<int> a;
  std::optional<int> b;
};

TEST(JSONReflectionTests, OfAKeyThatComesTwiceTheLastCounts) {
  EXPECT_EQ(decoded<Holder<int>>(R"({"value": 1, "value": 2})").value, 2);
  const auto inner = decoded<Holder<Filled>>(R"({"value": {"a": 1}, "value": {"b": 2}})").value;
  EXPECT_EQ(inner.a, std::nullopt);
  EXPECT_EQ(inner.b, 2);
  EXPECT_EQ(decoded<Holder<std::optional<int>>>(R"({"value": 1, "value": null})").value,
            std::nullopt);
  EXPECT_THAT(decoded<Holder<std::vector<int>>>(R"({"value": [1, 2], "value": [3]})").value,
              ElementsAre(3));
  using Map = std::map<std::string, int>;
  EXPECT_EQ(decoded<Holder<Map>>(R"({"value": {"a": 1}, "value": {"b": 2}})").value,
            (Map{{"b", 2}}));
  EXPECT_EQ(decoded<Map>(R"({"a": 1, "b": 2, "a": 3})"), (Map{{"a", 3}, {"b", 2}}));
  // An optional struct, the members of which would outlive a reset.
  const auto optional =
      decoded<Holder<std::optional<Filled>>>(R"({"value": {"a": 1}, "value": {"b": 2}})").value;
  ASSERT_TRUE(optional);
  EXPECT_EQ(optional->a, std::nullopt);
  // Also where the first has a fault.
  EXPECT_EQ(decodingFailure<Holder<int>>(R"({"value": "x", "value": 2})"),
            R"(typeMismatch: value: expected a number, found the string "x")");
}

TEST(JSONReflectionTests, UnknownKeysAreIgnored) {
  EXPECT_EQ(
      decoded<Holder<int>>(R"({"x": {"deep": [1, {"value": 9}]}, "value": 4, "y": null})").value,
      4);
  EXPECT_EQ(decoded<Holder<int>>(R"({"Value": 1, "value": 4, "value ": 3})").value, 4);
}

TEST(JSONReflectionTests, MalformedValuesOfUnknownKeysAreNotIgnored) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"x": tru, "value": 4})",
       R"(dataCorrupted: x: expected a value, found "tru" (line 1, column 7))"},
      {R"({"x": [1 2], "value": 4})",
       R"(dataCorrupted: x[0]: expected "," or "]", found "2" (line 1, column 10))"},
      {R"({"x": {"y": 01}, "value": 4})",
       R"(dataCorrupted: x.y: expected a number, found "01" (line 1, column 13))"},
      {R"({"value": 4, "x": "\ud800"})",
       R"(dataCorrupted: x: the string "\ud800" has a malformed escape sequence)"},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decodingFailure<Holder<int>>(json), expected);
  }
}

TEST(JSONReflectionTests, KeysAreComparedWithoutTheirEscapes) {
  EXPECT_EQ(decoded<Holder<int>>(R"({"v\u0061lue": 4})").value, 4);
}

struct SimilarKeys {
  std::optional<int> a;
  std::optional<int> ab;
  std::optional<int> quoted;
  static constexpr JSONKeys codingKeys = {{"quoted", "a\"b"}};
  friend bool operator==(const SimilarKeys&, const SimilarKeys&) = default;
};

TEST(JSONReflectionTests, KeysAreWholeHoweverTheyAreSetAndWhereverTheyCome) {
  const struct {
    std::string_view json;
    SimilarKeys value;
  } rows[] = {
      {R"({"a":1,"ab":2,"a\"b":3})", {1, 2, 3}},
      {"{ \"a\" :\n1 , \"ab\"\t: 2,\r\n\"a\\\"b\" : 3 }", {1, 2, 3}},
      {R"({"ab":2})", {{}, 2, {}}},
      {R"({"ab":2,"a":1})", {1, 2, {}}},
      {R"({"a":1,"a":2,"ab":3,"ab":4})", {2, 4, {}}},
      {R"({"a\\":1,"":2,"abc":3,"A":4})", {}},
  };
  for (const auto& [json, value] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decoded<SimilarKeys>(json), value);
  }
}

struct LongKeys {
  std::optional<int> x;
  std::optional<int> four;
  std::optional<int> fifth;
  std::optional<int> thirteenChar_;
  std::optional<int> fourteenCharac;
  std::optional<int> twentyOneCharactersLo;
  std::optional<int> asLongAsTwentyNineCharactersA;
  static constexpr JSONKeys codingKeys = {{"x", ""}};
  friend bool operator==(const LongKeys&, const LongKeys&) = default;
};

TEST(JSONReflectionTests, EveryCharacterOfAKeyCounts) {
  const LongKeys all{1, 2, 3, 4, 5, 6, 7};
  const std::string json(JSONEncoder().encode(all).view());
  EXPECT_EQ(decoded<LongKeys>(json), all);
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (std::isalpha(static_cast<unsigned char>(json[i])) == 0 && json[i] != '_') continue;
    auto other = json;
    other[i] = '-';
    SCOPED_TRACE(other);
    const auto value = decoded<LongKeys>(other);
    const std::optional<int> members[] = {value.x,
                                          value.four,
                                          value.fifth,
                                          value.thirteenChar_,
                                          value.fourteenCharac,
                                          value.twentyOneCharactersLo,
                                          value.asLongAsTwentyNineCharactersA};
    EXPECT_EQ(std::ranges::count(members, std::optional<int>()), 1);
  }
}

TEST(JSONReflectionTests, ExpectedKeysAreNoLessChecked) {
  const struct {
    std::string_view json;
    std::string_view expected;
  } rows[] = {
      {R"({"a":1,"ab":2,"a"b":"})",
       R"(dataCorrupted: a: expected ":", found "b\":\"" (line 1, column 18))"},
      {R"({"a")", R"(dataCorrupted: expected ":", found the end of the text (line 1, column 5))"},
      {R"({"a":)",
       R"(dataCorrupted: a: expected a value, found the end of the text (line 1, column 6))"},
      {R"({"a":1 "ab":2})",
       R"(dataCorrupted: a: expected "," or "}", found the string "ab" (line 1, column 8))"},
      {R"({"a":1,"ab":true})", "typeMismatch: ab: expected a number, found true"},
      {R"({,"a":1})", R"(dataCorrupted: expected a key, found "," (line 1, column 2))"},
      {R"({"a":1,})", R"(dataCorrupted: a: expected a key, found "}" (line 1, column 8))"},
      {R"({"a":1{)", R"(dataCorrupted: a: expected "," or "}", found "{" (line 1, column 7))"},
      {R"({"a",1})", R"(dataCorrupted: expected ":", found "," (line 1, column 5))"},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decodingFailure<SimilarKeys>(json), expected);
  }
}

struct SnakeMember {
  std::optional<int> first_name;
};

TEST(JSONReflectionTests, KeyStrategiesHideMembersOfAnotherStyle) {
  JSONDecoder decoder;
  EXPECT_EQ(decoder.decode<SnakeMember>(R"({"first_name":1})").first_name, 1);
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  EXPECT_EQ(decoder.decode<SnakeMember>(R"({"first_name":1})").first_name, std::nullopt);
}

struct Initialised {
  std::vector<std::string> list = {"a", "b"};
  std::map<std::string, int> map = {{"a", 1}};
  shop::Size size{1, 2};
  int number = 3;
  friend bool operator==(const Initialised&, const Initialised&) = default;
};
struct WithArrays {
  std::array<int, 3> numbers{};
  shop::Size size;
  std::array<shop::Size, 2> sizes{};
  std::array<int, 1> one{};
  int last{};
};

TEST(JSONReflectionTests, MembersWithListsOfInitialValuesAreReflected) {
  const std::string json =
      R"({"list":["a","b"],"map":{"a":1},"size":{"width":1,"height":2},"number":3})";
  EXPECT_EQ(encoded(Initialised()), json);
  EXPECT_EQ(
      decoded<Initialised>(R"({"list":[],"map":{},"size":{"width":3,"height":4},"number":5})"),
      (Initialised{{}, {}, {3, 4}, 5}));
}

TEST(JSONReflectionTests, ArraysAndStructsInAStructAreOneMemberEach) {
  const std::string json =
      R"({"numbers":[1,2,3],"size":{"width":4,"height":5},"sizes":[{"width":6,"height":7},)"
      R"({"width":8,"height":9}],"one":[10],"last":11})";
  EXPECT_EQ(encoded(decoded<WithArrays>(json)), json);
}

struct Empty {};

TEST(JSONReflectionTests, AnEmptyStructIsAnEmptyObject) {
  EXPECT_EQ(encoded(Empty()), "{}");
  decoded<Empty>(R"({"any": 1})");
  EXPECT_EQ(decodingFailure<Empty>("[]"), "typeMismatch: expected an object, found an array");
}

struct Sixty {
  int m00{}, m01{}, m02{}, m03{}, m04{}, m05{}, m06{}, m07{}, m08{}, m09{};
  int m10{}, m11{}, m12{}, m13{}, m14{}, m15{}, m16{}, m17{}, m18{}, m19{};
  int m20{}, m21{}, m22{}, m23{}, m24{}, m25{}, m26{}, m27{}, m28{}, m29{};
  int m30{}, m31{}, m32{}, m33{}, m34{}, m35{}, m36{}, m37{}, m38{}, m39{};
  int m40{}, m41{}, m42{}, m43{}, m44{}, m45{}, m46{}, m47{}, m48{}, m49{};
  int m50{}, m51{}, m52{}, m53{}, m54{}, m55{}, m56{}, m57{}, m58{}, m59{};
};

TEST(JSONReflectionTests, AStructMayHaveManyMembers) {
  std::string json;
  for (int i = 0; i < 60; ++i) {
    const auto number = std::to_string(i);
    json += (i ? ",\"m" : "{\"m") + std::string(i < 10 ? "0" : "") + number + "\":" + number;
  }
  json += '}';
  const auto value = decoded<Sixty>(json);
  EXPECT_EQ(value.m00, 0);
  EXPECT_EQ(value.m31, 31);
  EXPECT_EQ(value.m59, 59);
  EXPECT_EQ(encoded(value), json);
}

TEST(JSONReflectionTests, LocalStructsAreReflected) {
  struct Local {
    int a{};
    std::string b;
  };
  const auto value = decoded<Local>(R"({"a": 1, "b": "x"})");
  EXPECT_EQ(value.a, 1);
  EXPECT_EQ(encoded(value), R"({"a":1,"b":"x"})");
}

TEST(JSONReflectionTests, StructsMayHoldThemselvesInAVector) {
  const shop::Node tree{"root", {{"leaf", {}}, {"inner", {{"deep", {}}}}}};
  const std::string json = R"({"name":"root","children":[{"name":"leaf","children":[]},)"
                           R"({"name":"inner","children":[{"name":"deep","children":[]}]}]})";
  EXPECT_EQ(encoded(tree), json);
  EXPECT_EQ(decoded<shop::Node>(json), tree);
  EXPECT_EQ(decodingFailure<shop::Node>(
                R"({"name": "", "children": [{"name": "", "children": []}, {"name": 4}]})"),
            "typeMismatch: children[1].name: expected a string, found the number 4");
}

struct Code {
  std::string letters;
  int number{};
  static Code decode(JSONReader& reader) {
    const std::string text = reader.string();
    if (text.size() != 3) reader.failCorrupted("a code has three characters");
    return {text.substr(0, 2), text[2] - '0'};
  }
  void encode(JSONWriter& writer) const { writer.string(letters + std::to_string(number)); }
};
static_assert(JSONReadable<Code> && JSONWritable<Code>);

/// A sequence by its form, not by its coding.
struct Path : std::vector<std::string> {
  static Path decode(JSONReader& reader) {
    Path path;
    path.push_back(reader.string());
    return path;
  }
  void encode(JSONWriter& writer) const { writer.string(front()); }
};

struct OnlyRead {
  static OnlyRead decode(JSONReader& reader) {
    reader.skip();
    return {};
  }
};
static_assert(JSONReadable<OnlyRead> && !JSONWritable<OnlyRead>);

TEST(JSONReflectionTests, TypesWithACodingOfTheirOwnUseIt) {
  EXPECT_EQ(encoded(std::vector<Code>{{"ab", 1}}), R"(["ab1"])");
  EXPECT_EQ(decoded<Holder<Code>>(R"({"value": "xy7"})").value.number, 7);
  EXPECT_EQ(decodingFailure<std::vector<Code>>(R"(["xy7", "abcd"])"),
            "dataCorrupted: [1]: a code has three characters");
  EXPECT_EQ(decoded<Holder<Path>>(R"({"value": "x"})").value.front(), "x");
  EXPECT_EQ(encoded(decoded<Path>(R"("x")")), R"("x")");
}

TEST(JSONReflectionTests, TypesOfOthersUseTheSpecialisedCoding) {
  EXPECT_EQ(encoded(shop::Invoice{shop::Money(1205)}), R"({"total":"12.05"})");
  const auto invoice = decoded<shop::Invoice>(R"({"total": "12.05"})");
  ASSERT_TRUE(invoice.total);
  EXPECT_EQ(invoice.total->cents(), 1205);
  EXPECT_EQ(decodingFailure<shop::Invoice>(R"({"total": "12"})"),
            "dataCorrupted: total: this is no money");
  // Without a default constructor.
  EXPECT_EQ(decoded<shop::Money>(R"("1.00")").cents(), 100);
}

struct Item {
  double price{};
  std::string name;
};
struct Order {
  std::vector<Item> items;
  std::map<std::string, Item> gifts;
};

TEST(JSONReflectionTests, ErrorsTellTheWayAndTheReason) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"items": [{"price": "12,50", "name": ""}], "gifts": {}})",
       R"(typeMismatch: items[0].price: expected a number, found the string "12,50")"},
      {R"({"items": [{"price": 1, "name": ""}, {"name": ""}], "gifts": {}})",
       R"(keyNotFound: items[1]: the key "price" is missing)"},
      {R"({"items": [{"price": null, "name": ""}], "gifts": {}})",
       "valueNotFound: items[0].price: expected a number, found null"},
      {R"({"items": [{"price": 1, "name": true}], "gifts": {}})",
       "typeMismatch: items[0].name: expected a string, found true"},
      {R"({"items": [{"price": [], "name": ""}], "gifts": {}})",
       "typeMismatch: items[0].price: expected a number, found an array"},
      {R"({"items": {}, "gifts": {}})", "typeMismatch: items: expected an array, found an object"},
      {R"({"items": null, "gifts": {}})", "valueNotFound: items: expected an array, found null"},
      {R"({"items": [], "gifts": {"for you": {"price": 0}}})",
       R"(keyNotFound: gifts["for you"]: the key "name" is missing)"},
      {"3", "typeMismatch: expected an object, found the number 3"},
      {"null", "valueNotFound: expected an object, found null"},
      {"{}", R"(keyNotFound: the key "items" is missing)"},
  };
  for (const auto& [json, expected] : rows) {
    SCOPED_TRACE(json);
    EXPECT_EQ(decodingFailure<Order>(json), expected);
  }
}

TEST(JSONReflectionTests, ErrorsHoldTheWayKeyByKey) {
  const auto mismatch =
      decodingError<Order>(R"({"items": [{"price": 1, "name": ""}, {"price": ""}], "gifts": {}})");
  ASSERT_TRUE(mismatch);
  EXPECT_THAT(mismatch->codingPath(),
              ElementsAre(CodingKey("items"), CodingKey(std::size_t{1}), CodingKey("price")));
  EXPECT_EQ(mismatch->codingPath()[1].intValue(), 1U);
  EXPECT_EQ(mismatch->codingPath()[2].intValue(), std::nullopt);
  EXPECT_EQ(mismatch->reason(), R"(expected a number, found the string "")");
  EXPECT_EQ(mismatch->key(), "");

  const auto missing = decodingError<Order>(R"({"items": [], "gifts": {"a": {"price": 1}}})");
  ASSERT_TRUE(missing);
  EXPECT_THAT(missing->codingPath(), ElementsAre(CodingKey("gifts"), CodingKey("a")));
  EXPECT_EQ(missing->key(), "name");
}

struct Failing {
  static Failing decode(JSONReader&) { throw std::out_of_range("of another class"); }
  void encode(JSONWriter&) const { throw std::out_of_range("of another class"); }
};

TEST(JSONReflectionTests, OtherExceptionsOfACodingPass) {
  EXPECT_THROW(decoded<Holder<Failing>>(R"({"value": 1})"), std::out_of_range);
  EXPECT_THROW(encoded(Holder<Failing>()), std::out_of_range);
}

}  // namespace
}  // namespace tarn
