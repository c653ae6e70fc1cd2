#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Responses/HTTPResponse.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace tarn {
namespace {

/// A record that does not derive from the library's base.
struct ForeignResponse {
  using Result = HTTPResult<Data>;

  ForeignResponse(std::optional<Data> data, std::optional<URL>,
                  std::shared_ptr<const URLResponse> urlResponse, std::optional<Error>)
      : data(data), result(Result::success(data)), urlResponse(std::move(urlResponse)) {}

  std::string debugStatusAndHeaders() const { return "foreign"; }

  std::optional<Data> data;
  Result result;
  std::optional<HTTPHeaderFields> headers = HTTPHeaderFields{{"X-Own", "1"}};
  HTTPStatus status = HTTPStatus::accepted;
  std::optional<std::int64_t> expectedContentLength = 3;
  std::optional<std::string> suggestedFilename = "own.bin";
  std::optional<std::string> mimeType = "own/type";
  std::optional<std::string> textEncodingName = "own-8";
  std::optional<URL> url = URL("http://localhost/own");
  std::shared_ptr<const URLResponse> urlResponse;
};

TEST(HTTPResponseTests, TakesEverythingFromTheRecord) {
  const auto head = std::make_shared<HTTPURLResponse>(
      URL("http://localhost/list.txt"), 206, "HTTP/1.1",
      HTTPHeaderFields{{"Content-Type", "text/plain; charset=utf-8"}, {"Content-Length", "5"}});
  const DataResponse record(Data("bytes"), std::nullopt, head, std::nullopt);
  const HTTPResponse<DataResponse, int> response(record, 42);
  EXPECT_EQ(response.body, 42);
  EXPECT_EQ(response.data, Data("bytes"));
  EXPECT_EQ(response.headers, record.headers);
  EXPECT_EQ(response.status, HTTPStatus::partialContent);
  EXPECT_EQ(response.expectedContentLength, 5);
  EXPECT_EQ(response.suggestedFilename, "list.txt");
  EXPECT_EQ(response.mimeType, "text/plain");
  EXPECT_EQ(response.textEncodingName, "utf-8");
  EXPECT_EQ(response.debugDescription, record.debugStatusAndHeaders());
  EXPECT_EQ(response.urlResponse, head);
}

TEST(HTTPResponseTests, TakesEverythingFromARecordOfAnyType) {
  const auto head = std::make_shared<HTTPURLResponse>(URL("http://localhost/"), 200, "HTTP/1.1",
                                                      HTTPHeaderFields{});
  const ForeignResponse record(Data("own"), std::nullopt, head, std::nullopt);
  const HTTPResponse<ForeignResponse, std::string> response(record, "body");
  EXPECT_EQ(response.body, "body");
  EXPECT_EQ(response.data, Data("own"));
  EXPECT_EQ(response.headers->value("x-own"), "1");
  EXPECT_EQ(response.status, HTTPStatus::accepted);
  EXPECT_EQ(response.expectedContentLength, 3);
  EXPECT_EQ(response.suggestedFilename, "own.bin");
  EXPECT_EQ(response.mimeType, "own/type");
  EXPECT_EQ(response.textEncodingName, "own-8");
  EXPECT_EQ(response.debugDescription, "foreign");
  EXPECT_EQ(response.urlResponse, head);
}

TEST(HTTPResponseTests, TakesABodyThatCanOnlyBeMoved) {
  const DataResponse record(DataResult::success(std::nullopt));
  const HTTPResponse<DataResponse, std::unique_ptr<int>> response(record, std::make_unique<int>(7));
  EXPECT_EQ(*response.body, 7);
  EXPECT_FALSE(response.headers.has_value());
  EXPECT_EQ(response.status, HTTPStatus::unknown);
}

}  // namespace
}  // namespace tarn
