#include <TarnService/RequestModel/DataRequest.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

const URL address("http://localhost/items?all=1#top");
const HTTPHeaders headers = {{"X-Shop", "tea"}};
const HTTPQueryItems queryItems = {{"n", 1}};

template <class R>
constexpr bool isPlainRequest = HTTPRequestable<R> && !HTTPBodyRequestable<R>;
template <class R>
constexpr bool isBodyRequest =
    HTTPRequestable<R>&& HTTPBodyRequestable<R>&& std::is_same_v<detail::BodyOf<R>, Data>;
template <class R>
constexpr bool isAnsweredWithData = std::is_same_v<typename R::Response, DataResponse>&&
    std::is_same_v<typename R::TaskProducer, DataTaskProducer>;

static_assert(isBodyRequest<DataRequest> && isAnsweredWithData<DataRequest>);
static_assert(isPlainRequest<DataGetRequest> && isAnsweredWithData<DataGetRequest>);
static_assert(isBodyRequest<DataPostRequest> && isAnsweredWithData<DataPostRequest>);
static_assert(isBodyRequest<DataPutRequest> && isAnsweredWithData<DataPutRequest>);
static_assert(isBodyRequest<DataPatchRequest> && isAnsweredWithData<DataPatchRequest>);
static_assert(isPlainRequest<DataDeleteRequest> && isAnsweredWithData<DataDeleteRequest>);
static_assert(!std::is_constructible_v<DataRequest, URL>);  // the method is the caller's

/// Calls `check` with one request of every type, made of all its fields, and its method.
template <class Check>
void forEveryType(Check check) {
  check(DataRequest(address, HTTPMethod("PURGE"), Data("bytes"), headers, queryItems), "PURGE");
  check(DataGetRequest(address, headers, queryItems), "GET");
  check(DataPostRequest(address, Data("bytes"), headers, queryItems), "POST");
  check(DataPutRequest(address, Data("bytes"), headers, queryItems), "PUT");
  check(DataPatchRequest(address, Data("bytes"), headers, queryItems), "PATCH");
  check(DataDeleteRequest(address, headers, queryItems), "DELETE");
}

TEST(DataRequestTests, StoresItsParts) {
  forEveryType([](const auto& request, const std::string& method) {
    SCOPED_TRACE(method);
    EXPECT_EQ(request.url, address);
    EXPECT_EQ(request.method.rawValue, method);
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.queryItems, queryItems);
    if constexpr (requires { request.body; }) {
      EXPECT_EQ(request.body, Data("bytes"));
    }
  });
}

TEST(DataRequestTests, SendsToItsURLVerbatim) {
  forEveryType([](const auto& request, const std::string& method) {
    SCOPED_TRACE(method);
    const URLRequest urlRequest = request.urlRequest();
    EXPECT_EQ(urlRequest.url(), address);
    EXPECT_EQ(urlRequest.url().absoluteString(), "http://localhost/items?all=1#top");
    EXPECT_EQ(urlRequest.httpMethod(), method);
    EXPECT_EQ(urlRequest.value("X-Shop"), "tea");
    EXPECT_EQ(urlRequest.value("Accept"), "*/*");
  });
}

TEST(DataRequestTests, SendsItsBytesAsAnOctetStream) {
  forEveryType([](const auto& request, const std::string& method) {
    SCOPED_TRACE(method);
    const URLRequest urlRequest = request.urlRequest();
    if constexpr (requires { request.body; }) {
      EXPECT_EQ(urlRequest.httpBody(), Data("bytes"));
      EXPECT_EQ(urlRequest.value("Content-Type"), "application/octet-stream");
    } else {
      EXPECT_FALSE(urlRequest.httpBody().has_value());
      EXPECT_FALSE(urlRequest.value("Content-Type").has_value());
    }
    EXPECT_FALSE(urlRequest.value("Content-Encoding").has_value());
  });
}

TEST(DataRequestTests, HasNoPathAndTheBaseOfItsURL) {
  forEveryType([](auto request, const std::string& method) {
    SCOPED_TRACE(method);
    EXPECT_EQ(request.path(), "");
    EXPECT_EQ(request.baseURL(), URL::empty());
    const URL base("http://localhost/api/");
    request.url = *URL::parse("items", base);
    EXPECT_EQ(request.baseURL(), base);
    EXPECT_EQ(request.urlRequest().url().absoluteString(), "http://localhost/api/items");
  });
}

TEST(DataRequestTests, RunsOnTheSharedProducer) {
  forEveryType([](const auto& request, const std::string& method) {
    EXPECT_EQ(request.taskProducer(), DataTaskProducer::shared()) << method;
  });
}

TEST(DataRequestTests, FieldsCanBeChanged) {
  forEveryType([](auto request, const std::string& method) {
    SCOPED_TRACE(method);
    request.method = HTTPMethod("LOCK");
    request.url = URL("http://localhost/other");
    request.headers["X-Shop"] = "coffee";
    const URLRequest urlRequest = request.urlRequest();
    EXPECT_EQ(urlRequest.httpMethod(), "LOCK");
    EXPECT_EQ(urlRequest.url().path(), "/other");
    EXPECT_EQ(urlRequest.value("X-Shop"), "coffee");
  });
}

TEST(DataRequestTests, ChangingTheMethodKeepsTheBody) {
  DataPostRequest request(address, Data("bytes"));
  request.method = HTTPMethod::put;
  const URLRequest urlRequest = request.urlRequest();
  EXPECT_EQ(urlRequest.httpMethod(), "PUT");
  EXPECT_EQ(urlRequest.httpBody(), Data("bytes"));
}

TEST(DataRequestTests, NeedsNoMoreThanTheURL) {
  const DataGetRequest get(address);
  EXPECT_TRUE(get.headers.empty());
  EXPECT_TRUE(get.queryItems.empty());
  const DataDeleteRequest deletion(address);
  EXPECT_TRUE(deletion.headers.empty());
  EXPECT_TRUE(deletion.queryItems.empty());
  const DataRequest any(address, HTTPMethod::get);
  EXPECT_TRUE(any.body.empty());
  EXPECT_TRUE(any.headers.empty());
  const DataPostRequest post(address, Data("bytes"));
  EXPECT_TRUE(post.headers.empty());
  EXPECT_TRUE(post.queryItems.empty());
}

TEST(DataRequestTests, TheEmptyURLIsRefusedWithTheQueryItemsInItsText) {
  forEveryType([](auto request, const std::string& method) {
    SCOPED_TRACE(method);
    request.url = URL("/");
    try {
      request.urlRequest();
      FAIL();
    } catch (const HTTPRequestError& error) {
      EXPECT_EQ(error.urlText(), "/n=1");
    }
  });
}

}  // namespace
}  // namespace tarn
