#include <Tambour/AppError.hpp>

#include <gtest/gtest.h>

#include <exception>

namespace shop {

class SoldOut final : public tarn::AppError {
 public:
  std::string message() const override { return "sold out"; }
  std::int64_t code() const noexcept override { return 4; }
};

}  // namespace shop

namespace tarn {
namespace {

TEST(AppErrorTests, IsAnExceptionThatSaysItsMessage) {
  try {
    throw shop::SoldOut();
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "sold out");
  }
}

TEST(AppErrorTests, IsNamedAfterItsType) {
  EXPECT_EQ(shop::SoldOut().domain(), "shop.SoldOut");
  EXPECT_EQ(Error(shop::SoldOut()).code(), 4);
}

TEST(AppErrorTests, MakesItsUserInfoOfTheMessage) {
  const auto info = shop::SoldOut().userInfo();
  ASSERT_EQ(info.size(), 1u);
  EXPECT_EQ(info.at("NSLocalizedDescription").description(), "sold out");
}

}  // namespace
}  // namespace tarn
