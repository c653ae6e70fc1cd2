#include <Platform/Dispatch/ManualDispatchClock.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using testing::ElementsAre;

/// Says nothing of its mock: all is by default.
struct Plain : DataGetRequestable<Plain>, HTTPMockable<Plain> {
  explicit Plain(const std::string& address) : url(address) {}
  URL url;
  HTTPHeaders headers{{"X-Kind", "own"}};
  bool shouldSend = true;
};

/// Says all of it, in stored fields.
struct Canned : DataGetRequestable<Canned>, HTTPMockable<Canned>, HTTPRequestCancelable<Canned> {
  URL url{"http://localhost/own"};
  UUID cancellationIdentifier;
  std::optional<HTTPHeaders> mockHeaders = HTTPHeaders{{"Content-Type", "text/plain"}};
  std::optional<URL> mockURL = URL("http://localhost/mock");
  HTTPStatus mockStatus = HTTPStatus::success;
  TimeInterval mockResponseTime{0};
  std::optional<std::int64_t> mockExpectedContentLength = 7;
  std::optional<std::string> mockSuggestedFilename = "name.bin";
  std::optional<std::string> mockMimeType = "image/png";
  std::optional<std::string> mockTextEncodingName = "latin1";
  std::optional<Error> mockError;
  std::optional<Data> mockResponseData = Data("canned");

  std::function<bool(HTTPStatus)> accepts = [](HTTPStatus status) {
    return status.isAcceptableByDefault();
  };
  bool isAcceptable(HTTPStatus status) const { return accepts(status); }
};

/// Calls the test for its status.
struct Asking : DataGetRequestable<Asking>, HTTPMockable<Asking> {
  std::function<HTTPStatus()> onStatus;
  explicit Asking(std::function<HTTPStatus()> ask) : onStatus(std::move(ask)) {}
  URL url() const { return URL("http://localhost/"); }
  HTTPStatus mockStatus() const { return onStatus(); }
};

struct OnlyMock : DataGetRequestable<OnlyMock>, HTTPTestMockable<OnlyMock> {
  URL url{"http://localhost/own"};
  std::optional<HTTPHeaders> mockHeaders = HTTPHeaders{{"Content-Type", "text/plain"}};
  std::optional<URL> mockURL = URL("http://localhost/mock");
  HTTPStatus mockStatus = HTTPStatus::created;
  TimeInterval mockResponseTime{0.25};
  std::optional<std::int64_t> mockExpectedContentLength = 7;
  std::optional<std::string> mockSuggestedFilename = "name.bin";
  std::optional<std::string> mockMimeType = "image/png";
  std::optional<std::string> mockTextEncodingName = "latin1";
  std::optional<Error> mockError;
  std::optional<Data> mockResponseData = Data("canned");
};

struct Both : DataGetRequestable<Both>, HTTPTestMockable<Both> {
  URL url{"http://localhost/own"};
  HTTPStatus mockStatus = HTTPStatus::notFound;
  std::optional<Data> mockResponseData = Data("mock");
  std::optional<HTTPHeaders> testHeaders = HTTPHeaders{{"X-Kind", "test"}};
  std::optional<URL> testURL = URL("http://localhost/test");
  HTTPStatus testStatus = HTTPStatus::accepted;
  TimeInterval testResponseTime{0};
  std::optional<Error> testError;
  std::optional<Data> testResponseData = Data("test");
};

template <class Body>
struct Fetch : DownloadGetRequestable<Fetch<Body>, Body>, HTTPMockable<Fetch<Body>> {
  URL url{"http://localhost/folder/page"};
  std::optional<HTTPHeaders> mockHeaders;
  HTTPStatus mockStatus = HTTPStatus::success;
  std::optional<std::string> mockSuggestedFilename;
  std::optional<std::string> mockMimeType;
  std::optional<Data> mockResponseData = Data("content");
};

std::string messageOf(const std::optional<Error>& error) { return error ? error->message() : ""; }

class MockableTests : public test::ServiceTest {
 protected:
  MockableTests() { TarnService::isMocked = true; }
  void TearDown() override {
    TarnService::isMocked = false;
    ServiceTest::TearDown();
  }

  template <class R>
  typename R::Response answerTo(const R& request) const {
    const test::Collector<typename R::Response> answers;
    request.send(queue, answers.callback());
    EXPECT_TRUE(answers.waitFor(1));
    return answers.value(0);
  }

  DispatchQueue queue{"test.completions"};
  test::Collector<DataResponse> responses;
};

TEST(MockableValueTests, AreTakenFromTheRequestOrAbsentByDefault) {
  const Plain request("http://localhost/own");
  EXPECT_EQ(request.mockHeaders(), (HTTPHeaders{{"X-Kind", "own"}}));
  EXPECT_EQ(request.mockURL(), URL("http://localhost/own"));
  EXPECT_EQ(request.mockStatus(), HTTPStatus::success);
  EXPECT_EQ(request.mockResponseTime(), TimeInterval(0));
  EXPECT_EQ(request.mockExpectedContentLength(), std::nullopt);
  EXPECT_EQ(request.mockSuggestedFilename(), std::nullopt);
  EXPECT_EQ(request.mockMimeType(), std::nullopt);
  EXPECT_EQ(request.mockTextEncodingName(), std::nullopt);
  EXPECT_FALSE(request.mockError());
  EXPECT_EQ(request.mockResponseData(), std::nullopt);
}

TEST(MockableValueTests, OfTheSecondSetAreThoseOfTheFirstByDefault) {
  OnlyMock request;
  request.mockError = Error(std::runtime_error("mocked"));
  EXPECT_EQ(request.testHeaders(), request.mockHeaders);
  EXPECT_EQ(request.testURL(), request.mockURL);
  EXPECT_EQ(request.testStatus(), request.mockStatus);
  EXPECT_EQ(request.testResponseTime(), request.mockResponseTime);
  EXPECT_EQ(request.testExpectedContentLength(), request.mockExpectedContentLength);
  EXPECT_EQ(request.testSuggestedFilename(), request.mockSuggestedFilename);
  EXPECT_EQ(request.testMimeType(), request.mockMimeType);
  EXPECT_EQ(request.testTextEncodingName(), request.mockTextEncodingName);
  EXPECT_EQ(messageOf(request.testError()), "mocked");
  EXPECT_EQ(request.testResponseData(), request.mockResponseData);
  EXPECT_EQ(messageOf(request.testComputedError()), "mocked");
}

TEST(MockURLResponseTests, IsMadeOfURLStatusVersionAndHeaders) {
  const auto response = Canned().mockURLResponse();
  EXPECT_EQ(response->url(), URL("http://localhost/mock"));
  EXPECT_EQ(response->statusCode(), 200);
  EXPECT_EQ(response->httpVersion(), "1.1");
  EXPECT_EQ(response->allHeaderFields(), (HTTPHeaderFields{{"Content-Type", "text/plain"}}));
  // The other values do not enter it.
  EXPECT_EQ(response->expectedContentLength(), -1);
  EXPECT_EQ(response->mimeType(), "text/plain");
  EXPECT_EQ(response->textEncodingName(), std::nullopt);
  EXPECT_EQ(response->suggestedFilename(), "mock.txt");
}

TEST(MockURLResponseTests, DoesWithoutURLHeadersAndAKnownStatus) {
  Canned request;
  request.mockURL = std::nullopt;
  request.mockHeaders = std::nullopt;
  request.mockStatus = HTTPStatus::unknown;
  const auto response = request.mockURLResponse();
  EXPECT_EQ(response->url().absoluteString(), "localhost");
  EXPECT_TRUE(response->allHeaderFields().empty());
  EXPECT_EQ(response->statusCode(), 1000);
}

TEST(MockURLResponseTests, OfTheSecondSetIsMadeOfItsValues) {
  const Both request;
  EXPECT_EQ(request.testURLResponse()->url(), URL("http://localhost/test"));
  EXPECT_EQ(request.testURLResponse()->statusCode(), 202);
  EXPECT_EQ(request.testURLResponse()->httpVersion(), "1.1");
  EXPECT_EQ(request.testURLResponse()->allHeaderFields(), (HTTPHeaderFields{{"X-Kind", "test"}}));
  EXPECT_EQ(request.mockURLResponse()->statusCode(), 404);
  EXPECT_EQ(messageOf(request.testComputedError()), "");
  EXPECT_EQ(messageOf(request.mockComputedError()), "HTTPStatus: notFound:404 is unacceptable");
}

TEST(MockComputedErrorTests, IsTheFirstOfErrorStatusAndURL) {
  const Error error(std::runtime_error("mine"));
  const std::string refused = "HTTPStatus: notFound:404 is unacceptable";
  struct Row {
    const char* name;
    std::function<void(Canned&)> change;
    std::string message;
  };
  const Row rows[] = {
      {"none", [](Canned&) {}, ""},
      {"error", [&](Canned& request) { request.mockError = error; }, "mine"},
      {"error, status and URL",
       [&](Canned& request) {
         request.mockError = error;
         request.mockStatus = HTTPStatus::notFound;
         request.url = URL::empty();
       },
       "mine"},
      {"status", [](Canned& request) { request.mockStatus = HTTPStatus::notFound; }, refused},
      {"status and URL",
       [](Canned& request) {
         request.mockStatus = HTTPStatus::notFound;
         request.url = URL::empty();
       },
       refused},
      {"URL", [](Canned& request) { request.url = URL::empty(); }, "Malformed URL: /"},
      {"a status that this request accepts",
       [](Canned& request) {
         request.mockStatus = HTTPStatus::notFound;
         request.accepts = [](HTTPStatus status) { return status == HTTPStatus::notFound; };
       },
       ""},
      {"a status that this request refuses",
       [](Canned& request) { request.accepts = [](HTTPStatus) { return false; }; },
       "HTTPStatus: success:200 is unacceptable"},
      {"a request that cannot tell",
       [](Canned& request) {
         request.accepts = [](HTTPStatus) -> bool { throw std::runtime_error("unsure"); };
       },
       "unsure"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Canned request;
    row.change(request);
    EXPECT_EQ(messageOf(request.mockComputedError()), row.message);
  }
}

TEST_F(MockableTests, ByDefaultTheResponseIsASuccessWithTheRequestsHeadersAndNoBody) {
  test::ScriptedServer server;
  const DataResponse response = answerTo(Plain(server.url("/")));
  EXPECT_FALSE(response.result.error());
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers, (HTTPHeaderFields{{"X-Kind", "own"}}));
  EXPECT_EQ(response.result.body(), std::nullopt);
  EXPECT_EQ(response.data, std::nullopt);
  EXPECT_EQ(response.url, URL(server.url("/")));
  EXPECT_EQ(server.connectionCount(), 0u);
}

TEST_F(MockableTests, UnlessMockedTheRequestIsSent) {
  TarnService::isMocked = false;
  test::ScriptedServer server;
  server.route("/", Script().respond(200, {}, "real"));
  EXPECT_EQ(answerTo(Plain(server.url("/"))).data, Data("real"));
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(MockableTests, ASecondSetIsTakenOnlyWhileMocked) {
  test::ScriptedServer server;
  server.route("/", Script().respond(200, {}, "real"));
  Both request;
  request.url = URL(server.url("/"));
  EXPECT_EQ(answerTo(request).data, Data("test"));
  TarnService::isMocked = false;
  EXPECT_EQ(answerTo(request).data, Data("real"));
}

TEST_F(MockableTests, TheBodyIsDelivered) {
  const DataResponse response = answerTo(Canned());
  EXPECT_EQ(response.result.body(), Data("canned"));
  EXPECT_EQ(response.mimeType, "text/plain");
  EXPECT_EQ(response.url, URL("http://localhost/mock"));
}

TEST_F(MockableTests, AStatusThatIsNotAcceptedIsAFailureWithoutTheBody) {
  Canned request;
  request.mockStatus = HTTPStatus::notFound;
  const DataResponse response = answerTo(request);
  const auto error = response.result.error();
  ASSERT_TRUE(error && error->as<HTTPResponseError>());
  EXPECT_EQ(error->as<HTTPResponseError>()->status(), HTTPStatus::notFound);
  EXPECT_EQ(response.data, std::nullopt);
  EXPECT_EQ(response.urlResponse, nullptr);
}

TEST_F(MockableTests, TheRecordJudgesTheStatusToo) {
  Canned request;
  request.mockStatus = HTTPStatus::notFound;
  request.accepts = [](HTTPStatus) { return true; };
  const DataResponse response = answerTo(request);
  EXPECT_EQ(messageOf(response.result.error()), "HTTPStatus: notFound:404 is unacceptable");
  EXPECT_EQ(response.data, Data("canned"));
  EXPECT_EQ(response.status, HTTPStatus::notFound);
}

TEST_F(MockableTests, AnErrorArrivesUnchanged) {
  const Error error(std::runtime_error("mine"));
  Canned request;
  request.mockError = error;
  const auto arrived = answerTo(request).result.error();
  ASSERT_TRUE(arrived);
  EXPECT_EQ(arrived->as<std::runtime_error>(), error.as<std::runtime_error>());
}

TEST_F(MockableTests, ARequestWithoutAURLFailsAsWhenItIsSent) {
  Canned request;
  request.url = URL::empty();
  const auto error = answerTo(request).result.error();
  ASSERT_TRUE(error);
  EXPECT_NE(error->as<HTTPRequestError>(), nullptr);
}

TEST_F(MockableTests, WhatAValueThrowsIsTheFailure) {
  const Asking request([]() -> HTTPStatus { throw std::runtime_error("no status"); });
  EXPECT_EQ(messageOf(answerTo(request).result.error()), "no status");
}

TEST_F(MockableTests, TheValuesAreReadOnTheQueueOfTheMocks) {
  test::Collector<bool> places;
  const Asking request([places] {
    places.add(detail::mockBackgroundQueue().isCurrent());
    return HTTPStatus(HTTPStatus::success);
  });
  answerTo(request);
  EXPECT_THAT(places.values(), ElementsAre(true));
  EXPECT_EQ(detail::mockBackgroundQueue().label(), "dev.tarnservice.tarnservice.mock");
  EXPECT_EQ(detail::mockBackgroundQueue().qualityOfService(), QualityOfService::background);
}

TEST_F(MockableTests, TheCompletionRunsOnTheQueueOrAThreadOfTheLibrary) {
  test::Collector<bool> places;
  queue.sync([&] {
    Canned().send(queue, [this, places](const DataResponse&) { places.add(queue.isCurrent()); });
    EXPECT_EQ(places.count(), 0u) << "ran inside of send";
  });
  ASSERT_TRUE(places.waitFor(1));
  Canned().send(std::nullopt, [places](const DataResponse&) {
    places.add(!detail::mockBackgroundQueue().isCurrent());
  });
  ASSERT_TRUE(places.waitFor(2));
  EXPECT_THAT(places.values(), ElementsAre(true, true));
}

TEST_F(MockableTests, AThrowingCompletionIsLogged) {
  Canned().send(queue, [](const DataResponse&) { throw std::runtime_error("my mistake"); });
  expectLog(LogLevel::fault, "A completion threw: my mistake");
}

TEST_F(MockableTests, NothingIsRegisteredAskedOrCancelled) {
  ManualDispatchClock clock;
  const std::size_t records = taskDictionary().count();
  Canned request;
  request.mockResponseTime = TimeInterval(1);
  request.send(queue, responses.callback());
  EXPECT_EQ(taskManager().pendingCount(), 0u);
  EXPECT_FALSE(taskManager().value(request.cancellationIdentifier));
  request.cancel();
  clock.advance(TimeInterval(1));
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_FALSE(responses.value(0).result.error());
  EXPECT_EQ(taskDictionary().count(), records);

  Plain declining("http://localhost/");
  declining.shouldSend = false;
  EXPECT_EQ(answerTo(declining).status, HTTPStatus::success);
}

TEST_F(MockableTests, TheResponseComesAfterItsTimeAndAsTheSwitchWasAtTheSend) {
  ManualDispatchClock clock;
  Canned request;
  request.mockResponseTime = TimeInterval(2.0);
  request.send(queue, responses.callback());
  TarnService::isMocked = false;
  ASSERT_EQ(clock.requestedDelays().size(), 1u);
  EXPECT_EQ(clock.requestedDelays()[0], TimeInterval(2.0));
  clock.advance(TimeInterval(1.999));
  detail::mockBackgroundQueue().sync([] {});
  queue.sync([] {});
  EXPECT_EQ(responses.count(), 0u);
  clock.advance(TimeInterval(0.001));
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).data, Data("canned"));
}

TEST_F(MockableTests, EqualDelaysKeepTheOrder) {
  for (const TimeInterval delay : {TimeInterval(0), TimeInterval(1)}) {
    ManualDispatchClock clock;
    const test::Collector<std::string> order;
    std::vector<std::string> sent;
    Canned request;
    request.mockResponseTime = delay;
    for (int index = 0; index < 50; ++index) {
      sent.push_back(std::to_string(index));
      request.mockResponseData = Data(sent.back());
      request.send(queue, [order](const DataResponse& response) {
        order.add(std::string(response.data->view()));
      });
    }
    clock.advance(delay);
    ASSERT_TRUE(order.waitFor(sent.size()));
    EXPECT_EQ(order.values(), sent);
  }
}

TEST_F(MockableTests, ASetIsDeliveredOnDemandWhateverTheSwitchSays) {
  TarnService::isMocked = false;
  const ManualDispatchClock clock;
  OnlyMock created;
  created.mockResponseTime = TimeInterval(0);
  created.test(queue, responses.callback());
  Both().mock(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(2));
  EXPECT_EQ(responses.value(0).status, HTTPStatus::created);
  EXPECT_EQ(messageOf(responses.value(1).result.error()),
            "HTTPStatus: notFound:404 is unacceptable");
}

TEST_F(MockableTests, TheSecondSetHasATimeOfItsOwn) {
  ManualDispatchClock clock;
  Both request;
  request.testResponseTime = TimeInterval(3);
  request.test(queue, responses.callback());
  request.mock(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  clock.advance(TimeInterval(3));
  ASSERT_TRUE(responses.waitFor(2));
  EXPECT_EQ(responses.value(1).data, Data("test"));
}

TEST_F(MockableTests, FuturesBatchesAndRetriesTakePart) {
  EXPECT_EQ(Canned().send().get(TimeInterval(15)).body, Data("canned"));

  for (const bool isParallel : {true, false}) {
    const test::Collector<std::vector<DataResponse>> lists;
    send(std::vector<Canned>(3), queue, isParallel, lists.callback());
    ASSERT_TRUE(lists.waitFor(1));
    ASSERT_EQ(lists.value(0).size(), 3u);
    for (const auto& response : lists.value(0)) EXPECT_EQ(response.data, Data("canned"));
  }

  struct Retried : DataGetRequestable<Retried>,
                   HTTPRetryAttempting<Retried>,
                   HTTPMockable<Retried> {
    static double retryInterval() { return 0; }
    static std::int64_t retryLimit() { return 0; }
    HTTPStatus mockStatus() const { return HTTPStatus::notFound; }
  };
  const test::Collector<HTTPRetryResult<DataResponse>> results;
  Retried().sendAttemptingRetry(queue, results.callback());
  ASSERT_TRUE(results.waitFor(1));
  EXPECT_EQ(results.value(0).failCount(), 1);
}

TEST_F(MockableTests, ADownloadGetsAFileOfItsOwn) {
  const auto response = answerTo(Fetch<File>());
  ASSERT_TRUE(response.result.body());
  EXPECT_EQ(response.result.body()->asData(), Data("content"));
  EXPECT_EQ(response.data, std::nullopt);
  const URL folder = response.result.body()->fileURL().deletingLastPathComponent();
  EXPECT_TRUE(folder.lastPathComponent().starts_with("TarnService-"));
  EXPECT_EQ(answerTo(Fetch<Data>()).result.body(), Data("content"));
  expectKeptDownloads(2);
}

TEST_F(MockableTests, AFileHasTheNameThatADownloadWouldHave) {
  struct Row {
    std::optional<std::string> suggested;
    std::optional<std::string> mimeType;
    std::optional<HTTPHeaders> headers;
    std::string name;
  };
  const HTTPHeaders png{{"Content-Type", "image/png"}};
  const HTTPHeaders named{{"Content-Disposition", "attachment; filename=\"given.txt\""}};
  const Row rows[] = {
      {{}, {}, {}, "page"},
      {{}, {}, png, "page.png"},
      {{}, {}, named, "given.txt"},
      {"mine.bin", {}, named, "mine.bin"},
      {"mine", {}, png, "mine.png"},
      {"mine", "text/csv", png, "mine.csv"},
      {{}, "text/csv", {}, "page.csv"},
      {"../../escape", {}, {}, ".._.._escape"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Fetch<File> request;
    request.mockSuggestedFilename = row.suggested;
    request.mockMimeType = row.mimeType;
    request.mockHeaders = row.headers;
    const auto response = answerTo(request);
    ASSERT_TRUE(response.result.body());
    EXPECT_EQ(response.result.body()->fileURL().lastPathComponent(), row.name);
  }
  expectKeptDownloads(std::size(rows));
}

TEST_F(MockableTests, ADownloadWithoutBytesIsAnEmptyFile) {
  Fetch<File> request;
  request.mockResponseData = std::nullopt;
  const auto response = answerTo(request);
  ASSERT_TRUE(response.result.body());
  EXPECT_EQ(response.result.body()->asData(), Data());
  Fetch<Data> bytes;
  bytes.mockResponseData = std::nullopt;
  EXPECT_FALSE(answerTo(bytes).result.error());
  EXPECT_EQ(answerTo(bytes).result.body(), std::nullopt);
  expectKeptDownloads(3);
}

TEST_F(MockableTests, ADownloadThatFailsLeavesNoFile) {
  Fetch<File> request;
  request.mockStatus = HTTPStatus::notFound;
  EXPECT_EQ(messageOf(answerTo(request).result.error()),
            "HTTPStatus: notFound:404 is unacceptable");
}

TEST_F(MockableTests, AFileThatCannotBeMadeIsTheFailure) {
  const test::TemporaryDirectory elsewhere;
  test::writeFile(elsewhere.file("plain"), "");
  const test::ScopedEnvironment variable("TMPDIR", elsewhere.file("plain"));
  const auto error = answerTo(Fetch<File>()).result.error();
  ASSERT_TRUE(error);
  EXPECT_NE(error->as<FileError>(), nullptr) << error->message();
}

TEST_F(MockableTests, NothingTellsOfTheProgressOfADownload) {
  test::Collector<RequestProgress> progress;
  const test::Collector<DownloadResponse<File>> answers;
  Fetch<File>().send(queue, progress.callback(), answers.callback());
  ASSERT_TRUE(answers.waitFor(1));
  EXPECT_TRUE(answers.value(0).result.body());
  EXPECT_EQ(Fetch<Data>().send(queue).get(TimeInterval(15)).body, Data("content"));
  queue.sync([] {});
  EXPECT_EQ(progress.count(), 0u);
  expectKeptDownloads(2);
}

TEST_F(MockableTests, ADownloadIsMadeOnlyWhileMocked) {
  TarnService::isMocked = false;
  test::ScriptedServer server;
  server.route("/", Script().respond(200, {}, "real"));
  Fetch<Data> request;
  request.url = URL(server.url("/"));
  EXPECT_EQ(answerTo(request).result.body(), Data("real"));
  const test::Collector<DownloadResponse<Data>> answers;
  request.send(
      queue, [](RequestProgress) {}, answers.callback());
  ASSERT_TRUE(answers.waitFor(1));
  EXPECT_EQ(answers.value(0).result.body(), Data("real"));
  EXPECT_EQ(server.requestCount(), 2u);
  expectKeptDownloads(2);
}

}  // namespace
}  // namespace tarn
