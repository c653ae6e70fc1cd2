#include <Platform/JSON/JSONValue.hpp>
#include <Support/Collector.hpp>
#include <Support/Compression.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using testing::ElementsAre;
using testing::IsEmpty;

struct User {
  int id{};
  std::string name;
  std::optional<std::string> city;
};

/// Named by its server in another style than by us.
struct Person {
  std::string firstName;

  static const JSONDecoder& decoder() {
    static const JSONDecoder instance = [] {
      JSONDecoder decoder;
      decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
      return decoder;
    }();
    return instance;
  }
  static const JSONEncoder& encoder() {
    static const JSONEncoder instance = [] {
      JSONEncoder encoder;
      encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
      return encoder;
    }();
    return instance;
  }
};

/// JSON that is turned into bytes beforehand.
struct Prepared {
  Data asData() const { return Data("{ \"id\" : 7 }"); }
  static const JSONEncoder& encoder() { return jsonEncoder(); }
  void encode(JSONWriter& writer) const { writer.null(); }
};
struct Unwritable {
  double value = 0;
};
struct Refusing {
  static Refusing decode(JSONReader& reader) {
    reader.skip();
    throw std::runtime_error("not today");
  }
};
class Opaque {
 public:
  int number() const { return number_; }

 private:
  int number_ = 0;
};

template <class JSON>
struct Get : JSONGetRequestable<Get<JSON>, JSON> {
  explicit Get(const std::string& address) : url(address) {}
  URL url;
};
struct Delete : JSONDeleteRequestable<Delete, User> {
  explicit Delete(const std::string& address) : url(address) {}
  URL url;
};
template <class Body>
struct Post : JSONPostRequestable<Post<Body>, User> {
  explicit Post(const std::string& address, Body body) : url(address), body(std::move(body)) {}
  URL url;
  Body body;
};
struct Put : JSONPutRequestable<Put, User> {
  explicit Put(const std::string& address, User body) : url(address), body(std::move(body)) {}
  URL url;
  User body;
};
struct Patch : JSONPatchRequestable<Patch, User> {
  explicit Patch(const std::string& address, User body) : url(address), user(std::move(body)) {}
  URL url;
  User user;
  const User& body() const { return user; }
};
/// Any method.
struct Report : JSONRequestable<Report, JSONValue, JSONBodyRequestable<Report>> {
  explicit Report(const std::string& address) : url(address) {}
  URL url;
  HTTPMethod method = HTTPMethod("REPORT");
  std::map<std::string, int> body = {{"depth", 1}};
};
/// A JSON body, an answer in bytes.
template <class Body>
struct DataPost : DataPostRequestable<DataPost<Body>> {
  explicit DataPost(const std::string& address, Body body) : url(address), body(std::move(body)) {}
  URL url;
  Body body;
};
struct Vendor : JSONPostRequestable<Vendor, User> {
  explicit Vendor(const std::string& address) : url(address) {}
  URL url;
  User body;
  HTTPMediaType contentType = HTTPMediaType("application/vnd.shop+json");
  HTTPMediaType acceptType = HTTPMediaType("application/vnd.shop+json");
};
struct Zipped : JSONPostRequestable<Zipped, User> {
  struct Encoder : HTTPContentEncoderDefaults<Encoder> {
    explicit Encoder(Data plain) : plain(std::move(plain)) {}
    HTTPContentEncodingType encodingType() const { return HTTPContentEncodingType::gzip; }
    Data encodedData() const { return Data(test::gzip(plain.view())); }
    Data plain;
  };
  explicit Zipped(const std::string& address) : url(address) {}
  URL url;
  User body;
  std::optional<HTTPContentEncoderType> contentEncoder() const {
    return HTTPContentEncoderType::of<Encoder>();
  }
};
struct OpaqueBody : JSONPostRequestable<OpaqueBody, User> {
  Opaque body;
};
struct TextBody : JSONPostRequestable<TextBody, User> {
  std::string body;
};

template <class R, class JSON>
constexpr bool isAnsweredWith = HTTPRequestable<R>&& std::is_same_v<typename R::JSON, JSON>&&
    std::is_same_v<typename R::Response, JSONResponse<JSON>>&&
        std::is_same_v<typename R::TaskProducer, DataTaskProducer>;
static_assert(isAnsweredWith<Get<User>, User> && !HTTPBodyRequestable<Get<User>>);
static_assert(isAnsweredWith<Delete, User> && !HTTPBodyRequestable<Delete>);
static_assert(isAnsweredWith<Post<User>, User> && HTTPBodyRequestable<Post<User>>);
static_assert(isAnsweredWith<Put, User> && HTTPBodyRequestable<Put>);
static_assert(isAnsweredWith<Patch, User> && HTTPBodyRequestable<Patch>);
static_assert(isAnsweredWith<Report, JSONValue> && HTTPBodyRequestable<Report>);
static_assert(HTTPBodyRequestable<Post<std::vector<User>>>);
static_assert(HTTPBodyRequestable<Post<std::map<std::string, User>>>);
static_assert(!HTTPBodyRequestable<OpaqueBody>);
static_assert(!HTTPBodyRequestable<TextBody>);  // bytes that are JSON already, or a JSON string?

const std::string address = "http://localhost/users";

TEST(JSONRequestableTests, TheVerbsFixTheMethod) {
  EXPECT_EQ(Get<User>(address).method(), HTTPMethod::get);
  EXPECT_EQ(Post<User>(address, {}).method(), HTTPMethod::post);
  EXPECT_EQ(Put(address, {}).method(), HTTPMethod::put);
  EXPECT_EQ(Patch(address, {}).method(), HTTPMethod::patch);
  EXPECT_EQ(Delete(address).method(), HTTPMethod::delete_);
}

TEST(JSONRequestableTests, RunOnTheSharedProducer) {
  EXPECT_EQ(Get<User>(address).taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Post<User>(address, {}).taskProducer(), DataTaskProducer::shared());
  EXPECT_EQ(Delete(address).taskProducer(), DataTaskProducer::shared());
}

/// What encoding the request's body throws.
template <class R>
std::string encodingFailure(const R& request) {
  try {
    request.urlRequest();
    return "(nothing)";
  } catch (const EncodingError& error) {
    return error.message();
  }
}

TEST(JSONRequestableTests, ABodyThatCanNotBeWrittenThrows) {
  const Post<Unwritable> request(address, {std::numeric_limits<double>::infinity()});
  EXPECT_TRUE(encodingFailure(request).starts_with("value: ")) << encodingFailure(request);
}

class JSONRequestableWireTests : public test::ServiceTest {
 protected:
  JSONRequestableWireTests() {
    server.route("/user", Script().respond(200, {{"Content-Type", "application/json"}},
                                           R"({"id": 7, "name": "ada"})"));
  }

  template <class R>
  typename R::Response send(const R& request) {
    const test::Collector<typename R::Response> responses;
    request.send(std::nullopt, responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }
  template <class JSON>
  JSONResponse<JSON> get(const std::string& path) {
    return send(Get<JSON>(server.url(path)));
  }
  template <class Error>
  const Error* failure(const std::optional<tarn::Error>& error) {
    const Error* typed = error ? error->as<Error>() : nullptr;
    EXPECT_NE(typed, nullptr) << (error ? error->message() : "no error");
    return typed;
  }
  /// The only request that has arrived, of this method and with this body.
  void expectRequest(const std::string& method, const std::optional<std::string>& body,
                     const std::string& type = "application/json") const {
    ASSERT_EQ(server.requestCount(), 1u);
    const auto request = server.request(0);
    EXPECT_EQ(request.method, method);
    EXPECT_THAT(request.headerValues("Accept"), ElementsAre("application/json"));
    EXPECT_EQ(request.body, body.value_or(""));
    if (body)
      EXPECT_THAT(request.headerValues("Content-Type"), ElementsAre(type));
    else
      EXPECT_THAT(request.headerValues("Content-Type"), IsEmpty());
  }
  static void expectAda(const JSONResponse<User>& response) {
    ASSERT_TRUE(response.result.body().has_value());
    EXPECT_EQ(response.result.body()->id, 7);
    EXPECT_EQ(response.result.body()->name, "ada");
  }
  auto debugLines() const { return log.messages(LogLevel::debug); }

  test::ScriptedServer server;
};

// MARK: What is sent

TEST_F(JSONRequestableWireTests, GetAsksForJSON) {
  expectAda(get<User>("/user"));
  expectRequest("GET", std::nullopt);
}

TEST_F(JSONRequestableWireTests, DeleteCarriesNoBody) {
  expectAda(send(Delete(server.url("/user"))));
  expectRequest("DELETE", std::nullopt);
}

TEST_F(JSONRequestableWireTests, PostSendsItsBodyAsJSON) {
  expectAda(send(Post<User>(server.url("/user"), {7, "ada", "london"})));
  expectRequest("POST", R"({"id":7,"name":"ada","city":"london"})");
}

TEST_F(JSONRequestableWireTests, PutSendsItsBodyAsJSON) {
  expectAda(send(Put(server.url("/user"), {7, "ada", {}})));
  expectRequest("PUT", R"({"id":7,"name":"ada"})");
}

TEST_F(JSONRequestableWireTests, PatchSendsItsBodyAsJSON) {
  expectAda(send(Patch(server.url("/user"), {7, "ada", {}})));
  expectRequest("PATCH", R"({"id":7,"name":"ada"})");
}

TEST_F(JSONRequestableWireTests, AnyMethodSendsAnyEncodableBody) {
  EXPECT_EQ((*send(Report(server.url("/user"))).result.body())["id"].as<int>(), 7);
  expectRequest("REPORT", R"({"depth":1})");
}

TEST_F(JSONRequestableWireTests, AListIsABody) {
  send(Post<std::vector<User>>(server.url("/user"), {{1, "a", {}}, {2, "b", {}}}));
  expectRequest("POST", R"([{"id":1,"name":"a"},{"id":2,"name":"b"}])");
}

TEST_F(JSONRequestableWireTests, TheBodyIsWrittenWithTheEncoderThatItNames) {
  send(Post<std::vector<Person>>(server.url("/user"), {{"Ada"}}));
  expectRequest("POST", R"([{"first_name":"Ada"}])");
}

TEST_F(JSONRequestableWireTests, ABodyThatIsBytesAndJSONGivesItsBytes) {
  send(Post<Prepared>(server.url("/user"), {}));
  expectRequest("POST", "{ \"id\" : 7 }");
}

TEST_F(JSONRequestableWireTests, TheMediaTypesCanBeOthers) {
  send(Vendor(server.url("/user")));
  const auto request = server.request(0);
  EXPECT_EQ(request.header("Content-Type"), "application/vnd.shop+json");
  EXPECT_EQ(request.header("Accept"), "application/vnd.shop+json");
}

TEST_F(JSONRequestableWireTests, TheBodyIsEncodedOnceMoreWhereTheRequestHasAnEncoder) {
  send(Zipped(server.url("/user")));
  const auto request = server.request(0);
  EXPECT_EQ(request.header("Content-Type"), "application/json");
  EXPECT_EQ(request.header("Content-Encoding"), "gzip");
  EXPECT_EQ(test::gunzip(request.body), R"({"id":0,"name":""})");
}

TEST_F(JSONRequestableWireTests, ABodyThatCanNotBeWrittenIsNotSent) {
  const Post<Unwritable> request(server.url("/user"), {std::numeric_limits<double>::infinity()});
  expectLog(LogLevel::error,
            "Failure sending request Post<Unwritable>: " + encodingFailure(request));
  const auto response = send(request);
  const auto error = response.result.error();
  const auto* failed = failure<EncodingError>(error);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->codingPath(), CodingPath{CodingKey("value")});
  EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(JSONRequestableWireTests, ADataRequestSendsAJSONBodyToo) {
  const auto response = send(DataPost<std::vector<User>>(server.url("/user"), {{1, "a", {}}}));
  EXPECT_EQ(response.result.body(), Data(R"({"id": 7, "name": "ada"})"));
  const auto request = server.request(0);
  EXPECT_EQ(request.body, R"([{"id":1,"name":"a"}])");
  EXPECT_THAT(request.headerValues("Content-Type"), ElementsAre("application/json"));
  EXPECT_THAT(request.headerValues("Accept"), ElementsAre("*/*"));
}

// MARK: What is answered

TEST_F(JSONRequestableWireTests, AListIsAnAnswer) {
  server.route("/users", Script().respondChunked(200, {},
                                                 {"[{\"id\": 1, \"na", "me\": \"a\"}",
                                                  ", {\"id\": 2, \"name\": \"b\"}]"}));
  const auto response = get<std::vector<User>>("/users");
  ASSERT_TRUE(response.result.body().has_value());
  ASSERT_EQ(response.result.body()->size(), 2u);
  EXPECT_EQ(response.result.body()->at(1).name, "b");
}

TEST_F(JSONRequestableWireTests, TheAnswerIsReadWithTheDecoderThatItNames) {
  server.route("/person", Script().respond(200, {}, R"({"first_name": "Ada"})"));
  const auto response = get<Person>("/person");
  ASSERT_TRUE(response.result.body().has_value());
  EXPECT_EQ(response.result.body()->firstName, "Ada");
}

TEST_F(JSONRequestableWireTests, ACompressedAnswerIsReadAsAnyOther) {
  server.route("/zipped", Script().respond(200, {{"Content-Encoding", "gzip"}},
                                           test::gzip(R"({"id": 7, "name": "ada"})")));
  const auto response = get<User>("/zipped");
  expectAda(response);
  EXPECT_EQ(response.data, Data(R"({"id": 7, "name": "ada"})"));
}

TEST_F(JSONRequestableWireTests, AnEmptyAnswerIsASuccessWithoutABody) {
  server.route("/empty", Script().respond(200));
  server.route("/none", Script().respond(204));
  for (const auto* path : {"/empty", "/none"}) {
    SCOPED_TRACE(path);
    const auto response = get<User>(path);
    EXPECT_TRUE(response.result.isSuccessful());
    EXPECT_FALSE(response.result.body().has_value());
  }
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONRequestableWireTests, AWrongDocumentIsAFailureWithOneDebugLine) {
  const std::string json = R"([{"id": 1, "name": "a"}, {"id": "two", "name": "b"}])";
  server.route("/wrong", Script().respond(200, {}, json));
  const auto response = get<std::vector<User>>("/wrong");
  const auto error = response.result.error();
  const auto* failed = failure<HTTPResponseError>(error);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPResponseError::Case::jsonDecoding);
  EXPECT_EQ(failed->decodingError()->message(),
            "[1].id: expected a number, found the string \"two\"");
  EXPECT_EQ(response.data, Data(json));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_THAT(debugLines(),
              ElementsAre("Error decoding json of type vector<User> with json: \n " + json));
}

TEST_F(JSONRequestableWireTests, ACodingThatRefusesIsAFailureWithOneDebugLine) {
  const auto response = get<Refusing>("/user");
  const auto error = response.result.error();
  const auto* failed = failure<HTTPUnknownError>(error);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPUnknownError::Case::unableToParseJSON);
  EXPECT_EQ(failed->originalError()->message(), "not today");
  EXPECT_THAT(debugLines(),
              ElementsAre("Unknown error decoding json of type Refusing with json: \n "
                          R"({"id": 7, "name": "ada"})"));
}

TEST_F(JSONRequestableWireTests, AnErrorStatusKeepsTheServersBody) {
  server.route("/gone", Script().respond(404, {{"Content-Type", "application/json"}},
                                         R"({"id": 7, "name": "ada"})"));
  const auto response = get<User>("/gone");
  const auto error = response.result.error();
  const auto* failed = failure<HTTPResponseError>(error);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->status(), HTTPStatus(HTTPStatus::notFound));
  EXPECT_EQ(response.data, Data(R"({"id": 7, "name": "ada"})"));
  EXPECT_EQ(response.mimeType, "application/json");
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONRequestableWireTests, AnAnswerThatBreaksOffIsNotDecoded) {
  server.route(
      "/broken",
      Script().head(200, {{"Content-Length", "100"}}).send(R"({"id": 7, "name": "ada"})").close());
  const auto response = get<User>("/broken");
  const auto error = response.result.error();
  const auto* failed = failure<CFNetworkErrors>(error);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->rawValue(), -1005);
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_THAT(debugLines(), IsEmpty());
}

}  // namespace
}  // namespace tarn
