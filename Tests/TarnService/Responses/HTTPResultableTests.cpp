#include <TarnService/Responses/HTTPResultable.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using Result = HTTPResult<std::string>;

struct NoError {
  using Body = int;
  bool isSuccessful() const { return true; }
  std::optional<int> body() const { return 1; }
};
struct OwnResult : NoError {
  std::optional<Error> error() const { return std::nullopt; }
};

static_assert(HTTPResultable<Result>);
static_assert(HTTPResultable<OwnResult>);
static_assert(!HTTPResultable<NoError>);
static_assert(!HTTPResultable<std::string>);

TEST(HTTPResultableTests, SuccessHasItsBody) {
  const auto result = Result::success("tea");
  EXPECT_TRUE(result.isSuccessful());
  EXPECT_EQ(result.body(), "tea");
  EXPECT_FALSE(result.error().has_value());
  EXPECT_EQ(result.debugDescription(), ".success");
}

TEST(HTTPResultableTests, SuccessMayHaveNoBody) {
  const auto result = Result::success(std::nullopt);
  EXPECT_TRUE(result.isSuccessful());
  EXPECT_FALSE(result.body().has_value());
  EXPECT_FALSE(result.error().has_value());
  EXPECT_EQ(result.debugDescription(), ".success");
}

TEST(HTTPResultableTests, FailureHasItsError) {
  const Error error = std::runtime_error("sold out");
  const auto result = Result::failure(error);
  EXPECT_FALSE(result.isSuccessful());
  EXPECT_FALSE(result.body().has_value());
  ASSERT_TRUE(result.error().has_value());
  EXPECT_EQ(result.error()->as<std::runtime_error>(), error.as<std::runtime_error>());
  EXPECT_EQ(result.debugDescription(), ".failure");
}

TEST(HTTPResultableTests, MatchTakesTheOneThatIsThere) {
  const auto describe = [](const Result& result) {
    return result.match(
        [](const std::optional<std::string>& body) { return body.value_or("nothing"); },
        [](const Error& error) { return "failed: " + error.message(); });
  };
  EXPECT_EQ(describe(Result::success("tea")), "tea");
  EXPECT_EQ(describe(Result::success(std::nullopt)), "nothing");
  EXPECT_EQ(describe(Result::failure(std::runtime_error("sold out"))), "failed: sold out");
}

TEST(HTTPResultableTests, ABodyThatCannotBeCopiedCanBeTakenOut) {
  using Owning = HTTPResult<std::unique_ptr<int>>;
  auto body = Owning::success(std::make_unique<int>(7)).body();
  ASSERT_TRUE(body.has_value());
  EXPECT_EQ(**body, 7);
  EXPECT_FALSE(Owning::failure(std::runtime_error("x")).body().has_value());
}

}  // namespace
}  // namespace tarn
