#include <Platform/Types/AnyValue.hpp>
#include <Platform/Types/Data.hpp>
#include <Platform/Types/Error.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/UUID.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {
namespace {

struct Described {
  std::string description() const { return "described"; }
  std::string debugDescription() const { return "debug"; }
  std::string message() const { return "message"; }
};
struct Debugged {
  std::string debugDescription() const { return "debug"; }
  std::string message() const { return "message"; }
};
struct WithMessage {
  std::string message() const { return "message"; }
};
struct Undescribed {};
enum class Plain { one };

static_assert(!std::is_constructible_v<AnyValue, Undescribed>);
static_assert(!std::is_constructible_v<AnyValue, std::vector<Undescribed>>);
static_assert(!std::is_constructible_v<AnyValue, Plain>);
static_assert(!std::is_constructible_v<AnyValue, int*>);
static_assert(!std::is_constructible_v<AnyValue, std::nullptr_t>);
static_assert(std::is_convertible_v<int, AnyValue>);

TEST(AnyValueTests, DescribesValues) {
  struct Row {
    AnyValue value;
    std::string expected;
  };
  const char* pointer = "pointer";
  char array[] = "array";
  const Row rows[] = {
      {true, "true"},
      {false, "false"},
      {5, "5"},
      {0, "0"},
      {-7, "-7"},
      {std::int8_t{-8}, "-8"},
      {std::uint8_t{200}, "200"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {42u, "42"},
      {'c', "c"},
      {1.0, "1.0"},
      {0.1, "0.1"},
      {0.1f, "0.1"},
      {1.0f, "1.0"},
      {-0.0, "-0.0"},
      {100.0, "100.0"},
      {123456789.0, "123456789.0"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1.0 - 0.1 * 3, "0.7"},
      {1e300, "1e+300"},
      {1e-7, "1e-07"},
      {5e-324, "5e-324"},
      {std::numeric_limits<double>::quiet_NaN(), "nan"},
      {-std::numeric_limits<double>::quiet_NaN(), "nan"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
      {"literal", "literal"},
      {pointer, "pointer"},
      {array, "array"},
      {std::string("text"), "text"},
      {std::string_view("view"), "view"},
      {"", ""},
      {static_cast<const char*>(nullptr), "nil"},
      {std::nullopt, "nil"},
      {std::optional<int>(), "nil"},
      {std::optional<int>(5), "5"},
      {std::optional<std::string>("a"), "a"},
      {std::vector<int>{}, "[]"},
      {std::vector<int>{1}, "[1]"},
      {std::vector<std::string>{"a", "b"}, "[a, b]"},
      {std::vector<bool>{true, false}, "[true, false]"},
      {std::vector<std::vector<double>>{{1, 2}, {}}, "[[1.0, 2.0], []]"},
      {std::vector<std::optional<int>>{1, std::nullopt}, "[1, nil]"},
      {std::vector<AnyValue>{1, "a", true}, "[1, a, true]"},
      {std::optional<std::vector<int>>(std::vector<int>{1}), "[1]"},
      {std::map<std::string, int>{}, "[:]"},
      {std::map<std::string, AnyValue>{{"a", 1}, {"b", "c"}}, "[a: 1, b: c]"},
      {Described(), "described"},
      {Debugged(), "debug"},
      {WithMessage(), "message"},
      {std::runtime_error("what"), "what"},
      {Error(std::runtime_error("held")), "held"},
      {Data("abc"), "3 bytes"},
      {URL("http://h/a"), "http://h/a"},
      {*UUID::parse("00112233-4455-6677-8899-aabbccddeeff"),
       "00112233-4455-6677-8899-AABBCCDDEEFF"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    EXPECT_EQ(row.value.description(), row.expected);
  }
}

TEST(AnyValueTests, KeepsTheValue) {
  const AnyValue number = 5;
  ASSERT_NE(number.as<int>(), nullptr);
  EXPECT_EQ(*number.as<int>(), 5);
  EXPECT_EQ(number.as<long>(), nullptr);
  EXPECT_EQ(number.as<std::string>(), nullptr);

  const AnyValue list = std::vector<int>{1, 2};
  ASSERT_NE(list.as<std::vector<int>>(), nullptr);
  EXPECT_EQ(list.as<std::vector<int>>()->size(), 2u);

  const AnyValue error = std::runtime_error("x");
  EXPECT_NE(error.as<std::runtime_error>(), nullptr);
}

TEST(AnyValueTests, KeepsEveryTextAsAString) {
  const std::string text = "text";
  char array[] = "text";
  const char* pointer = array;
  const AnyValue values[] = {"text", text,   std::string("text"), std::string_view(text),
                             array,  pointer};
  array[0] = 'n';
  for (const auto& value : values) {
    ASSERT_NE(value.as<std::string>(), nullptr);
    EXPECT_EQ(*value.as<std::string>(), "text");
  }
}

TEST(AnyValueTests, MovedInTextIsDescribedToo) {
  std::string text(100, 'x');
  const AnyValue value = std::move(text);
  EXPECT_EQ(value.description(), std::string(100, 'x'));
  EXPECT_EQ(*value.as<std::string>(), std::string(100, 'x'));
}

TEST(AnyValueTests, CopiesAreIndependentValues) {
  AnyValue first = 1;
  const AnyValue second = first;
  first = "other";
  EXPECT_EQ(second.description(), "1");
  EXPECT_NE(second.as<int>(), nullptr);
  EXPECT_EQ(first.description(), "other");
  EXPECT_EQ(first.as<int>(), nullptr);
}

TEST(AnyValueTests, EqualityComparesDescriptions) {
  EXPECT_EQ(AnyValue(5), AnyValue("5"));
  EXPECT_NE(AnyValue(5), AnyValue(5.0));
  EXPECT_EQ(AnyValue(true), AnyValue("true"));
}

}  // namespace
}  // namespace tarn
