#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace tarn {
namespace {

const URL address("http://localhost/stock/list.txt");

std::shared_ptr<const HTTPURLResponse> answer(int status, HTTPHeaderFields headers = {}) {
  return std::make_shared<HTTPURLResponse>(address, status, "HTTP/1.1", std::move(headers));
}

DataResponse make(std::optional<Data> data, std::shared_ptr<const URLResponse> response,
                  std::optional<Error> error = std::nullopt) {
  return DataResponse(std::move(data), std::nullopt, std::move(response), std::move(error));
}

void expectUnacceptable(const DataResponse& response, HTTPStatus status) {
  ASSERT_TRUE(response.result.error().has_value());
  const Error error = *response.result.error();
  const auto* responseError = error.as<HTTPResponseError>();
  ASSERT_NE(responseError, nullptr) << error.message();
  EXPECT_EQ(responseError->kind(), HTTPResponseError::Case::unacceptableStatus);
  EXPECT_EQ(responseError->status(), status);
}

void expectNoMetadata(const DataResponse& response) {
  EXPECT_EQ(response.status, HTTPStatus::unknown);
  EXPECT_FALSE(response.headers.has_value());
  EXPECT_FALSE(response.expectedContentLength.has_value());
  EXPECT_FALSE(response.suggestedFilename.has_value());
  EXPECT_FALSE(response.mimeType.has_value());
  EXPECT_FALSE(response.textEncodingName.has_value());
  EXPECT_FALSE(response.url.has_value());
  EXPECT_EQ(response.urlResponse, nullptr);
}

TEST(DataResponseTests, SucceedsWithEveryStatusFrom200To206) {
  for (int code = 200; code <= 206; ++code) {
    SCOPED_TRACE(code);
    const auto response = make(Data("bytes"), answer(code));
    EXPECT_TRUE(response.result.isSuccessful());
    EXPECT_EQ(response.result.body(), Data("bytes"));
    EXPECT_EQ(response.data, Data("bytes"));
    EXPECT_EQ(response.status.rawValue(), code);
  }
}

TEST(DataResponseTests, SharesTheBytesInsteadOfCopyingThem) {
  const Data bytes("bytes");
  const auto response = make(bytes, answer(200));
  EXPECT_EQ(response.data->bytes(), bytes.bytes());
  EXPECT_EQ(response.result.body()->bytes(), bytes.bytes());
}

TEST(DataResponseTests, SucceedsWithoutBytes) {
  const auto response = make(std::nullopt, answer(200));
  EXPECT_TRUE(response.result.isSuccessful());
  EXPECT_FALSE(response.result.body().has_value());
  EXPECT_FALSE(response.data.has_value());
  EXPECT_EQ(response.status, HTTPStatus::success);
}

TEST(DataResponseTests, EmptyBytesAreABodyAllTheSame) {
  const auto response = make(Data(), answer(204));
  EXPECT_TRUE(response.result.isSuccessful());
  ASSERT_TRUE(response.result.body().has_value());
  EXPECT_TRUE(response.result.body()->empty());
}

TEST(DataResponseTests, FailsWithEveryOtherStatusAndKeepsTheBytes) {
  struct Row {
    int code;
    HTTPStatus status;
  };
  const Row rows[] = {{100, HTTPStatus::continue_},
                      {101, HTTPStatus::switchingProtocols},
                      {102, HTTPStatus::unknown},
                      {199, HTTPStatus::unknown},
                      {207, HTTPStatus::unknown},
                      {300, HTTPStatus::multipleChoices},
                      {304, HTTPStatus::notModified},
                      {308, HTTPStatus::unknown},
                      {400, HTTPStatus::badRequest},
                      {404, HTTPStatus::notFound},
                      {418, HTTPStatus::unknown},
                      {500, HTTPStatus::internalServerError},
                      {503, HTTPStatus::serviceUnavailable},
                      {599, HTTPStatus::unknown},
                      {1000, HTTPStatus::unknown}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code);
    const auto response = make(Data("no such item"), answer(row.code, {{"X-Reason", "gone"}}));
    EXPECT_FALSE(response.result.isSuccessful());
    EXPECT_FALSE(response.result.body().has_value());
    expectUnacceptable(response, row.status);
    EXPECT_EQ(response.data, Data("no such item"));
    EXPECT_EQ(response.status, row.status);
    ASSERT_TRUE(response.headers.has_value());
    EXPECT_EQ(response.headers->value("X-Reason"), "gone");
  }
}

TEST(DataResponseTests, CopiesTheMetadataOfAnHTTPAnswer) {
  const auto head =
      answer(200, {{"Content-Type", "Text/Plain; charset=UTF-8"}, {"Content-Length", "5"}});
  const auto response = make(Data("bytes"), head);
  ASSERT_TRUE(response.headers.has_value());
  EXPECT_EQ(*response.headers, head->allHeaderFields());
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.expectedContentLength, 5);
  EXPECT_EQ(response.suggestedFilename, head->suggestedFilename());
  EXPECT_EQ(response.suggestedFilename, "list.txt");
  EXPECT_EQ(response.mimeType, "text/plain");
  EXPECT_EQ(response.textEncodingName, "utf-8");
  EXPECT_EQ(response.url, address);
  EXPECT_EQ(response.urlResponse, head);
}

TEST(DataResponseTests, LeavesOutWhatTheAnswerDoesNotSay) {
  const auto response = make(Data("bytes"), answer(200));
  ASSERT_TRUE(response.headers.has_value());
  EXPECT_TRUE(response.headers->empty());
  EXPECT_EQ(response.expectedContentLength, -1);
  EXPECT_FALSE(response.mimeType.has_value());
  EXPECT_FALSE(response.textEncodingName.has_value());
}

TEST(DataResponseTests, FindsHeaderFieldsWhateverTheirCase) {
  const auto response = make(std::nullopt, answer(200, {{"X-Request-ID", "17"}}));
  EXPECT_EQ(response.headers->value("x-request-id"), "17");
  EXPECT_EQ(response.headers->value("X-REQUEST-ID"), "17");
  EXPECT_FALSE(response.headers->value("X-Request").has_value());
}

TEST(DataResponseTests, AnErrorWinsOverAnAcceptableAnswer) {
  const auto response =
      make(Data("half"), answer(200, {{"X-Part", "1"}}), Error(CFNetworkErrors(-1005)));
  ASSERT_TRUE(response.result.error().has_value());
  EXPECT_EQ(response.result.error()->code(), -1005);
  EXPECT_NE(response.result.error()->as<CFNetworkErrors>(), nullptr);
  EXPECT_FALSE(response.result.body().has_value());
  EXPECT_EQ(response.data, Data("half"));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("X-Part"), "1");
  EXPECT_EQ(response.url, address);
}

TEST(DataResponseTests, AnErrorWinsOverAnUnacceptableAnswer) {
  const Error error = std::runtime_error("mine");
  const auto response = make(std::nullopt, answer(500), error);
  EXPECT_EQ(response.result.error()->as<std::runtime_error>(), error.as<std::runtime_error>());
  EXPECT_EQ(response.status, HTTPStatus::internalServerError);
}

TEST(DataResponseTests, AnErrorAloneLeavesNoMetadata) {
  const auto response = make(std::nullopt, nullptr, Error(CFNetworkErrors(-1004)));
  EXPECT_EQ(response.result.error()->code(), -1004);
  EXPECT_FALSE(response.data.has_value());
  expectNoMetadata(response);
}

void expectFailedToConstruct(const DataResponse& response) {
  ASSERT_TRUE(response.result.error().has_value());
  const Error error = *response.result.error();
  const auto* unknown = error.as<HTTPUnknownError>();
  ASSERT_NE(unknown, nullptr) << error.message();
  EXPECT_EQ(unknown->kind(), HTTPUnknownError::Case::dataResponseFailedToConstruct);
  EXPECT_EQ(unknown->function(), "init(data:url:response:error:)");
  EXPECT_TRUE(unknown->file().ends_with("DataResponse.cpp")) << unknown->file();
  EXPECT_GT(unknown->line(), 0);
}

TEST(DataResponseTests, AnAnswerThatIsNotHTTPDoesNotMakeOne) {
  const auto file = std::make_shared<URLResponse>(URL("file:///tmp/list.txt"), "text/plain", 7,
                                                  std::optional<std::string>("utf-16"));
  const auto response = make(Data("content"), file);
  expectFailedToConstruct(response);
  EXPECT_EQ(response.data, Data("content"));
  EXPECT_EQ(response.status, HTTPStatus::unknown);
  EXPECT_FALSE(response.headers.has_value());
  EXPECT_EQ(response.expectedContentLength, 7);
  EXPECT_EQ(response.suggestedFilename, "list.txt");
  EXPECT_EQ(response.mimeType, "text/plain");
  EXPECT_EQ(response.textEncodingName, "utf-16");
  EXPECT_EQ(response.url, URL("file:///tmp/list.txt"));
  EXPECT_EQ(response.urlResponse, file);
}

TEST(DataResponseTests, NothingAtAllDoesNotMakeOne) {
  const auto response = make(std::nullopt, nullptr);
  expectFailedToConstruct(response);
  expectNoMetadata(response);
}

TEST(DataResponseTests, TakesNoNoticeOfAFileLocation) {
  const DataResponse response(Data("bytes"), URL("file:///tmp/elsewhere"), answer(200),
                              std::nullopt);
  EXPECT_TRUE(response.result.isSuccessful());
  EXPECT_EQ(response.url, address);
}

TEST(DataResponseTests, PrintsStatusAndHeaders) {
  struct Row {
    std::shared_ptr<const URLResponse> response;
    std::string text;
  };
  const Row rows[] = {
      {answer(200), "Type: DataResponse\n\nHTTP Status: success\n\nHeaders: \n"},
      {answer(404, {{"Content-Type", "text/html"}, {"X-Reason", "gone: for ever"}}),
       "Type: DataResponse\n\nHTTP Status: notFound\n\nHeaders: \n"
       "Content-Type: text/html\nX-Reason: gone: for ever\n"},
      {answer(100), "Type: DataResponse\n\nHTTP Status: continue\n\nHeaders: \n"},
      {answer(418), "Type: DataResponse\n\nHTTP Status: unknown\n\nHeaders: \n"},
      {nullptr, "Type: DataResponse\n\nHTTP Status: unknown\n\nHeaders: \n"},
  };
  for (const auto& row : rows) {
    const auto response = make(Data("bytes"), row.response);
    EXPECT_EQ(response.debugStatusAndHeaders(), row.text);
    EXPECT_EQ(response.debugDescription(), row.text);
  }
}

TEST(DataResponseTests, IsMadeOfItsMembers) {
  HTTPResponseMetadata metadata;
  metadata.headers = HTTPHeaderFields{{"X-Mock", "yes"}};
  metadata.status = HTTPStatus::created;
  metadata.expectedContentLength = 4;
  metadata.suggestedFilename = "mock.txt";
  metadata.mimeType = "text/plain";
  metadata.textEncodingName = "utf-8";
  metadata.url = address;
  const DataResponse response(DataResult::success(Data("mock")), Data("mock"), metadata);
  EXPECT_EQ(response.result.body(), Data("mock"));
  EXPECT_EQ(response.data, Data("mock"));
  EXPECT_EQ(response.headers->value("X-Mock"), "yes");
  EXPECT_EQ(response.status, HTTPStatus::created);
  EXPECT_EQ(response.expectedContentLength, 4);
  EXPECT_EQ(response.suggestedFilename, "mock.txt");
  EXPECT_EQ(response.mimeType, "text/plain");
  EXPECT_EQ(response.textEncodingName, "utf-8");
  EXPECT_EQ(response.url, address);
  EXPECT_EQ(response.urlResponse, nullptr);
}

TEST(DataResponseTests, AllButTheResultIsAbsentUnlessGiven) {
  const DataResponse response(DataResult::failure(std::runtime_error("mine")));
  EXPECT_EQ(response.result.error()->message(), "mine");
  EXPECT_FALSE(response.data.has_value());
  expectNoMetadata(response);
}

TEST(DataResponseTests, IsAValue) {
  const auto response = make(Data("bytes"), answer(200, {{"X-Part", "1"}}));
  DataResponse copy = response;
  copy.headers->set("X-Part", "2");
  copy.data->append("!");
  copy.status = HTTPStatus::gone;
  EXPECT_EQ(response.headers->value("X-Part"), "1");
  EXPECT_EQ(response.data, Data("bytes"));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(copy.urlResponse, response.urlResponse);
}

}  // namespace
}  // namespace tarn
