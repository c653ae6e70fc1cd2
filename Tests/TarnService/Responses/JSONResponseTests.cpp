#include <Platform/JSON/JSONValue.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnLogger/Logger.hpp>
#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Responses/JSONResponse.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <vector>

namespace tarn {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Item {
  std::string name;
  double price{};
  std::optional<int> stock;
};

struct Stock {
  std::vector<Item> items;
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
};

class SoldOut final : public AppError {
 public:
  std::string message() const override { return "sold out"; }
  std::int64_t code() const noexcept override { return 4; }
};

/// Reads the document, and then refuses it in its own words.
struct Refusing {
  static Refusing decode(JSONReader& reader) {
    reader.skip();
    throw SoldOut();
  }
};
/// The same with something that is no exception class.
struct Rude {
  static Rude decode(JSONReader& reader) {
    reader.skip();
    throw 42;
  }
};
/// Refuses with an error of its own that is a decoding error too.
struct WrongCurrency final : DecodingError {
  WrongCurrency() : DecodingError(DecodingError::dataCorrupted({}, "not in our currency")) {}
};
struct Particular {
  static Particular decode(JSONReader& reader) {
    reader.skip();
    throw WrongCurrency();
  }
};

const URL address("http://localhost/stock/list");
const std::string itemJSON = R"({"name": "tea", "price": 2.5})";

std::shared_ptr<const HTTPURLResponse> answer(int status, HTTPHeaderFields headers = {}) {
  return std::make_shared<HTTPURLResponse>(address, status, "HTTP/1.1", std::move(headers));
}

template <class Body = Item>
JSONResponse<Body> make(std::optional<Data> data, std::shared_ptr<const URLResponse> response,
                        std::optional<Error> error = std::nullopt) {
  return JSONResponse<Body>(std::move(data), std::nullopt, std::move(response), std::move(error));
}

class JSONResponseTests : public test::ServiceTest {
 protected:
  /// The error of a failure, as what it is; null where it is none of these.
  template <class E, class Response>
  const E* failure(const Response& response) {
    EXPECT_FALSE(response.result.isSuccessful());
    EXPECT_FALSE(response.result.body().has_value());
    error = response.result.error();
    const E* typed = error ? error->as<E>() : nullptr;
    EXPECT_NE(typed, nullptr) << (error ? error->message() : "no error");
    return typed;
  }
  auto debugLines() const { return log.messages(LogLevel::debug); }

  std::optional<Error> error;
};

static_assert(HTTPResponsable<JSONResponse<Item>>);
static_assert(HTTPResponsable<JSONResponse<std::vector<Item>>>);
static_assert(std::is_same_v<JSONResponse<Item>::Result, JSONResult<Item>>);
static_assert(std::is_same_v<JSONResult<Item>::Body, Item>);

// MARK: What is decoded

TEST_F(JSONResponseTests, DecodesTheBytesOfAnAcceptableAnswer) {
  for (const int code : {200, 201, 202, 203, 205, 206}) {
    SCOPED_TRACE(code);
    const Data bytes(itemJSON);
    const auto response = make(bytes, answer(code));
    ASSERT_TRUE(response.result.isSuccessful());
    ASSERT_TRUE(response.result.body().has_value());
    EXPECT_EQ(response.result.body()->name, "tea");
    EXPECT_EQ(response.result.body()->price, 2.5);
    EXPECT_EQ(response.data->bytes(), bytes.bytes());
    EXPECT_EQ(response.status.rawValue(), code);
  }
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONResponseTests, SucceedsWithoutABodyWhereThereIsNothingToDecode) {
  struct Row {
    int code;
    std::optional<Data> data;
  };
  const Row rows[] = {{200, std::nullopt},    {200, Data()}, {204, std::nullopt},
                      {204, Data(itemJSON)},  {204, Data()}, {204, Data("no JSON at all")},
                      {204, Data("\xff\xfe")}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.code) + " " + row.data.value_or(Data("-")).description());
    const auto response = make(row.data, answer(row.code));
    EXPECT_TRUE(response.result.isSuccessful());
    EXPECT_FALSE(response.result.body().has_value());
    EXPECT_FALSE(response.result.error().has_value());
    EXPECT_EQ(response.data, row.data);
  }
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONResponseTests, DecodesBodiesOfEveryForm) {
  const auto items =
      make<std::vector<Item>>(Data("[" + itemJSON + "," + itemJSON + "]"), answer(200));
  ASSERT_TRUE(items.result.body().has_value());
  EXPECT_EQ(items.result.body()->size(), 2u);
  EXPECT_EQ(items.result.body()->at(1).name, "tea");

  const auto prices = make<std::map<std::string, double>>(Data(R"({"tea": 2.5})"), answer(200));
  ASSERT_TRUE(prices.result.body().has_value());
  EXPECT_EQ(prices.result.body()->at("tea"), 2.5);

  const auto none = make<std::optional<Item>>(Data("null"), answer(200));
  ASSERT_TRUE(none.result.body().has_value());
  EXPECT_FALSE(none.result.body()->has_value());

  EXPECT_EQ(make<int>(Data("7"), answer(200)).result.body(), 7);
  EXPECT_EQ(make<std::string>(Data("\"tea\""), answer(200)).result.body(), "tea");
}

TEST_F(JSONResponseTests, DecodesADocumentOfUnknownForm) {
  const auto response =
      make<JSONValue>(Data(R"({"items": [{"id": 9007199254740993}]})"), answer(200));
  ASSERT_TRUE(response.result.body().has_value());
  EXPECT_EQ((*response.result.body())["items"][0]["id"].as<std::int64_t>(), 9007199254740993);
}

TEST_F(JSONResponseTests, DecodesWithTheDecoderThatTheBodyNames) {
  const auto person = make<Person>(Data(R"({"first_name": "Ada"})"), answer(200));
  ASSERT_TRUE(person.result.body().has_value());
  EXPECT_EQ(person.result.body()->firstName, "Ada");
  const auto people = make<std::vector<Person>>(Data(R"([{"first_name": "Ada"}])"), answer(200));
  ASSERT_TRUE(people.result.body().has_value());
  EXPECT_EQ(people.result.body()->at(0).firstName, "Ada");
}

// MARK: What is not

TEST_F(JSONResponseTests, AWrongDocumentTellsWhereItIsWrong) {
  const std::string json =
      R"({"items": [{"name": "a", "price": 1}, {"name": "b", "price": "12,50"}]})";
  const auto response = make<Stock>(Data(json), answer(200, {{"X-Part", "1"}}));
  const auto* failed = failure<HTTPResponseError>(response);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPResponseError::Case::jsonDecoding);
  EXPECT_EQ(failed->type(), TypeReference::of<Stock>());
  EXPECT_EQ(failed->json(), json);
  EXPECT_EQ(failed->message(), "JSON decoding failure for type: Stock with json:\n" + json);
  ASSERT_TRUE(failed->decodingError().has_value());
  const auto* decodingError = failed->decodingError()->as<DecodingError>();
  ASSERT_NE(decodingError, nullptr);
  EXPECT_EQ(decodingError->kind(), DecodingError::Case::typeMismatch);
  EXPECT_EQ(decodingError->message(),
            "items[1].price: expected a number, found the string \"12,50\"");
  // All that the answer brought is kept.
  EXPECT_EQ(response.data, Data(json));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("X-Part"), "1");
  EXPECT_EQ(response.url, address);
}

TEST_F(JSONResponseTests, AWrongDocumentLeavesOneDebugLine) {
  make<Stock>(Data("[]"), answer(200));
  EXPECT_THAT(debugLines(), ElementsAre("Error decoding json of type Stock with json: \n []"));
  ASSERT_EQ(log.entries().size(), 1u);
  const LogEntry entry = log.entries()[0];
  EXPECT_EQ(entry.subsystem, "TarnService");
  EXPECT_STREQ(entry.location.function, "init(data:url:response:error:)");
  EXPECT_TRUE(std::string(entry.location.file).ends_with("JSONResponse.cpp"));
  EXPECT_GT(entry.location.line, 0);
}

TEST_F(JSONResponseTests, EveryKindOfWrongDocumentIsAJSONDecodingError) {
  struct Row {
    std::string json;
    DecodingError::Case kind;
  };
  const Row rows[] = {
      {R"({"price": 1})", DecodingError::Case::keyNotFound},
      {R"({"name": null, "price": 1})", DecodingError::Case::valueNotFound},
      {R"({"name": 7, "price": 1})", DecodingError::Case::typeMismatch},
      {R"({"name": "tea", "price": 1, "stock": 1e20})", DecodingError::Case::dataCorrupted},
      {R"({"name": "tea")", DecodingError::Case::dataCorrupted},
      {itemJSON + " and more", DecodingError::Case::dataCorrupted},
      {"<html></html>", DecodingError::Case::dataCorrupted},
      {" ", DecodingError::Case::dataCorrupted},
      {"[]", DecodingError::Case::typeMismatch},
      {"null", DecodingError::Case::valueNotFound},
  };
  std::size_t lines = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    const auto* failed = failure<HTTPResponseError>(make(Data(row.json), answer(200)));
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->kind(), HTTPResponseError::Case::jsonDecoding);
    EXPECT_EQ(failed->json(), row.json);
    EXPECT_EQ(failed->decodingError()->as<DecodingError>()->kind(), row.kind);
    EXPECT_EQ(debugLines().size(), ++lines);
  }
}

TEST_F(JSONResponseTests, BytesThatAreNoTextAreKeptAsBytesOnly) {
  const Data bytes("{\"name\": \"t\xff\", \"price\": 1}");
  const auto response = make(bytes, answer(200));
  const auto* failed = failure<HTTPResponseError>(response);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPResponseError::Case::jsonDecoding);
  EXPECT_EQ(failed->json(), "");
  EXPECT_TRUE(failed->message().ends_with("with json:\n"));
  EXPECT_EQ(response.data, bytes);
  EXPECT_THAT(debugLines(), ElementsAre("Error decoding json of type Item with json: \n "));
}

TEST_F(JSONResponseTests, ACodingThatThrowsADecodingErrorOfItsOwnIsHeard) {
  const auto* failed = failure<HTTPResponseError>(make<Particular>(Data("{}"), answer(200)));
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPResponseError::Case::jsonDecoding);
  EXPECT_NE(failed->decodingError()->as<WrongCurrency>(), nullptr);
  EXPECT_THAT(debugLines(), ElementsAre("Error decoding json of type Particular with json: \n {}"));
}

TEST_F(JSONResponseTests, ACodingThatThrowsSomethingElseIsUnableToParse) {
  const auto response = make<Refusing>(Data(itemJSON), answer(201));
  const auto* failed = failure<HTTPUnknownError>(response);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPUnknownError::Case::unableToParseJSON);
  EXPECT_EQ(failed->json(), itemJSON);
  ASSERT_TRUE(failed->originalError().has_value());
  EXPECT_NE(failed->originalError()->as<SoldOut>(), nullptr);
  EXPECT_EQ(failed->function(), "init(data:url:response:error:)");
  EXPECT_TRUE(failed->file().ends_with("JSONResponse.cpp")) << failed->file();
  EXPECT_GT(failed->line(), 0);
  EXPECT_TRUE(failed->message().starts_with("Unable to parse json: " + itemJSON + "\nFile:"));
  EXPECT_EQ(response.data, Data(itemJSON));
  EXPECT_EQ(response.status, HTTPStatus::created);
  EXPECT_THAT(
      debugLines(),
      ElementsAre("Unknown error decoding json of type Refusing with json: \n " + itemJSON));
}

TEST_F(JSONResponseTests, EvenWhatIsNoExceptionBecomesAFailure) {
  const auto* failed = failure<HTTPUnknownError>(make<Rude>(Data("[1]"), answer(200)));
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->kind(), HTTPUnknownError::Case::unableToParseJSON);
  EXPECT_EQ(failed->originalError()->message(), "unknown exception");
  EXPECT_THAT(debugLines(),
              ElementsAre("Unknown error decoding json of type Rude with json: \n [1]"));
}

TEST_F(JSONResponseTests, TheErrorsTellTheLogWhatTheyKnow) {
  const auto* decoding = failure<HTTPResponseError>(make<Stock>(Data("{}"), answer(200)));
  ASSERT_NE(decoding, nullptr);
  const auto details = decoding->additionalLogInfo();
  ASSERT_TRUE(details.has_value());
  EXPECT_EQ(*details->at("json").as<std::string>(), "{}");
  const auto* inner = details->at("DecodingError").as<LogDetails>();
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->at("message").description(), "the key \"items\" is missing");
  EXPECT_EQ(inner->at("domain").description(), "TarnService.DecodingError");
  EXPECT_EQ(*inner->at("code").as<std::int64_t>(),
            static_cast<std::int64_t>(DecodingError::Case::keyNotFound));

  const auto* parsing = failure<HTTPUnknownError>(make<Refusing>(Data("{}"), answer(200)));
  ASSERT_NE(parsing, nullptr);
  const auto info = parsing->additionalLogInfo();
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(*info->at("json").as<std::string>(), "{}");
  EXPECT_EQ(info->at("originalError").description(), "sold out");
}

// MARK: Failures whatever the bytes

TEST_F(JSONResponseTests, AnUnacceptableStatusFailsWithoutDecoding) {
  struct Row {
    int code;
    HTTPStatus status;
  };
  const Row rows[] = {{100, HTTPStatus::continue_},
                      {199, HTTPStatus::unknown},
                      {207, HTTPStatus::unknown},
                      {304, HTTPStatus::notModified},
                      {404, HTTPStatus::notFound},
                      {418, HTTPStatus::unknown},
                      {500, HTTPStatus::internalServerError}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code);
    const auto response = make(Data("not found"), answer(row.code, {{"X-Reason", "gone"}}));
    const auto* failed = failure<HTTPResponseError>(response);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->kind(), HTTPResponseError::Case::unacceptableStatus);
    EXPECT_EQ(failed->status(), row.status);
    EXPECT_EQ(response.data, Data("not found"));
    EXPECT_EQ(response.status, row.status);
    EXPECT_EQ(response.headers->value("X-Reason"), "gone");
  }
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONResponseTests, AnErrorWinsOverAnAcceptableAnswer) {
  const auto response =
      make(Data(itemJSON), answer(200, {{"X-Part", "1"}}), Error(CFNetworkErrors(-1005)));
  const auto* failed = failure<CFNetworkErrors>(response);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed->rawValue(), -1005);
  EXPECT_EQ(response.data, Data(itemJSON));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("X-Part"), "1");
  EXPECT_THAT(debugLines(), IsEmpty());
}

TEST_F(JSONResponseTests, WhatIsNoHTTPAnswerDoesNotMakeOne) {
  const auto file = std::make_shared<URLResponse>(URL("file:///tmp/item.json"), "application/json",
                                                  29, std::nullopt);
  struct Row {
    std::optional<Data> data;
    std::shared_ptr<const URLResponse> response;
    std::string json;
  };
  const Row rows[] = {{Data(itemJSON), file, itemJSON},
                      {Data("\xff"), file, ""},
                      {std::nullopt, file, ""},
                      {Data(itemJSON), nullptr, itemJSON},
                      {std::nullopt, nullptr, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    const auto response = make(row.data, row.response);
    const auto* failed = failure<HTTPUnknownError>(response);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->kind(), HTTPUnknownError::Case::jsonResponseFailedToConstruct);
    EXPECT_EQ(failed->json(), row.json);
    EXPECT_EQ(failed->function(), "init(data:url:response:error:)");
    EXPECT_TRUE(failed->file().ends_with("JSONResponse.cpp")) << failed->file();
    EXPECT_GT(failed->line(), 0);
    EXPECT_EQ(response.data, row.data);
    EXPECT_EQ(response.status, HTTPStatus::unknown);
    EXPECT_FALSE(response.headers.has_value());
    EXPECT_EQ(response.urlResponse, row.response);
  }
  EXPECT_THAT(debugLines(), IsEmpty());
}

// MARK: The record itself

TEST_F(JSONResponseTests, PrintsAnObjectBelowStatusAndHeaders) {
  const std::string head = "Type: JSONResponse<Item>\n\nHTTP Status: success\n\nHeaders: \n";
  struct Row {
    std::optional<Data> data;
    std::string text;
  };
  const Row rows[] = {
      {Data(R"( {"name" : "tea"} )"), head + "\nJSON:\n{\"name\":\"tea\"}"},
      {Data(R"({"link": "https:\/\/shop.test", "path": "C:\\tea"})"),
       head + "\nJSON:\n{\"link\":\"https://shop.test\",\"path\":\"C:tea\"}"},
      {Data("{}"), head + "\nJSON:\n{}"},
      {Data("[1, 2]"), head},
      {Data("\"tea\""), head},
      {Data("null"), head},
      {Data("{\"name\": "), head},
      {Data("<html></html>"), head},
      {Data("\xff"), head},
      {Data(), head},
      {std::nullopt, head},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.data ? row.data->view() : "absent");
    const auto response = make(row.data, answer(200));
    EXPECT_EQ(response.debugDescription(), row.text);
    EXPECT_EQ(response.debugStatusAndHeaders(), head);
  }
}

TEST_F(JSONResponseTests, PrintsTheServersErrorBodyToo) {
  const auto response = make(Data(R"({"reason": "gone"})"), answer(404, {{"X-Part", "1"}}));
  EXPECT_EQ(response.debugDescription(),
            "Type: JSONResponse<Item>\n\nHTTP Status: notFound\n\nHeaders: \nX-Part: 1\n"
            "\nJSON:\n{\"reason\":\"gone\"}");
}

TEST_F(JSONResponseTests, IsMadeOfItsMembers) {
  HTTPResponseMetadata metadata;
  metadata.status = HTTPStatus::created;
  metadata.mimeType = "application/json";
  const JSONResponse<Item> response(JSONResult<Item>::success(Item{"tea", 2.5, {}}), Data("mock"),
                                    metadata);
  EXPECT_EQ(response.result.body()->name, "tea");
  EXPECT_EQ(response.data, Data("mock"));
  EXPECT_EQ(response.status, HTTPStatus::created);
  EXPECT_EQ(response.mimeType, "application/json");
  const JSONResponse<Item> bare(JSONResult<Item>::failure(std::runtime_error("mine")));
  EXPECT_EQ(bare.result.error()->message(), "mine");
  EXPECT_FALSE(bare.data.has_value());
  EXPECT_EQ(bare.status, HTTPStatus::unknown);
}

TEST_F(JSONResponseTests, IsAValue) {
  const auto response = make(Data(itemJSON), answer(200));
  auto copy = response;
  copy.data->append("!");
  copy.status = HTTPStatus::gone;
  EXPECT_EQ(response.data, Data(itemJSON));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(copy.result.body()->name, "tea");
  EXPECT_EQ(copy.urlResponse, response.urlResponse);
}

/// Takes no debug line, as the log of a process is by default.
TEST(JSONResponseLogTests, WithoutAListenerNothingIsLogged) {
  ASSERT_FALSE(Logger::isEnabled(LogLevel::debug));
  const auto response = make<Stock>(Data("[]"), answer(200));
  EXPECT_EQ(response.result.error()->as<HTTPResponseError>()->kind(),
            HTTPResponseError::Case::jsonDecoding);
}

}  // namespace
}  // namespace tarn
