#include <Support/System.hpp>
#include <Tambour/File.hpp>
#include <TarnService/Responses/DownloadResponse.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tarn {
namespace {

std::shared_ptr<const HTTPURLResponse> answer(int status, HTTPHeaderFields headers = {}) {
  return std::make_shared<HTTPURLResponse>(URL("http://localhost/stock/list.txt"), status,
                                           "HTTP/1.1", std::move(headers));
}

// A body of one line that begins with "v1 ".
struct Versioned {
  std::string text;
  static std::optional<Versioned> fromFile(const URL& fileURL) {
    const auto content = test::readFile(fileURL.path());
    if (!content.starts_with("v1 ")) return std::nullopt;
    return Versioned{content.substr(3)};
  }
};

struct Refusing {
  static Refusing fromFile(const URL&) { throw std::runtime_error("I refuse"); }
};

class DownloadResponseTests : public testing::Test {
 protected:
  URL file(const std::string& content) const {
    test::writeFile(place.file("list.txt"), content);
    return URL::fileURL(place.file("list.txt"));
  }
  URL missing() const { return URL::fileURL(place.file("missing")); }

  const test::TemporaryDirectory place;
};

template <class Body>
DownloadResponse<Body> make(std::optional<URL> file, std::shared_ptr<const URLResponse> response,
                            std::optional<Error> error = std::nullopt,
                            std::optional<Data> data = std::nullopt) {
  return DownloadResponse<Body>(std::move(data), std::move(file), std::move(response),
                                std::move(error));
}

template <class E, class Response>
const E* errorOf(const Response& response) {
  static std::optional<Error> held;
  held = response.result.error();
  return held ? held->template as<E>() : nullptr;
}

TEST_F(DownloadResponseTests, AFileItselfIsABody) {
  const URL location = file("content");
  const auto response = make<File>(location, answer(200));
  ASSERT_TRUE(response.result.isSuccessful());
  EXPECT_EQ(response.result.body()->fileURL(), location);
  EXPECT_FALSE(response.data);
}

TEST_F(DownloadResponseTests, BytesAreReadFromTheFile) {
  EXPECT_EQ(make<Data>(file("content"), answer(200)).result.body(), Data("content"));
}

TEST_F(DownloadResponseTests, AValueIsMadeFromTheFile) {
  const auto response = make<Versioned>(file("v1 pears"), answer(200));
  ASSERT_TRUE(response.result.body());
  EXPECT_EQ(response.result.body()->text, "pears");
}

TEST_F(DownloadResponseTests, SucceedsWithEveryStatusFrom200To206) {
  const URL location = file("content");
  for (int code = 200; code <= 206; ++code) {
    SCOPED_TRACE(code);
    const auto response = make<File>(location, answer(code));
    EXPECT_TRUE(response.result.isSuccessful());
    EXPECT_EQ(response.result.body().has_value(), code != 204);
  }
}

TEST_F(DownloadResponseTests, NoContentHasNoBodyWhateverTheFile) {
  for (const auto& location :
       {std::optional<URL>(), std::optional<URL>(file("content")), std::optional<URL>(missing())}) {
    SCOPED_TRACE(location ? location->path() : "no file");
    const auto data = make<Data>(location, answer(204));
    EXPECT_TRUE(data.result.isSuccessful());
    EXPECT_FALSE(data.result.body());
    EXPECT_TRUE(make<Refusing>(location, answer(204)).result.isSuccessful());
  }
}

TEST_F(DownloadResponseTests, AnEmptyFileIsNoBytesButAFile) {
  const URL location = file("");
  const auto data = make<Data>(location, answer(200));
  EXPECT_TRUE(data.result.isSuccessful());
  EXPECT_FALSE(data.result.body());
  EXPECT_TRUE(make<File>(location, answer(200)).result.body());
}

TEST_F(DownloadResponseTests, AnyOtherStatusIsUnacceptable) {
  const URL location = file("v1 pears");
  for (const int code : {100, 199, 207, 304, 404, 500}) {
    SCOPED_TRACE(code);
    const auto response = make<Versioned>(location, answer(code, {{"X-Kind", "list"}}));
    const auto* error = errorOf<HTTPResponseError>(response);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), HTTPResponseError::Case::unacceptableStatus);
    EXPECT_EQ(error->status(), response.status);
    EXPECT_EQ(response.headers->value("x-kind"), "list");
  }
  EXPECT_EQ(make<Data>(location, answer(207)).status, HTTPStatus::unknown);
}

TEST_F(DownloadResponseTests, AnErrorWinsOverAGoodAnswer) {
  const auto response = make<Data>(file("content"), answer(200, {{"X-Kind", "list"}}),
                                   Error(std::runtime_error("cut off")), Data("given"));
  EXPECT_EQ(response.result.error()->message(), "cut off");
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("x-kind"), "list");
  EXPECT_EQ(response.data, Data("given"));
}

TEST_F(DownloadResponseTests, ContentsThatAreNoSuchValueAreMalformed) {
  const auto response = make<Versioned>(file("v2 pears"), answer(200));
  const auto* error = errorOf<HTTPResponseError>(response);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), HTTPResponseError::Case::malformedData);
  EXPECT_EQ(error->type(), TypeReference::of<Versioned>());
}

TEST_F(DownloadResponseTests, WhatIsThrownWhileReadingIsPassedOn) {
  EXPECT_EQ(make<Refusing>(file("content"), answer(200)).result.error()->message(), "I refuse");
  const auto response = make<Data>(missing(), answer(200));
  ASSERT_FALSE(response.result.isSuccessful());
  EXPECT_EQ(response.result.error()->domain(), "NSURLErrorDomain");
  EXPECT_EQ(response.result.error()->code(), -1100);
}

TEST_F(DownloadResponseTests, WithoutAnHTTPAnswerOrAFileItFailsToConstruct) {
  const auto noHTTP =
      std::make_shared<const URLResponse>(URL("file:///a"), std::nullopt, 1, std::nullopt);
  for (const auto& response :
       {make<Data>(file("content"), nullptr), make<Data>(file("content"), noHTTP),
        make<Data>(std::nullopt, answer(200)), make<Data>(std::nullopt, nullptr)}) {
    const auto* error = errorOf<HTTPUnknownError>(response);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), HTTPUnknownError::Case::downloadResponseFailedToConstruct);
    EXPECT_EQ(error->function(), "init(data:url:response:error:)");
    EXPECT_GT(error->line(), 0);
    EXPECT_TRUE(error->file().ends_with("DownloadResponse.cpp"));
  }
}

TEST_F(DownloadResponseTests, ItTellsItsTypeAndTheResult) {
  const auto response = make<File>(file("x"), answer(200));
  EXPECT_EQ(response.result.debugDescription(), ".success");
  EXPECT_TRUE(response.debugDescription().starts_with("Type: DownloadResponse"))
      << response.debugDescription();
  EXPECT_EQ(DownloadResult<Data>::failure(Error(std::runtime_error("x"))).debugDescription(),
            ".failure");
}

}  // namespace
}  // namespace tarn
