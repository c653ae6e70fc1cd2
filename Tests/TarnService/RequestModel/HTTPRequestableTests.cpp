#include <TarnService/RequestModel/DataRequestable.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace tarn {
namespace {

struct Complete : DataGetRequestable<Complete> {};
struct CompleteWithBody : DataPostRequestable<CompleteWithBody> {
  Data body;
};

struct WithoutMethod : DataRequestable<WithoutMethod> {};
struct WithoutResponse : HTTPGetRequestable<WithoutResponse> {
  using TaskProducer = DataTaskProducer;
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};
struct OtherResponse : DataGetRequestable<OtherResponse> {
  using Response = Data;
};
struct WithoutProducer : HTTPGetRequestable<WithoutProducer> {
  using Response = DataResponse;
  using TaskProducer = DataTaskProducer;
};
struct OtherProducer : DataGetRequestable<OtherProducer> {
  using TaskProducer = URLSession;
};
struct NotCopyable : DataGetRequestable<NotCopyable> {
  std::unique_ptr<int> owned;
};
struct OtherMethod : DataGetRequestable<OtherMethod> {
  int method = 0;
};
struct OtherHeaders : DataGetRequestable<OtherHeaders> {
  std::string headers() const { return {}; }
};
struct OtherURL : DataGetRequestable<OtherURL> {
  std::string url;
};
struct OtherBaseURL : DataGetRequestable<OtherBaseURL> {
  std::string baseURL() const { return {}; }
};
struct OtherPath : DataGetRequestable<OtherPath> {
  URL path() const { return URL("/"); }
};
struct OtherQueryItems : DataGetRequestable<OtherQueryItems> {
  int queryItems = 0;
};
struct OtherAcceptType : DataGetRequestable<OtherAcceptType> {
  HTTPMethod acceptType() const { return HTTPMethod::get; }
};
struct OtherTimeout : DataGetRequestable<OtherTimeout> {
  std::string timeoutInterval;
};
struct OtherCachePolicy : DataGetRequestable<OtherCachePolicy> {
  std::string cachePolicy;
};
struct OtherShouldSend : DataGetRequestable<OtherShouldSend> {
  std::string shouldSend;
};
struct OtherWait : DataGetRequestable<OtherWait> {
  std::string shouldWaitForConnectivity;
};
/// A property is read from a const request.
struct PropertyNotConst : DataRequestable<PropertyNotConst> {
  HTTPMethod method() { return HTTPMethod::get; }
};

struct WithoutBody : DataPostRequestable<WithoutBody> {};
struct OtherBody : DataPostRequestable<OtherBody> {
  const void* body = nullptr;
};
/// Bytes that are JSON already, or a JSON string?
struct TextBody : DataPostRequestable<TextBody> {
  std::string body;
};
/// Written as JSON.
struct EncodableBody : DataPostRequestable<EncodableBody> {
  std::map<std::string, int> body;
};
struct Text {
  Data asData() const { return Data("text"); }
};
struct WithoutContentType : DataPostRequestable<WithoutContentType> {
  Text body;
};
struct WithContentType : DataPostRequestable<WithContentType> {
  Text body;
  HTTPMediaType contentType = HTTPMediaType::textPlain;
};
struct OtherEncoder : DataPostRequestable<OtherEncoder> {
  Data body;
  std::string contentEncoder;
};

static_assert(HTTPRequestable<Complete>);
static_assert(!HTTPRequestable<WithoutMethod>);
static_assert(!HTTPRequestable<WithoutResponse>);
static_assert(!HTTPRequestable<OtherResponse>);
static_assert(!HTTPRequestable<WithoutProducer>);
static_assert(!HTTPRequestable<OtherProducer>);
static_assert(!HTTPRequestable<NotCopyable>);
static_assert(!HTTPRequestable<OtherMethod>);
static_assert(!HTTPRequestable<OtherHeaders>);
static_assert(!HTTPRequestable<OtherURL>);
static_assert(!HTTPRequestable<OtherBaseURL>);
static_assert(!HTTPRequestable<OtherPath>);
static_assert(!HTTPRequestable<OtherQueryItems>);
static_assert(!HTTPRequestable<OtherAcceptType>);
static_assert(!HTTPRequestable<OtherTimeout>);
static_assert(!HTTPRequestable<OtherCachePolicy>);
static_assert(!HTTPRequestable<OtherShouldSend>);
static_assert(!HTTPRequestable<OtherWait>);
static_assert(!HTTPRequestable<PropertyNotConst>);
static_assert(!HTTPRequestable<int>);

static_assert(HTTPBodyRequestable<CompleteWithBody>);
static_assert(HTTPBodyRequestable<WithContentType>);
static_assert(HTTPBodyRequestable<EncodableBody>);
static_assert(!HTTPBodyRequestable<Complete>);
static_assert(!HTTPBodyRequestable<WithoutBody>);
static_assert(!HTTPBodyRequestable<OtherBody>);
static_assert(!HTTPBodyRequestable<TextBody>);
static_assert(!HTTPBodyRequestable<WithoutContentType>);
static_assert(!HTTPBodyRequestable<OtherEncoder>);

TEST(HTTPRequestableTests, APropertyIsAFunctionOrAField) {
  struct Both {
    HTTPMethod method() const { return HTTPMethod::put; }
    std::string path = "items";
  };
  const Both both;
  EXPECT_EQ(detail::property::method(both), HTTPMethod::put);
  EXPECT_EQ(&detail::property::path(both), &both.path);  // a field is read without a copy
  static_assert(!detail::property::headersExists<Both>);
}

}  // namespace
}  // namespace tarn
