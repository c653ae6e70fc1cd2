#include <Platform/JSON/EncodingError.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(EncodingErrorTests, MessageStartsWithThePath) {
  const CodingPath path = {CodingKey(std::string("items")), CodingKey(std::size_t{3})};
  const auto error = EncodingError::invalidValue(path, "the number is not finite");
  EXPECT_EQ(error.message(), "items[3]: the number is not finite");
  EXPECT_STREQ(error.what(), "items[3]: the number is not finite");
  EXPECT_EQ(error.reason(), "the number is not finite");
  EXPECT_EQ(error.codingPath(), path);
  EXPECT_EQ(error.code(), 0);
}

TEST(EncodingErrorTests, MessageAtTheRootIsTheReason) {
  EXPECT_EQ(EncodingError::invalidValue({}, "no value was written").message(),
            "no value was written");
}

TEST(EncodingErrorTests, KeepsItsClassInAHandle) {
  const Error error = EncodingError::invalidValue({CodingKey(std::string("a"))}, "odd");
  ASSERT_NE(error.as<EncodingError>(), nullptr);
  EXPECT_EQ(error.as<EncodingError>()->reason(), "odd");
  EXPECT_EQ(error.message(), "a: odd");
}

}  // namespace
}  // namespace tarn
