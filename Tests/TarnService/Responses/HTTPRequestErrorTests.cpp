#include <TarnService/Responses/HTTPRequestError.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(HTTPRequestErrorTests, SaysTheAddressThatMakesNoURL) {
  const auto error = HTTPRequestError::malformedURL("http://shop/ items?");
  EXPECT_EQ(error.kind(), HTTPRequestError::Case::malformedURL);
  EXPECT_EQ(error.urlText(), "http://shop/ items?");
  EXPECT_EQ(error.message(), "Malformed URL: http://shop/ items?");
  EXPECT_EQ(error.logMessage(), error.message());
  EXPECT_STREQ(error.what(), "Malformed URL: http://shop/ items?");
  EXPECT_EQ(HTTPRequestError::malformedURL("").message(), "Malformed URL: ");
}

TEST(HTTPRequestErrorTests, LogsTheAddress) {
  const auto details = HTTPRequestError::malformedURL("/x").additionalLogInfo();
  ASSERT_TRUE(details.has_value());
  EXPECT_EQ(*details, (LogDetails{{"malformedURL", "/x"}}));
  ASSERT_NE(details->at("malformedURL").as<std::string>(), nullptr);
}

TEST(HTTPRequestErrorTests, TravelsAsAnError) {
  const Error error = HTTPRequestError::malformedURL("/x");
  EXPECT_EQ(error.domain(), "TarnService.HTTPRequestError");
  EXPECT_EQ(error.code(), 0);
  EXPECT_EQ(error.message(), "Malformed URL: /x");
  EXPECT_EQ(error.userInfo().at("NSLocalizedDescription").description(), "Malformed URL: /x");
  ASSERT_NE(error.as<HTTPRequestError>(), nullptr);
  EXPECT_EQ(error.as<HTTPRequestError>()->urlText(), "/x");
  EXPECT_NE(error.as<AppError>(), nullptr);
  EXPECT_NE(error.as<ErrorLoggable>(), nullptr);
}

}  // namespace
}  // namespace tarn
