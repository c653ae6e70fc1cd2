#include <TarnService/RequestModel/DataRequestable.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

struct Get : DataGetRequestable<Get> {
  URL baseURL() const { return URL("http://localhost/api"); }
};
struct Delete : DataDeleteRequestable<Delete> {
  URL baseURL() const { return URL("http://localhost/api"); }
};
struct Post : DataPostRequestable<Post> {
  Data body{"bytes"};
  URL baseURL() const { return URL("http://localhost/api"); }
};
struct Put : DataPutRequestable<Put> {
  Data body{"bytes"};
  URL baseURL() const { return URL("http://localhost/api"); }
};
struct Patch : DataPatchRequestable<Patch> {
  Data body{"bytes"};
  URL baseURL() const { return URL("http://localhost/api"); }
};

/// The verbs alone, without the data producer.
template <class Self>
struct OnItsOwnProducer {
  using Response = DataResponse;
  using TaskProducer = DataTaskProducer;
};
struct BareGet : HTTPGetRequestable<BareGet>, OnItsOwnProducer<BareGet> {
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};
struct BareDelete : HTTPDeleteRequestable<BareDelete>, OnItsOwnProducer<BareDelete> {
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};
struct BarePost : HTTPPostRequestable<BarePost>, OnItsOwnProducer<BarePost> {
  Data body;
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};
struct BarePut : HTTPPutRequestable<BarePut>, OnItsOwnProducer<BarePut> {
  Data body;
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};
struct BarePatch : HTTPPatchRequestable<BarePatch>, OnItsOwnProducer<BarePatch> {
  Data body;
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};

/// A record of its own.
struct OwnResponse : HTTPResponseRecord<OwnResponse, DataResult> {
  using HTTPResponseRecord::HTTPResponseRecord;
  OwnResponse(std::optional<Data> data, std::optional<URL>, std::shared_ptr<const URLResponse>,
              std::optional<Error>)
      : HTTPResponseRecord(DataResult::success(std::move(data))) {}
};
struct Answered : DataGetRequestable<Answered> {
  using Response = OwnResponse;
};

template <class R>
constexpr bool isPlainRequest = HTTPRequestable<R> && !HTTPBodyRequestable<R>;
template <class R>
constexpr bool isBodyRequest = HTTPRequestable<R>&& HTTPBodyRequestable<R>;

static_assert(isPlainRequest<Get> && isPlainRequest<Delete>);
static_assert(isPlainRequest<BareGet> && isPlainRequest<BareDelete>);
static_assert(isBodyRequest<Post> && isBodyRequest<Put> && isBodyRequest<Patch>);
static_assert(isBodyRequest<BarePost> && isBodyRequest<BarePut> && isBodyRequest<BarePatch>);
static_assert(HTTPRequestable<Answered>);
static_assert(std::is_same_v<Get::Response, DataResponse>);
static_assert(std::is_same_v<Get::TaskProducer, DataTaskProducer>);
static_assert(std::is_same_v<Answered::Response, OwnResponse>);

TEST(DataRequestableTests, TheVerbsFixTheMethod) {
  EXPECT_EQ(BareGet().method(), HTTPMethod::get);
  EXPECT_EQ(BarePost().method(), HTTPMethod::post);
  EXPECT_EQ(BarePut().method(), HTTPMethod::put);
  EXPECT_EQ(BarePatch().method(), HTTPMethod::patch);
  EXPECT_EQ(BareDelete().method(), HTTPMethod::delete_);
}

TEST(DataRequestableTests, TheMethodIsSent) {
  EXPECT_EQ(Get().urlRequest().httpMethod(), "GET");
  EXPECT_EQ(Post().urlRequest().httpMethod(), "POST");
  EXPECT_EQ(Put().urlRequest().httpMethod(), "PUT");
  EXPECT_EQ(Patch().urlRequest().httpMethod(), "PATCH");
  EXPECT_EQ(Delete().urlRequest().httpMethod(), "DELETE");
}

TEST(DataRequestableTests, GetAndDeleteCarryNoBody) {
  EXPECT_FALSE(Get().urlRequest().httpBody().has_value());
  EXPECT_FALSE(Get().urlRequest().value("Content-Type").has_value());
  EXPECT_FALSE(Delete().urlRequest().httpBody().has_value());
  EXPECT_FALSE(Delete().urlRequest().value("Content-Type").has_value());
}

TEST(DataRequestableTests, PostPutAndPatchCarryTheirBytes) {
  const Post post;
  const auto request = post.urlRequest();
  EXPECT_EQ(request.httpBody(), Data("bytes"));
  EXPECT_EQ(request.httpBody()->bytes(), post.body.bytes());
  EXPECT_EQ(request.value("Content-Type"), "application/octet-stream");
  EXPECT_EQ(Put().urlRequest().httpBody(), Data("bytes"));
  EXPECT_EQ(Patch().urlRequest().httpBody(), Data("bytes"));
}

TEST(DataRequestableTests, RunOnTheSharedProducer) {
  ASSERT_NE(DataTaskProducer::shared(), nullptr);
  EXPECT_EQ(Get().taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Post().taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Put().taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Patch().taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Delete().taskProducer(), DataTaskProducer::shared());
}

}  // namespace
}  // namespace tarn
