#include <TarnService/Responses/HTTPUnknownError.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace tarn {
namespace {

using Case = HTTPUnknownError::Case;

constexpr SourceLocation place{"Shop.cpp", "buy(_:)", 12};
const Error original = std::runtime_error("unreadable");

struct Row {
  HTTPUnknownError error;
  Case kind;
  std::int64_t code;
  std::string message;
};

const Row rows[] = {
    {HTTPUnknownError::completionWithoutResponseFromPolling(place),
     Case::completionWithoutResponseFromPolling, 0,
     "Completion without response from polling.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
    {HTTPUnknownError::futureFailedToMapBody(place), Case::futureFailedToMapBody, 1,
     "Future failed to map body \nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
    {HTTPUnknownError::downloadResponseFailedToConstruct(place),
     Case::downloadResponseFailedToConstruct, 2,
     "Download response failed to construct.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
    {HTTPUnknownError::jsonResponseFailedToConstruct(place, "{\"id\": 1}"),
     Case::jsonResponseFailedToConstruct, 3,
     "json response failed to construct.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12\n"
     "json:{\"id\": 1}"},
    {HTTPUnknownError::jsonResponseFailedToConstruct(place, ""),
     Case::jsonResponseFailedToConstruct, 3,
     "json response failed to construct.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12\njson:"},
    {HTTPUnknownError::dataResponseFailedToConstruct(place), Case::dataResponseFailedToConstruct, 4,
     "Data response failed to construct.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
    {HTTPUnknownError::unableToParseJSON("[1", original, place), Case::unableToParseJSON, 5,
     "Unable to parse json: [1\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
    {HTTPUnknownError::unknownFutureState(place), Case::unknownFutureState, 6,
     "Completion without response from polling.\nFile:Shop.cpp\nFunction:buy(_:)\nLine:12"},
};

TEST(HTTPUnknownErrorTests, HasCaseCodeAndMessageOfEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    EXPECT_EQ(row.error.kind(), row.kind);
    EXPECT_EQ(row.error.code(), row.code);
    EXPECT_EQ(row.error.message(), row.message);
    EXPECT_EQ(row.error.logMessage(), row.message);
    EXPECT_EQ(row.error.file(), "Shop.cpp");
    EXPECT_EQ(row.error.function(), "buy(_:)");
    EXPECT_EQ(row.error.line(), 12);
  }
}

TEST(HTTPUnknownErrorTests, TravelsAsAnErrorInEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const Error error = row.error;
    EXPECT_EQ(error.domain(), "TarnService.HTTPUnknownError");
    EXPECT_EQ(error.code(), row.code);
    EXPECT_EQ(error.userInfo().at("NSLocalizedDescription").description(), row.message);
    ASSERT_NE(error.as<HTTPUnknownError>(), nullptr);
    EXPECT_EQ(error.as<HTTPUnknownError>()->kind(), row.kind);
    EXPECT_NE(error.as<AppError>(), nullptr);
  }
}

TEST(HTTPUnknownErrorTests, LogsThePlaceInEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const auto details = row.error.additionalLogInfo();
    ASSERT_TRUE(details.has_value());
    EXPECT_EQ(*details->at("file").as<std::string>(), "Shop.cpp");
    EXPECT_EQ(*details->at("function").as<std::string>(), "buy(_:)");
    EXPECT_EQ(*details->at("line").as<int>(), 12);
    EXPECT_EQ(details->contains("json"), row.kind == Case::jsonResponseFailedToConstruct ||
                                             row.kind == Case::unableToParseJSON);
    EXPECT_EQ(details->contains("originalError"), row.kind == Case::unableToParseJSON);
    EXPECT_EQ(row.error.json().has_value(), details->contains("json"));
    EXPECT_EQ(row.error.originalError().has_value(), details->contains("originalError"));
  }
}

TEST(HTTPUnknownErrorTests, LogsTheTextAndTheThrownError) {
  const auto construct = HTTPUnknownError::jsonResponseFailedToConstruct(place, "{}");
  EXPECT_EQ(construct.json(), "{}");
  EXPECT_EQ(*construct.additionalLogInfo()->at("json").as<std::string>(), "{}");

  const auto parse = HTTPUnknownError::unableToParseJSON("[1", original, place);
  EXPECT_EQ(parse.json(), "[1");
  const auto details = parse.additionalLogInfo();
  EXPECT_EQ(details->size(), 5u);
  EXPECT_EQ(*details->at("json").as<std::string>(), "[1");
  const auto* logged = details->at("originalError").as<Error>();
  ASSERT_NE(logged, nullptr);
  EXPECT_EQ(logged->as<std::runtime_error>(), original.as<std::runtime_error>());
  EXPECT_EQ(details->at("originalError").description(), "unreadable");
}

TEST(HTTPUnknownErrorTests, TellsApartTheTwoThatReadTheSame) {
  const auto polling = HTTPUnknownError::completionWithoutResponseFromPolling(place);
  const auto future = HTTPUnknownError::unknownFutureState(place);
  EXPECT_EQ(polling.message(), future.message());
  EXPECT_NE(polling.kind(), future.kind());
  EXPECT_NE(polling.code(), future.code());
}

}  // namespace
}  // namespace tarn
