#include <TarnLogger/ErrorLoggable.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

namespace tarn {
namespace {

class Plain : public CodedError, public ErrorLoggable {
 public:
  std::string message() const override { return "plain"; }
  std::string domain() const override { return "Shop.Plain"; }
  std::int64_t code() const noexcept override { return 3; }
  std::string logMessage() const override { return message(); }
};

class Detailed final : public Plain {
 public:
  std::optional<LogDetails> additionalLogInfo() const override {
    return LogDetails{{"item", "tea"}, {"message", "its own"}};
  }
};

TEST(ErrorLoggableTests, HasNoDetailsOfItsOwnUnlessItSaysSo) {
  EXPECT_FALSE(Plain().additionalLogInfo().has_value());
}

TEST(ErrorLoggableTests, TheDictionaryHasMessageDomainAndCode) {
  const auto details = createLogInfoDictionary(Plain());
  EXPECT_EQ(details, (LogDetails{{"message", "plain"}, {"domain", "Shop.Plain"}, {"code", 3}}));
}

TEST(ErrorLoggableTests, TheDictionaryHasTheErrorsOwnDetailsBeside) {
  const auto details = createLogInfoDictionary(Detailed());
  EXPECT_EQ(details.size(), 4u);
  EXPECT_EQ(details.at("item").description(), "tea");
  EXPECT_EQ(details.at("message").description(), "plain");
}

TEST(ErrorLoggableTests, AnyErrorMakesADictionary) {
  const auto details = createLogInfoDictionary(std::runtime_error("out of paper"));
  EXPECT_EQ(
      details,
      (LogDetails{{"message", "out of paper"}, {"domain", "std.runtime_error"}, {"code", 1}}));
  const std::system_error system(std::make_error_code(std::errc::no_such_file_or_directory));
  EXPECT_EQ(createLogInfoDictionary(system).at("code").description(), "2");
}

}  // namespace
}  // namespace tarn
