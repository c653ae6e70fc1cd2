#include <Platform/JSON/JSONValue.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <limits>
#include <map>
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
};

/// Names an encoder of its own.
struct Person {
  std::string firstName;

  static const JSONEncoder& encoder() {
    static const JSONEncoder instance = [] {
      JSONEncoder encoder;
      encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
      return encoder;
    }();
    return instance;
  }
};

class Opaque {
 public:
  int number() const { return number_; }

 private:
  int number_ = 0;
};

const URL address("http://localhost/users?all=1#top");
const HTTPHeaders headers = {{"X-Shop", "tea"}};
const HTTPQueryItems queryItems = {{"n", 1}};
const User ada{7, "ada"};
const std::string adaJSON = R"({"id":7,"name":"ada"})";

template <class R>
constexpr bool isPlainRequest = HTTPRequestable<R> && !HTTPBodyRequestable<R>;
template <class R>
constexpr bool isBodyRequest =
    HTTPRequestable<R>&& HTTPBodyRequestable<R>&& std::is_same_v<detail::BodyOf<R>, JSONReference>;
template <class R>
constexpr bool isAnsweredWithUser = std::is_same_v<typename R::Response, JSONResponse<User>>&&
    std::is_same_v<typename R::TaskProducer, DataTaskProducer>;

static_assert(isBodyRequest<JSONRequest<User>> && isAnsweredWithUser<JSONRequest<User>>);
static_assert(isPlainRequest<JSONGetRequest<User>> && isAnsweredWithUser<JSONGetRequest<User>>);
static_assert(isBodyRequest<JSONPostRequest<User>> && isAnsweredWithUser<JSONPostRequest<User>>);
static_assert(isBodyRequest<JSONPutRequest<User>> && isAnsweredWithUser<JSONPutRequest<User>>);
static_assert(isBodyRequest<JSONPatchRequest<User>> && isAnsweredWithUser<JSONPatchRequest<User>>);
static_assert(isPlainRequest<JSONDeleteRequest<User>> &&
              isAnsweredWithUser<JSONDeleteRequest<User>>);
// The method is the caller's, and so is the body.
static_assert(!std::is_constructible_v<JSONRequest<User>, URL>);
static_assert(!std::is_constructible_v<JSONRequest<User>, URL, HTTPMethod>);
static_assert(!std::is_constructible_v<JSONPostRequest<User>, URL>);
// A body is any encodable value; bytes and texts are not taken for JSON.
static_assert(std::is_constructible_v<JSONPostRequest<User>, URL, User>);
static_assert(std::is_constructible_v<JSONPostRequest<User>, URL, std::vector<User>>);
static_assert(std::is_constructible_v<JSONPostRequest<User>, URL, JSONReference>);
static_assert(std::is_constructible_v<JSONReference, std::string>);
static_assert(!std::is_convertible_v<User, JSONReference>);
static_assert(!std::is_constructible_v<JSONReference, Data>);
static_assert(!std::is_constructible_v<JSONReference, Opaque>);
static_assert(!std::is_constructible_v<JSONPostRequest<User>, URL, Data>);
static_assert(!std::is_constructible_v<JSONPostRequest<User>, URL, std::string>);
static_assert(!std::is_constructible_v<JSONPostRequest<User>, URL, const char*>);
static_assert(!std::is_constructible_v<JSONPostRequest<User>, URL, Opaque>);

/// Calls `check` with one request of every type, made of all its fields, and its method.
template <class Check>
void forEveryType(const URL& url, Check check) {
  check(JSONRequest<User>(url, HTTPMethod("PURGE"), ada, headers, queryItems), "PURGE");
  check(JSONGetRequest<User>(url, headers, queryItems), "GET");
  check(JSONPostRequest<User>(url, ada, headers, queryItems), "POST");
  check(JSONPutRequest<User>(url, ada, headers, queryItems), "PUT");
  check(JSONPatchRequest<User>(url, ada, headers, queryItems), "PATCH");
  check(JSONDeleteRequest<User>(url, headers, queryItems), "DELETE");
}

TEST(JSONRequestTests, StoresItsParts) {
  forEveryType(address, [](const auto& request, const std::string& method) {
    SCOPED_TRACE(method);
    EXPECT_EQ(request.url, address);
    EXPECT_EQ(request.method.rawValue, method);
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.queryItems, queryItems);
    if constexpr (requires { request.body; }) {
      EXPECT_EQ(request.body.template asJSON<User>().name, "ada");
    }
    EXPECT_EQ(request.path(), "");
    EXPECT_EQ(request.baseURL(), URL::empty());
    EXPECT_EQ(request.taskProducer(), DataTaskProducer::shared());
  });
}

TEST(JSONRequestTests, NeedsNoMoreThanTheURLAndTheBody) {
  EXPECT_TRUE(JSONGetRequest<User>(address).headers.empty());
  EXPECT_TRUE(JSONGetRequest<User>(address).queryItems.empty());
  EXPECT_TRUE(JSONDeleteRequest<User>(address).headers.empty());
  EXPECT_TRUE(JSONPostRequest<User>(address, ada).headers.empty());
  EXPECT_TRUE(JSONPostRequest<User>(address, ada).queryItems.empty());
  EXPECT_TRUE(JSONRequest<User>(address, HTTPMethod::put, ada).headers.empty());
}

TEST(JSONRequestTests, HasTheBaseOfItsURL) {
  const URL base("http://localhost/api/");
  const JSONGetRequest<User> request(*URL::parse("users", base));
  EXPECT_EQ(request.baseURL(), base);
  EXPECT_EQ(request.urlRequest().url().absoluteString(), "http://localhost/api/users");
}

TEST(JSONRequestTests, FieldsCanBeChanged) {
  forEveryType(address, [](auto request, const std::string& method) {
    SCOPED_TRACE(method);
    request.method = HTTPMethod("LOCK");
    request.url = URL("http://localhost/other");
    request.headers["X-Shop"] = "coffee";
    if constexpr (requires { request.body; }) request.body = JSONReference(std::vector{1, 2});
    const URLRequest urlRequest = request.urlRequest();
    EXPECT_EQ(urlRequest.httpMethod(), "LOCK");
    EXPECT_EQ(urlRequest.url().path(), "/other");
    EXPECT_EQ(urlRequest.value("X-Shop"), "coffee");
    if constexpr (requires { request.body; }) {
      EXPECT_EQ(urlRequest.httpBody(), Data("[1,2]"));
    }
  });
}

// MARK: Over the wire

class JSONRequestWireTests : public test::ServiceTest {
 protected:
  JSONRequestWireTests() {
    server.setHandler([](const auto&) {
      return Script().respond(200, {{"Content-Type", "application/json"}}, adaJSON);
    });
  }

  template <class R>
  typename R::Response send(const R& request) {
    const test::Collector<typename R::Response> responses;
    request.send(std::nullopt, responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }

  test::ScriptedServer server;
};

TEST_F(JSONRequestWireTests, EveryTypeSendsItsMethodAndBodyToItsURLVerbatim) {
  std::size_t index = 0;
  forEveryType(
      URL(server.url("/users?all=1")), [&](const auto& request, const std::string& method) {
        SCOPED_TRACE(method);
        const auto response = send(request);
        ASSERT_TRUE(response.result.body().has_value());
        EXPECT_EQ(response.result.body()->name, "ada");
        const auto received = server.request(index++);
        EXPECT_EQ(received.method, method);
        EXPECT_EQ(received.target, "/users?all=1");  // without n=1
        EXPECT_EQ(received.header("X-Shop"), "tea");
        EXPECT_THAT(received.headerValues("Accept"), ElementsAre("application/json"));
        if constexpr (requires { request.body; }) {
          EXPECT_EQ(received.body, adaJSON);
          EXPECT_THAT(received.headerValues("Content-Type"), ElementsAre("application/json"));
        } else {
          EXPECT_EQ(received.body, "");
          EXPECT_THAT(received.headerValues("Content-Type"), IsEmpty());
        }
        EXPECT_THAT(received.headerValues("Content-Encoding"), IsEmpty());
      });
  EXPECT_EQ(index, 6u);
}

TEST_F(JSONRequestWireTests, ChangingTheMethodKeepsTheBody) {
  JSONPostRequest<User> request(URL(server.url("/users/7")), ada);
  request.method = HTTPMethod::put;
  send(request);
  EXPECT_EQ(server.request(0).method, "PUT");
  EXPECT_EQ(server.request(0).body, adaJSON);
  EXPECT_EQ(server.request(0).header("Content-Type"), "application/json");
}

TEST_F(JSONRequestWireTests, AnAnswerOfNoInterestIsReadAsEmpty) {
  const auto response =
      send(JSONRequest<EmptyJSON>(URL(server.url("/users")), HTTPMethod::post, EmptyJSON()));
  EXPECT_EQ(response.result.body(), EmptyJSON());
  EXPECT_EQ(server.request(0).body, "{}");
  EXPECT_EQ(server.request(0).header("Content-Type"), "application/json");
}

TEST_F(JSONRequestWireTests, OnlyStatusesFrom200To206AreDecoded) {
  struct Row {
    int status;
    std::optional<HTTPStatus> refused;
  };
  for (const auto& row :
       {Row{200, std::nullopt}, Row{206, std::nullopt}, Row{207, HTTPStatus(HTTPStatus::unknown)},
        Row{304, HTTPStatus(HTTPStatus::notModified)}}) {
    SCOPED_TRACE(row.status);
    server.route("/status", Script().respond(row.status, {}, row.status == 304 ? "" : adaJSON));
    const auto response = send(JSONGetRequest<User>(URL(server.url("/status"))));
    EXPECT_EQ(response.result.body().has_value(), !row.refused);
    if (!row.refused) continue;
    const auto error = response.result.error();
    ASSERT_TRUE(error && error->as<HTTPResponseError>());
    EXPECT_EQ(error->as<HTTPResponseError>()->status(), row.refused);
  }
}

TEST_F(JSONRequestWireTests, BytesThatAreNoTextAreNoJSON) {
  server.route("/bytes", Script().respond(200, {}, "\xFF\xFE"));
  const auto response = send(JSONGetRequest<User>(URL(server.url("/bytes"))));
  const auto error = response.result.error();
  ASSERT_TRUE(error && error->as<HTTPResponseError>());
  EXPECT_EQ(error->as<HTTPResponseError>()->json(), "");
  EXPECT_EQ(response.data, Data("\xFF\xFE"));
}

// MARK: JSONReference

TEST(JSONReferenceTests, IsWrittenAsItsValue) {
  struct Row {
    JSONReference reference;
    std::string json;
  };
  const Row rows[] = {
      {JSONReference(ada), adaJSON},
      {JSONReference(std::vector{1, 2}), "[1,2]"},
      {JSONReference(std::map<std::string, User>{{"first", ada}}), "{\"first\":" + adaJSON + "}"},
      {JSONReference(std::optional<User>()), "null"},
      {JSONReference(7), "7"},
      {JSONReference(true), "true"},
      {JSONReference(std::string("tea")), "\"tea\""},
      {JSONReference("tea"), "\"tea\""},
      {JSONReference(std::string_view("tea")), "\"tea\""},
      {JSONReference(JSONValue(JSONValue::Object{{"a", JSONValue::Array{1, nullptr}}})),
       "{\"a\":[1,null]}"},
      {JSONReference(EmptyJSON()), "{}"},
      {JSONReference(std::vector{Data("ada")}), "[\"YWRh\"]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    EXPECT_EQ(row.reference.asData(), Data(row.json));
    EXPECT_EQ(jsonEncoder().encode(row.reference), Data(row.json));
    EXPECT_EQ(jsonEncoder().encode(std::vector{row.reference}), Data("[" + row.json + "]"));
  }
}

/// A message that carries any value.
struct Envelope {
  std::string kind;
  JSONReference content;
  std::vector<JSONReference> more;
};

TEST(JSONReferenceTests, IsAMemberAsAnyOther) {
  const Envelope envelope{"users", JSONReference(ada), {JSONReference(1), JSONReference("two")}};
  EXPECT_EQ(jsonEncoder().encode(envelope),
            Data("{\"kind\":\"users\",\"content\":" + adaJSON + ",\"more\":[1,\"two\"]}"));
}

TEST(JSONReferenceTests, IsAlwaysWrittenWithTheEncoderOfTheProcess) {
  EXPECT_EQ(&JSONReference::encoder(), &jsonEncoder());
  EXPECT_EQ(&encoderOf<JSONReference>(), &jsonEncoder());
  EXPECT_EQ(JSONReference(Person{"Ada"}).asData(), Data(R"({"firstName":"Ada"})"));
}

TEST(JSONReferenceTests, GivesItsValueBack) {
  const JSONReference reference(ada);
  EXPECT_EQ(reference.asJSON<User>().id, 7);
  const auto* json = std::any_cast<User>(&reference.json());
  EXPECT_EQ(json, &reference.asJSON<User>());
  EXPECT_EQ(JSONReference("tea").asJSON<std::string>(), "tea");
}

TEST(JSONReferenceTests, AnotherTypeIsRefused) {
  const JSONReference reference(ada);
  try {
    reference.asJSON<Person>();
    FAIL();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Case::typeMismatch);
    EXPECT_EQ(error.message(), "expected Person, found User");
    EXPECT_TRUE(error.codingPath().empty());
  }
  EXPECT_THROW(JSONReference(7).asJSON<std::int64_t>(), DecodingError);
}

TEST(JSONReferenceTests, KeepsACopyThatItsCopiesShare) {
  std::string text = "tea";
  const JSONReference reference{std::string_view(text)};
  const JSONReference copy = reference;
  text = "ink";
  EXPECT_EQ(copy.asJSON<std::string>(), "tea");
  EXPECT_EQ(&copy.asJSON<std::string>(), &reference.asJSON<std::string>());
  JSONReference other(1);
  JSONReference moved = std::move(other);
  EXPECT_EQ(moved.asData(), Data("1"));
  EXPECT_EQ(other.asData(), Data("1"));
  other = copy;
  EXPECT_EQ(moved.asData(), Data("1"));
  EXPECT_EQ(other.asData(), Data("\"tea\""));
}

TEST(JSONReferenceTests, WhatCanNotBeWrittenThrows) {
  EXPECT_THROW(JSONReference(std::numeric_limits<double>::quiet_NaN()).asData(), EncodingError);
}

// MARK: EmptyJSON

TEST(EmptyJSONTests, IsReadFromAnyDocument) {
  for (const std::string json :
       {"{}", "[1, {\"a\": null}]", "7", "\"tea\"", "null", adaJSON.c_str()}) {
    EXPECT_EQ(jsonDecoder().decode<EmptyJSON>(json), EmptyJSON()) << json;
  }
  for (const std::string json : {"", "{", "{\"a\": }", "tea", "{} {}", "\"\xff\""}) {
    EXPECT_THROW(jsonDecoder().decode<EmptyJSON>(json), DecodingError) << json;
  }
}

TEST(EmptyJSONTests, IsWrittenAsAnEmptyObject) {
  EXPECT_EQ(jsonEncoder().encode(EmptyJSON()), Data("{}"));
  EXPECT_EQ(jsonEncoder().encode(std::vector<EmptyJSON>(2)), Data("[{},{}]"));
}

TEST(EmptyJSONTests, NamesTheDecoderAndEncoderOfTheProcess) {
  EXPECT_EQ(&decoderOf<EmptyJSON>(), &jsonDecoder());
  EXPECT_EQ(&encoderOf<EmptyJSON>(), &jsonEncoder());
}

}  // namespace
}  // namespace tarn
