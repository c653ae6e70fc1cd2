#include <TarnService/Responses/DataResponse.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

/// A record of one's own, on the library's base.
struct LengthResponse : HTTPResponseRecord<LengthResponse, HTTPResult<std::size_t>> {
  using HTTPResponseRecord::HTTPResponseRecord;

  LengthResponse(std::optional<Data> data, std::optional<URL>,
                 std::shared_ptr<const URLResponse> response, std::optional<Error> error)
      : HTTPResponseRecord(
            error ? Result::failure(*error) : Result::success(data ? data->size() : std::size_t{0}),
            data, HTTPResponseMetadata(std::move(response))) {}
};

/// A record that owes the library nothing.
struct ForeignResponse {
  using Result = HTTPResult<Data>;

  ForeignResponse(std::optional<Data> data, std::optional<URL> url,
                  std::shared_ptr<const URLResponse> response, std::optional<Error>)
      : data(data), result(Result::success(data)), url(url), urlResponse(response) {}

  std::string debugStatusAndHeaders() const { return "foreign"; }

  std::optional<Data> data;
  Result result;
  std::optional<HTTPHeaderFields> headers;
  HTTPStatus status = HTTPStatus::accepted;
  std::optional<std::int64_t> expectedContentLength;
  std::optional<std::string> suggestedFilename;
  std::optional<std::string> mimeType;
  std::optional<std::string> textEncodingName;
  std::optional<URL> url;
  std::shared_ptr<const URLResponse> urlResponse;
};

struct WithoutDebugText : ForeignResponse {
  using ForeignResponse::ForeignResponse;
  void debugStatusAndHeaders() const {}
};
struct WithoutConstructor : ForeignResponse {
  WithoutConstructor();
};
struct WithoutResult {
  std::optional<Data> data;
};

static_assert(HTTPResponsable<DataResponse>);
static_assert(HTTPResponsable<LengthResponse>);
static_assert(HTTPResponsable<ForeignResponse>);
static_assert(_HTTPResponsable<WithoutDebugText> && !HTTPResponsable<WithoutDebugText>);
static_assert(!_HTTPResponsable<WithoutConstructor>);
static_assert(!_HTTPResponsable<WithoutResult>);
static_assert(!HTTPResponsable<Data>);

TEST(HTTPResponsableTests, ARecordOfOnesOwnHasAllThatTheLibrarysHave) {
  const auto head = std::make_shared<HTTPURLResponse>(URL("http://localhost/"), 201, "HTTP/1.1",
                                                      HTTPHeaderFields{{"Location", "/items/7"}});
  const LengthResponse response(Data("four"), std::nullopt, head, std::nullopt);
  EXPECT_EQ(response.result.body(), std::size_t{4});
  EXPECT_EQ(response.status, HTTPStatus::created);
  EXPECT_EQ(response.headers->value("location"), "/items/7");
  EXPECT_EQ(response.debugStatusAndHeaders(),
            "Type: LengthResponse\n\nHTTP Status: created\n\nHeaders: \nLocation: /items/7\n");
}

}  // namespace
}  // namespace tarn
