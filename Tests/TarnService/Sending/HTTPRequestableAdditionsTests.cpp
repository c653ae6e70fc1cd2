#include <Support/Collector.hpp>
#include <Support/Ports.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace tarn {
namespace {

using test::Script;

// A request whose every hook a test can set.
struct Probe : DataGetRequestable<Probe>, HTTPRequestCancelable<Probe> {
  explicit Probe(const std::string& address) : url(address) {}

  URL url;
  HTTPMethod method = HTTPMethod::get;
  HTTPHeaders headers;
  TimeInterval timeoutInterval{15};
  bool shouldSend = true;
  UUID cancellationIdentifier;
  std::function<void()> onValidate = [] {};
  std::function<void(const DataResponse&)> onProcess = [](const DataResponse&) {};
  std::function<bool(HTTPStatus)> accepts = [](HTTPStatus status) {
    return status.isAcceptableByDefault();
  };

  void validate() const { onValidate(); }
  void process(const DataResponse& response) const { onProcess(response); }
  using HTTPRequestableDefaults::isAcceptable;
  bool isAcceptable(HTTPStatus status) const { return accepts(status); }
};

class SendTests : public test::ServiceTest {
 protected:
  SendTests() {
    server.route("/ok", Script().respond(200, {{"X-Kind", "greeting"}}, "hello"));
    server.route("/stall", Script().stall());
  }

  Probe probe(const std::string& path) const { return Probe(server.url(path)); }
  DataResponse send(const Probe& request) {
    request.send(queue, responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }
  void expectFailureLog(const std::string& message) {
    expectLog(LogLevel::error, "Failure sending request Probe: " + message);
  }
  static std::optional<TaskManager::State> state(const Probe& request) {
    return taskManager().value(request.cancellationIdentifier);
  }
  static HTTPResponseError::Case responseError(const DataResponse& response) {
    const auto error = response.result.error();
    const auto* typed = error ? error->as<HTTPResponseError>() : nullptr;
    EXPECT_NE(typed, nullptr) << (error ? error->message() : "no error");
    return typed ? typed->kind() : HTTPResponseError::Case::malformedData;
  }

  test::ScriptedServer server;
  DispatchQueue queue{"test.completions"};
  test::Collector<DataResponse> responses;
};

TEST_F(SendTests, AnAnswerArrivesOnceOnTheQueueOfTheCaller) {
  test::Collector<bool> onQueue;
  probe("/ok").send(queue, [this, onQueue](const DataResponse& response) {
    onQueue.add(queue.isCurrent());
    responses.add(response);
  });
  ASSERT_TRUE(responses.waitFor(1));
  const auto response = responses.value(0);
  EXPECT_EQ(response.result.body(), Data("hello"));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("x-kind"), "greeting");
  EXPECT_TRUE(onQueue.value(0));
  EXPECT_EQ(server.requestCount(), 1u);
  queue.sync([] {});
  EXPECT_EQ(responses.count(), 1u);
}

TEST_F(SendTests, WithoutAQueueTheCompletionRunsOnAnotherThread) {
  test::Collector<std::thread::id> threads;
  probe("/ok").send(std::nullopt,
                    [threads](const DataResponse&) { threads.add(std::this_thread::get_id()); });
  ASSERT_TRUE(threads.waitFor(1));
  EXPECT_TRUE(threads.value(0) != std::this_thread::get_id());
}

TEST_F(SendTests, SendReturnsBeforeTheCompletionRunsOnTheCallersOwnQueue) {
  test::Collector<std::string> order;
  queue.async([&] {
    probe("/ok").send(queue, [order](const DataResponse&) { order.add("completion"); });
    order.add("returned");
  });
  ASSERT_TRUE(order.waitFor(2));
  EXPECT_THAT(order.values(), testing::ElementsAre("returned", "completion"));
}

TEST_F(SendTests, AMoveOnlyCompletionIsTaken) {
  test::Collector<int> values;
  probe("/ok").send(queue, [value = std::make_unique<int>(7), values](const DataResponse&) {
    values.add(*value);
  });
  ASSERT_TRUE(values.waitFor(1));
  EXPECT_EQ(values.value(0), 7);
}

TEST_F(SendTests, WhatTheCompletionHoldsIsLetGoOnceItHasRun) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  const test::Waiter done;
  probe("/ok").send(queue, [done, held = std::move(held)](const DataResponse&) { done.signal(); });
  ASSERT_TRUE(done.waitFor());
  queue.sync([] {});
  EXPECT_TRUE(watched.expired());
}

TEST_F(SendTests, ARequestThatDeclinesIsDroppedWithoutATrace) {
  auto request = probe("/ok");
  request.shouldSend = false;
  request.send(queue, responses.callback());
  // A second request goes the same way and is answered: by then the first would have been, too.
  send(probe("/ok"));
  EXPECT_EQ(responses.count(), 1u);
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(state(request), std::nullopt);
}

TEST_F(SendTests, TheSentinelURLFailsAsMalformed) {
  struct Homeless : DataGetRequestable<Homeless> {};
  Homeless().send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  const auto error = responses.value(0).result.error();
  ASSERT_NE(error->as<HTTPRequestError>(), nullptr);
  EXPECT_EQ(error->message(), "Malformed URL: /");
  EXPECT_EQ(responses.value(0).status, HTTPStatus::unknown);
  EXPECT_FALSE(responses.value(0).headers);
  expectLog(LogLevel::error, "Failure sending request Homeless: Malformed URL: /");
}

TEST_F(SendTests, AMalformedAddressIsToldInFullAndLoggedWithoutItsUserInformation) {
  struct Mistyped : DataGetRequestable<Mistyped> {
    URL url = URL::empty();
    URL baseURL() const { return URL("https://ann:secret@h/api"); }
  };
  Mistyped().send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.error()->message(),
            "Malformed URL: https://ann:secret@h/api");
  expectLog(LogLevel::error, "Failure sending request Mistyped: Malformed URL: https://h/api");
}

TEST_F(SendTests, AThrowingValidateKeepsTheRequestFromBeingSent) {
  auto request = probe("/ok");
  request.onValidate = [] { throw std::runtime_error("not signed in"); };
  const auto response = send(request);
  EXPECT_EQ(response.result.error()->message(), "not signed in");
  EXPECT_NE(response.result.error()->as<std::runtime_error>(), nullptr);
  EXPECT_EQ(server.connectionCount(), 0u);
  EXPECT_EQ(state(request), std::nullopt);
  expectFailureLog("not signed in");
}

TEST_F(SendTests, AFieldThatWouldBreakOutOfItsLineIsReported) {
  auto request = probe("/ok");
  request.headers = {{"X-Name", "a\r\nX-Injected: b"}};
  const auto response = send(request);
  ASSERT_NE(response.result.error()->as<InvalidRequestError>(), nullptr);
  EXPECT_THAT(response.result.error()->message(), testing::HasSubstr("X-Name"));
  EXPECT_EQ(server.connectionCount(), 0u);
  expectFailureLog(response.result.error()->message());
}

TEST_F(SendTests, AThrowingProcessTurnsAnAnswerIntoAFailure) {
  auto request = probe("/ok");
  request.onProcess = [](const DataResponse& response) {
    EXPECT_TRUE(response.result.isSuccessful());
    throw std::runtime_error("too old");
  };
  const auto response = send(request);
  EXPECT_EQ(response.result.error()->message(), "too old");
  EXPECT_EQ(response.data, Data("hello"));
  EXPECT_EQ(response.status, HTTPStatus::success);
}

TEST_F(SendTests, ProcessSeesAFailureToo) {
  auto request = probe("/missing");
  bool successful = true;
  request.onProcess = [&](const DataResponse& response) {
    successful = response.result.isSuccessful();
  };
  send(request);
  EXPECT_FALSE(successful);
}

TEST_F(SendTests, AThrowingCompletionIsLoggedAndHurtsNobody) {
  probe("/ok").send(queue, [](const DataResponse&) { throw std::runtime_error("my mistake"); });
  expectLog(LogLevel::fault, "A completion threw: my mistake");
  ASSERT_TRUE(log.waitForMessage(LogLevel::fault, "A completion threw: my mistake"));
  EXPECT_TRUE(send(probe("/ok")).result.isSuccessful());
}

TEST_F(SendTests, StatusesOutsideOfTheAcceptedOnesFail) {
  struct Row {
    int code;
    HTTPStatus status;
  };
  for (const Row row : {Row{300, HTTPStatus::multipleChoices}, Row{304, HTTPStatus::notModified},
                        Row{404, HTTPStatus::notFound}, Row{500, HTTPStatus::internalServerError},
                        Row{207, HTTPStatus::unknown}, Row{418, HTTPStatus::unknown}}) {
    SCOPED_TRACE(row.code);
    const std::string path = "/" + std::to_string(row.code);
    server.route(path, Script().respond(row.code, {{"X-Row", path}}, row.code == 304 ? "" : "why"));
    responses.take();
    const auto response = send(probe(path));
    ASSERT_EQ(responseError(response), HTTPResponseError::Case::unacceptableStatus);
    EXPECT_EQ(response.result.error()->as<HTTPResponseError>()->status(), row.status);
    EXPECT_EQ(response.status, row.status);
    EXPECT_EQ(response.headers->value("X-Row"), path);
    EXPECT_EQ(response.data, Data(row.code == 304 ? "" : "why"));
  }
}

TEST_F(SendTests, ARequestDecidesWhichStatusesItAccepts) {
  auto request = probe("/ok");
  request.accepts = [](HTTPStatus status) { return status == HTTPStatus::created; };
  const auto response = send(request);
  ASSERT_EQ(responseError(response), HTTPResponseError::Case::unacceptableStatus);
  EXPECT_EQ(response.result.error()->as<HTTPResponseError>()->status(), HTTPStatus::success);
}

TEST_F(SendTests, TheRecordJudgesAStatusThatTheRequestAccepts) {
  auto request = probe("/missing");
  request.accepts = [](HTTPStatus) { return true; };
  const auto response = send(request);
  ASSERT_EQ(responseError(response), HTTPResponseError::Case::unacceptableStatus);
  EXPECT_EQ(response.result.error()->as<HTTPResponseError>()->status(), HTTPStatus::notFound);
}

TEST_F(SendTests, AnAcceptanceThatThrowsIsTheFailure) {
  auto request = probe("/ok");
  request.accepts = [](HTTPStatus) -> bool { throw std::runtime_error("undecided"); };
  EXPECT_EQ(send(request).result.error()->message(), "undecided");
}

TEST_F(SendTests, ATransportErrorBecomesTheNetworkErrorWithItsNumber) {
  const test::RefusedPort refused;
  const auto response = send(Probe(refused.url()));
  const auto error = response.result.error();
  ASSERT_NE(error->as<CFNetworkErrors>(), nullptr);
  EXPECT_EQ(error->code(), -1004);
  EXPECT_EQ(error->domain(), "CFNetwork.CFNetworkErrors");
  EXPECT_EQ(response.status, HTTPStatus::unknown);
}

TEST_F(SendTests, ATransportErrorAfterTheHeadKeepsTheHeadAndDropsTheBytes) {
  server.route("/cut", Script().head(200, {{"Content-Length", "10"}}).send("half").close());
  const auto response = send(probe("/cut"));
  EXPECT_EQ(response.result.error()->code(), -1005);
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_FALSE(response.data);
}

TEST_F(SendTests, AnIdleAnswerTimesOut) {
  auto request = probe("/stall");
  request.timeoutInterval = TimeInterval(0.2);
  EXPECT_EQ(send(request).result.error()->code(), -1001);
}

TEST_F(SendTests, ARequestTypeCanTakeOverSendAndCallTheSendItself) {
  struct Counted : DataGetRequestable<Counted> {
    URL url;
    int* sends;
    Counted(const std::string& address, int* count) : url(address), sends(count) {}
    void send(std::optional<DispatchQueue> completionQueue,
              Completion<DataResponse> completion) const {
      ++*sends;
      _send(std::move(completionQueue), std::move(completion));
    }
  };
  int sends = 0;
  Counted(server.url("/ok"), &sends).send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(sends, 1);
}

TEST_F(SendTests, ATaskOfOnesOwnIsSent) {
  struct Own : DataGetRequestable<Own> {
    URL url;
    explicit Own(const std::string& address) : url(address) {}
    std::shared_ptr<URLSessionTask> createTask(const std::optional<DispatchQueue>& queue,
                                               Completion<DataResponse> completion) const {
      auto other = urlRequest();
      other.setValue("by hand", "X-Made");
      return taskProducer()->create(
          other, false, [queue, completion](auto data, auto response, auto error) {
            completion(DataResponse(std::move(data), std::nullopt, std::move(response), error));
          });
    }
  };
  Own(server.url("/ok")).send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(server.request(0).header("X-Made"), "by hand");
}

TEST_F(SendTests, ARequestWithoutATaskFails) {
  struct Idle : DataGetRequestable<Idle> {
    std::shared_ptr<URLSessionTask> createTask(const std::optional<DispatchQueue>&,
                                               Completion<DataResponse>) const {
      return nullptr;
    }
  };
  Idle().send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_FALSE(responses.value(0).result.isSuccessful());
  expectLog(LogLevel::error, "Failure sending request Idle: createTask answered no task");
}

TEST_F(SendTests, AStoredURLIsSentAsItIs) {
  DataGetRequest(URL(server.url("/a/../b/./c%2F?k=1#part")), {}, {{"n", 1}})
      .send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(server.request(0).target, "/a/../b/./c%2F?k=1");
}

TEST_F(SendTests, OneValueCanBeSentAgainAndAgain) {
  const auto request = probe("/ok");
  for (int count = 0; count < 5; ++count) request.send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(5));
  EXPECT_EQ(server.requestCount(), 5u);
}

// Calls back while it is copied, which a send does right after it has announced the request.
struct CopyHook {
  std::function<void()> onCopy = [] {};
  CopyHook() = default;
  CopyHook(const CopyHook& other) : onCopy(other.onCopy) { onCopy(); }
  CopyHook(CopyHook&&) = default;
  CopyHook& operator=(const CopyHook&) = default;
};

TEST_F(SendTests, CancellingRightAfterTheSendStartsNoTask) {
  struct Hasty : DataGetRequestable<Hasty>, HTTPRequestCancelable<Hasty> {
    URL url;
    UUID cancellationIdentifier;
    CopyHook hook;
    bool* validated;
    Hasty(const std::string& address, bool* seen) : url(address), validated(seen) {}
    void validate() const { *validated = true; }
  };
  bool validated = false;
  Hasty request(server.url("/ok"), &validated);
  request.hook.onCopy = [id = request.cancellationIdentifier] { taskManager().cancel(id); };
  request.send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responseError(responses.value(0)), HTTPResponseError::Case::taskCancelled);
  EXPECT_FALSE(validated);
  EXPECT_EQ(server.connectionCount(), 0u);
  EXPECT_EQ(taskManager().value(request.cancellationIdentifier), std::nullopt);
  expectLog(LogLevel::error, "Failure sending request Hasty: Task has been cancelled");
}

TEST_F(SendTests, CancellingWhileTheTaskIsMadeStartsItNot) {
  auto request = probe("/ok");
  request.onValidate = [id = request.cancellationIdentifier] { taskManager().cancel(id); };
  const auto response = send(request);
  EXPECT_EQ(responseError(response), HTTPResponseError::Case::taskCancelled);
  EXPECT_EQ(server.connectionCount(), 0u);
  EXPECT_EQ(state(request), std::nullopt);
  expectFailureLog("Task has been cancelled");
}

TEST_F(SendTests, ATaskThatWasNotStartedEndsUnnoticed) {
  auto request = probe("/ok");
  int processed = 0;
  request.onProcess = [&](const DataResponse&) { ++processed; };
  request.onValidate = [id = request.cancellationIdentifier] { taskManager().cancel(id); };
  send(request);
  expectFailureLog("Task has been cancelled");
  // The same value once more, under way while the session ends that made the task.
  auto again = request;
  again.onValidate = [] {};
  again.url = URL(server.url("/stall"));
  again.send(queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  DataTaskProducer::shared()->resetSession();
  ASSERT_TRUE(responses.waitFor(2));
  expectLog(LogLevel::error,
            "TarnService session became invalid with error: No error message attempting to reset");
  ASSERT_TRUE(log.waitFor(2));
  EXPECT_EQ(processed, 1);
}

TEST_F(SendTests, ABlockedValidateHoldsUpNoOtherSend) {
  auto blocked = probe("/ok");
  const DispatchSemaphore released(0);
  blocked.onValidate = [released] { released.wait(); };
  for (int count = 0; count < 8; ++count) blocked.send(queue, responses.callback());
  EXPECT_TRUE(send(probe("/ok")).result.isSuccessful());
  for (int count = 0; count < 8; ++count) released.signal();
  ASSERT_TRUE(responses.waitFor(9));
}

TEST_F(SendTests, AnAddressThatCannotBeParsedIsReported) {
  struct Broken : DataGetRequestable<Broken> {
    URL baseURL() const { return URL("http://127.0.0.1/\r\nX-Injected: b"); }
  };
  Broken().send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  const auto error = responses.value(0).result.error();
  ASSERT_NE(error->as<MalformedURLError>(), nullptr);
  expectLog(LogLevel::error, "Failure sending request Broken: " + error->message());
}

TEST_F(SendTests, CancellingInFlightTearsTheConnectionDown) {
  const auto request = probe("/stall");
  request.send(queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  request.cancel();
  request.cancel();
  ASSERT_TRUE(responses.waitFor(1));
  const auto error = responses.value(0).result.error();
  ASSERT_NE(error->as<CFNetworkErrors>(), nullptr);
  EXPECT_EQ(error->code(), -999);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
  EXPECT_EQ(state(request), std::nullopt);
  queue.sync([] {});
  EXPECT_EQ(responses.count(), 1u);
}

TEST_F(SendTests, CancellingAsTheAnswerIsJudgedCancelsTheRequest) {
  auto request = probe("/ok");
  request.accepts = [id = request.cancellationIdentifier](HTTPStatus) {
    taskManager().cancel(id);
    return true;
  };
  EXPECT_EQ(responseError(send(request)), HTTPResponseError::Case::taskCancelled);
  EXPECT_EQ(state(request), std::nullopt);
}

TEST_F(SendTests, CancellingAfterTheAnswerDoesNothing) {
  const auto request = probe("/ok");
  EXPECT_TRUE(send(request).result.isSuccessful());
  request.cancel();
  EXPECT_EQ(state(request), std::nullopt);
  queue.sync([] {});
  EXPECT_EQ(responses.count(), 1u);
}

TEST_F(SendTests, ALiveRequestIsRegisteredWithItsTask) {
  const auto request = probe("/stall");
  request.send(queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  ASSERT_TRUE(state(request));
  EXPECT_EQ(state(request)->kind(), TaskManager::State::Case::created);
  EXPECT_EQ(state(request)->task()->state(), URLSessionTask::State::running);
  server.releaseStalls();
  request.cancel();
  ASSERT_TRUE(responses.waitFor(1));
}

TEST_F(SendTests, ARangeOfRequestsIsCancelled) {
  const std::vector<Probe> requests{probe("/stall"), probe("/stall"), probe("/stall")};
  for (const auto& request : requests) request.send(queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(3));
  cancel(requests);
  ASSERT_TRUE(responses.waitFor(3));
  for (const auto& response : responses.values()) EXPECT_EQ(response.result.error()->code(), -999);
}

}  // namespace
}  // namespace tarn
