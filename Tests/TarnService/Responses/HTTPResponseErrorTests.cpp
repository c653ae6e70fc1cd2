#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace tarn {
namespace {

struct Article {};
template <class T>
struct Box {};

const Error decodingError = std::runtime_error("no member \"name\"");

struct Row {
  HTTPResponseError error;
  HTTPResponseError::Case kind;
  std::int64_t code;
  std::string message;
};

const Row rows[] = {
    {HTTPResponseError::unacceptableStatus(HTTPStatus::notFound),
     HTTPResponseError::Case::unacceptableStatus, 0, "HTTPStatus: notFound:404 is unacceptable"},
    {HTTPResponseError::unacceptableStatus(HTTPStatus::unknown),
     HTTPResponseError::Case::unacceptableStatus, 0, "HTTPStatus: unknown:1000 is unacceptable"},
    {HTTPResponseError::unacceptableStatus(HTTPStatus::continue_),
     HTTPResponseError::Case::unacceptableStatus, 0, "HTTPStatus: continue:100 is unacceptable"},
    {HTTPResponseError::malformedData(TypeReference::of<Article>()),
     HTTPResponseError::Case::malformedData, 1, "Data was malformed for type: Article"},
    {HTTPResponseError::malformedData(TypeReference::of<Box<Article>>()),
     HTTPResponseError::Case::malformedData, 1, "Data was malformed for type: Box<Article>"},
    {HTTPResponseError::jsonDecoding(TypeReference::of<Article>(), decodingError, "{\"id\": 1}"),
     HTTPResponseError::Case::jsonDecoding, 2,
     "JSON decoding failure for type: Article with json:\n{\"id\": 1}"},
    {HTTPResponseError::jsonDecoding(TypeReference::of<Article>(), decodingError, ""),
     HTTPResponseError::Case::jsonDecoding, 2,
     "JSON decoding failure for type: Article with json:\n"},
    {HTTPResponseError::taskCancelled(), HTTPResponseError::Case::taskCancelled, 3,
     "Task has been cancelled"},
};

TEST(HTTPResponseErrorTests, HasCaseCodeAndMessageOfEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    EXPECT_EQ(row.error.kind(), row.kind);
    EXPECT_EQ(row.error.code(), row.code);
    EXPECT_EQ(row.error.message(), row.message);
    EXPECT_EQ(row.error.logMessage(), row.message);
  }
}

TEST(HTTPResponseErrorTests, TravelsAsAnErrorInEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const Error error = row.error;
    EXPECT_EQ(error.domain(), "TarnService.HTTPResponseError");
    EXPECT_EQ(error.code(), row.code);
    EXPECT_EQ(error.message(), row.message);
    const auto info = error.userInfo();
    EXPECT_EQ(info.at("NSLocalizedDescription").description(), row.message);
    ASSERT_NE(error.as<HTTPResponseError>(), nullptr);
    EXPECT_EQ(error.as<HTTPResponseError>()->kind(), row.kind);
    EXPECT_NE(error.as<AppError>(), nullptr);
    EXPECT_EQ(error.as<CFNetworkErrors>(), nullptr);
  }
}

TEST(HTTPResponseErrorTests, CarriesTheStatus) {
  const auto error = HTTPResponseError::unacceptableStatus(HTTPStatus::notFound);
  EXPECT_EQ(error.status(), HTTPStatus(HTTPStatus::notFound));
  EXPECT_FALSE(error.type().has_value());
  EXPECT_FALSE(error.decodingError().has_value());
  EXPECT_FALSE(error.json().has_value());
  const auto details = error.additionalLogInfo();
  ASSERT_TRUE(details.has_value());
  ASSERT_EQ(details->size(), 1u);
  ASSERT_NE(details->at("HTTPStatusCode").as<std::int64_t>(), nullptr);
  EXPECT_EQ(*details->at("HTTPStatusCode").as<std::int64_t>(), 404);
}

TEST(HTTPResponseErrorTests, CarriesTheType) {
  const auto error = HTTPResponseError::malformedData(TypeReference::of<Article>());
  EXPECT_EQ(error.type(), TypeReference::of<Article>());
  EXPECT_FALSE(error.status().has_value());
  EXPECT_FALSE(error.decodingError().has_value());
  const auto details = error.additionalLogInfo();
  ASSERT_TRUE(details.has_value());
  ASSERT_EQ(details->size(), 1u);
  ASSERT_NE(details->at("Type").as<TypeReference>(), nullptr);
  EXPECT_EQ(*details->at("Type").as<TypeReference>(), TypeReference::of<Article>());
}

TEST(HTTPResponseErrorTests, CarriesTheDecodingErrorAndTheText) {
  const auto error =
      HTTPResponseError::jsonDecoding(TypeReference::of<Article>(), decodingError, "[]");
  EXPECT_EQ(error.type(), TypeReference::of<Article>());
  EXPECT_EQ(error.json(), "[]");
  EXPECT_FALSE(error.status().has_value());
  ASSERT_TRUE(error.decodingError().has_value());
  EXPECT_EQ(error.decodingError()->as<std::runtime_error>(),
            decodingError.as<std::runtime_error>());

  const auto details = error.additionalLogInfo();
  ASSERT_TRUE(details.has_value());
  ASSERT_EQ(details->size(), 3u);
  EXPECT_EQ(*details->at("Type").as<TypeReference>(), TypeReference::of<Article>());
  EXPECT_EQ(*details->at("json").as<std::string>(), "[]");
  ASSERT_NE(details->at("DecodingError").as<LogDetails>(), nullptr);
  EXPECT_EQ(*details->at("DecodingError").as<LogDetails>(), createLogInfoDictionary(decodingError));
}

TEST(HTTPResponseErrorTests, ACancellationHasNothingToAddToTheLog) {
  const auto error = HTTPResponseError::taskCancelled();
  EXPECT_FALSE(error.additionalLogInfo().has_value());
  EXPECT_FALSE(error.status().has_value());
  EXPECT_FALSE(error.type().has_value());
  EXPECT_FALSE(error.json().has_value());
}

}  // namespace
}  // namespace tarn
