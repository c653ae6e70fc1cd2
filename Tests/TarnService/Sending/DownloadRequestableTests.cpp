#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using Answer = DownloadResponse<File>;

// A request whose every hook a test can set.
struct Fetch : DownloadGetRequestable<Fetch>, HTTPRequestCancelable<Fetch> {
  explicit Fetch(const std::string& address) : url(address) {}

  URL url;
  bool shouldSend = true;
  UUID cancellationIdentifier;
  std::function<void()> onValidate = [] {};
  std::function<URL(const URL&)> onURLRequest = [](const URL& address) { return address; };

  void validate() const { onValidate(); }
  URLRequest urlRequest() const {
    URLRequest request = generateRequest();
    request.setURL(onURLRequest(request.url()));
    return request;
  }
};

class DownloadSendTests : public test::ServiceTest {
 protected:
  DownloadSendTests() {
    server.route("/file.txt", Script().respond(200, {}, "content"));
    server.route("/half", Script().head(200, {{"Content-Length", "10"}}).send("half ").stall());
  }

  Fetch fetch(const std::string& path) const { return Fetch(server.url(path)); }
  void send(const Fetch& request, const std::optional<DispatchQueue>& onQueue) const {
    request.send(onQueue, progress.callback(), responses.callback());
  }
  Answer answerTo(const Fetch& request) const {
    send(request, queue);
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }
  static std::optional<TaskManager::State> state(const Fetch& request) {
    return taskManager().value(request.cancellationIdentifier);
  }
  static bool isCancelled(const Answer& response) {
    const auto error = response.result.error();
    const auto* typed = error ? error->as<HTTPResponseError>() : nullptr;
    return typed && typed->kind() == HTTPResponseError::Case::taskCancelled;
  }
  void expectFailureLog(const std::string& message) {
    expectLog(LogLevel::error, "Failure sending request Fetch: " + message);
  }

  test::ScriptedServer server;
  DispatchQueue queue{"test.completions"};
  test::Collector<RequestProgress> progress;
  test::Collector<Answer> responses;
};

TEST_F(DownloadSendTests, ProgressAndTheAnswerArriveOnTheQueueOfTheCaller) {
  test::Collector<std::string> order;
  fetch("/file.txt")
      .send(
          queue,
          [this, order](RequestProgress value) {
            EXPECT_TRUE(queue.isCurrent());
            order.add("progress " + std::to_string(value.completedBytes) + " of " +
                      std::to_string(value.totalBytes));
          },
          [this, order](const Answer& response) {
            EXPECT_TRUE(queue.isCurrent());
            EXPECT_EQ(response.result.body()->asData(), Data("content"));
            order.add("completion");
          });
  ASSERT_TRUE(order.waitFor(2));
  queue.sync([] {});
  EXPECT_THAT(order.values(), testing::ElementsAre("progress 7 of 7", "completion"));
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, ProgressIsOptional) {
  fetch("/file.txt").send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.body()->asData(), Data("content"));
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, AnEmptyProgressHandlerIsNone) {
  using Function = std::function<void(RequestProgress)>;
  const Function empty;
  void (*const null)(RequestProgress) = nullptr;
  fetch("/file.txt").send(queue, empty, responses.callback());
  fetch("/file.txt").send(queue, Function(), responses.callback());
  fetch("/file.txt").send(queue, null, responses.callback());
  fetch("/file.txt").send(queue, UniqueFunction<void(RequestProgress)>(), responses.callback());
  ASSERT_TRUE(responses.waitFor(4));
  queue.sync([] {});
  for (const auto& response : responses.values()) EXPECT_TRUE(response.result.isSuccessful());
  EXPECT_THAT(log.messages(LogLevel::fault), testing::IsEmpty());
  expectKeptDownloads(4);
}

TEST_F(DownloadSendTests, AFunctionPointerAndAFunctionObjectReceiveProgress) {
  static std::atomic<int> calls;
  calls = 0;
  void (*const pointer)(RequestProgress) = [](RequestProgress) { ++calls; };
  const std::function<void(RequestProgress)> object = pointer;
  fetch("/file.txt").send(queue, pointer, responses.callback());
  fetch("/file.txt").send(queue, object, responses.callback());
  ASSERT_TRUE(responses.waitFor(2));
  queue.sync([] {});
  EXPECT_EQ(calls, 2);
  expectKeptDownloads(2);
}

TEST_F(DownloadSendTests, WithoutAQueueTheLastProgressComesBeforeTheCompletion) {
  for (int round = 1; round <= 20; ++round) {
    test::Collector<std::string> order;
    fetch("/file.txt")
        .send(
            std::nullopt, [order](RequestProgress) { order.add("progress"); },
            [order](const Answer&) { order.add("completion"); });
    ASSERT_TRUE(order.waitFor(2));
    EXPECT_THAT(order.values(), testing::ElementsAre("progress", "completion"));
  }
  expectKeptDownloads(20);
}

TEST_F(DownloadSendTests, AnUnknownSizeLeavesPercentCompletedAbsent) {
  server.route("/chunked", Script().respondChunked(200, {}, {"ab", "cde"}));
  const auto response = answerTo(fetch("/chunked"));
  EXPECT_EQ(response.result.body()->asData(), Data("abcde"));
  ASSERT_GE(progress.count(), 1u);
  for (const auto& value : progress.values()) {
    EXPECT_LE(value.totalBytes, 0);
    EXPECT_EQ(value.percentCompleted(), std::nullopt);
  }
  EXPECT_EQ(progress.values().back().completedBytes, 5);
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, ABlockedQueueSeesTheLastProgressOnly) {
  // The pieces are sent one after another, so that there mostly are several events.
  server.route("/pieces", Script()
                              .head(200, {{"Content-Length", "6"}})
                              .send("ab")
                              .stall()
                              .send("cd")
                              .stall()
                              .send("ef"));
  const DispatchSemaphore blocked(0);
  queue.async([blocked] { blocked.wait(); });
  send(fetch("/pieces"), queue);
  for (int piece = 1; piece <= 2; ++piece) server.releaseStalls();
  ASSERT_TRUE(test::eventually([&] { return downloads().size() == 1; }));
  EXPECT_EQ(progress.count(), 0u);
  blocked.signal();
  ASSERT_TRUE(responses.waitFor(1));
  ASSERT_EQ(progress.count(), 1u);
  EXPECT_EQ(progress.value(0), (RequestProgress{6, 6}));
  EXPECT_EQ(progress.value(0).percentCompleted(), 1.0f);
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, AnUnacceptableAnswerIsAFailureWithItsMetadata) {
  server.route("/missing", Script().respond(404, {{"X-Kind", "excuse"}}, "none"));
  const auto response = answerTo(fetch("/missing"));
  ASSERT_NE(response.result.error()->as<HTTPResponseError>(), nullptr);
  EXPECT_EQ(response.status, HTTPStatus::notFound);
  EXPECT_EQ(response.headers->value("X-Kind"), "excuse");
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, NoContentHasNoBody) {
  server.route("/none", Script().respond(204));
  const auto response = answerTo(fetch("/none"));
  EXPECT_TRUE(response.result.isSuccessful());
  EXPECT_FALSE(response.result.body());
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, ACutAnswerIsANetworkErrorAndLeavesNoFile) {
  server.route("/cut", Script().head(200, {{"Content-Length", "10"}}).send("half ").close());
  const auto response = answerTo(fetch("/cut"));
  ASSERT_NE(response.result.error()->as<CFNetworkErrors>(), nullptr);
  EXPECT_EQ(response.result.error()->code(), URLError::networkConnectionLost);
}

TEST_F(DownloadSendTests, ARequestThatDeclinesIsDropped) {
  auto request = fetch("/file.txt");
  request.shouldSend = false;
  send(request, queue);
  answerTo(fetch("/file.txt"));
  EXPECT_EQ(responses.count(), 1u);
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(state(request), std::nullopt);
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, AThrowingValidateIsReported) {
  auto request = fetch("/file.txt");
  request.onValidate = [] { throw std::runtime_error("not signed in"); };
  EXPECT_EQ(answerTo(request).result.error()->message(), "not signed in");
  EXPECT_EQ(server.connectionCount(), 0u);
  expectFailureLog("not signed in");
}

TEST_F(DownloadSendTests, ARequestThatCannotBeBuiltIsReported) {
  struct Homeless : DownloadGetRequestable<Homeless> {};
  Homeless().send(queue, progress.callback(), responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_NE(responses.value(0).result.error()->as<HTTPRequestError>(), nullptr);
  expectLog(LogLevel::error, "Failure sending request Homeless: Malformed URL: /");
}

// Calls back while it is copied, which a send does right after it has announced the request.
struct CopyHook {
  std::function<void()> onCopy = [] {};
  CopyHook() = default;
  CopyHook(const CopyHook& other) : onCopy(other.onCopy) { onCopy(); }
  CopyHook(CopyHook&&) = default;
  CopyHook& operator=(const CopyHook&) = default;
};

TEST_F(DownloadSendTests, CancellingBeforeTheSendQueueRunsMakesNoTask) {
  struct Hasty : DownloadGetRequestable<Hasty>, HTTPRequestCancelable<Hasty> {
    URL url;
    UUID cancellationIdentifier;
    CopyHook hook;
    bool* built;
    Hasty(const std::string& address, bool* seen) : url(address), built(seen) {}
    URLRequest urlRequest() const {
      *built = true;
      return generateRequest();
    }
  };
  bool built = false;
  Hasty request(server.url("/file.txt"), &built);
  request.hook.onCopy = [id = request.cancellationIdentifier] { taskManager().cancel(id); };
  request.send(queue, progress.callback(), responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_TRUE(isCancelled(responses.value(0)));
  EXPECT_FALSE(built);
  EXPECT_EQ(server.connectionCount(), 0u);
  EXPECT_EQ(taskManager().value(request.cancellationIdentifier), std::nullopt);
  expectLog(LogLevel::error, "Failure sending request Hasty: Task has been cancelled");
}

// Calls back once a task is made.
class HookedProducer final : public HTTPDownloadTaskProducer {
 public:
  std::function<void(const std::shared_ptr<URLSessionTask>&)> onCreate;

  using HTTPDownloadTaskProducer::create;
  std::shared_ptr<URLSession> session() override { return session_; }
  void resetSession() override {}
  std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                         bool shouldWaitForConnectivity,
                                         URLSessionTaskRef::Progress progress,
                                         URLSessionTaskRef::FileCompletion completion) override {
    const auto task = HTTPDownloadTaskProducer::create(forRequest, shouldWaitForConnectivity,
                                                       std::move(progress), std::move(completion));
    onCreate(task);
    return task;
  }

 private:
  std::shared_ptr<URLSession> session_ =
      URLSession::make({}, std::make_shared<URLSessionDelegate>());
};

struct Late : DownloadGetRequestable<Late>, HTTPRequestCancelable<Late> {
  using TaskProducer = HookedProducer;
  URL url;
  UUID cancellationIdentifier;
  std::shared_ptr<HookedProducer> taskProducer = std::make_shared<HookedProducer>();
  explicit Late(const std::string& address) : url(address) {}
};

TEST_F(DownloadSendTests, CancellingBetweenTheTasksCreationAndTheSecondCheckStartsItNot) {
  const Late request(server.url("/file.txt"));
  test::Collector<std::shared_ptr<URLSessionTask>> tasks;
  request.taskProducer->onCreate = [tasks, id = request.cancellationIdentifier](const auto& task) {
    tasks.add(task);
    taskManager().cancel(id);
  };
  request.send(queue, progress.callback(), responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_TRUE(isCancelled(responses.value(0)));
  ASSERT_EQ(tasks.count(), 1u);
  EXPECT_EQ(tasks.value(0)->state(), URLSessionTask::State::suspended);
  EXPECT_EQ(server.connectionCount(), 0u);
  EXPECT_EQ(taskManager().value(request.cancellationIdentifier), std::nullopt);
  expectLog(LogLevel::error, "Failure sending request Late: Task has been cancelled");
}

TEST_F(DownloadSendTests, CancellingInFlightEndsTheDownloadOnceAndLeavesNoFile) {
  const auto request = fetch("/half");
  send(request, queue);
  ASSERT_TRUE(progress.waitFor(1));
  ASSERT_TRUE(state(request));
  EXPECT_EQ(state(request)->kind(), TaskManager::State::Case::created);
  request.cancel();
  request.cancel();
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.error()->code(), URLError::cancelled);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
  EXPECT_EQ(state(request), std::nullopt);
  queue.sync([] {});
  EXPECT_EQ(responses.count(), 1u);
  EXPECT_EQ(progress.count(), 1u);
}

TEST_F(DownloadSendTests, DownloadsCancelledAtAnyMomentAreAnsweredOnceAndLeaveNoPartOfAFile) {
  server.route("/some", Script().respond(200, {}, std::string(100000, 'x')));
  constexpr std::size_t count = 300;
  std::vector<Fetch> requests;
  for (std::size_t index = 0; index < count; ++index) {
    requests.push_back(fetch("/some"));
    send(requests.back(), queue);
    // The further back, the further the download has come.
    requests[index - std::min<std::size_t>(index, index % 23)].cancel();
  }
  ASSERT_TRUE(responses.waitFor(count));
  queue.sync([] {});
  EXPECT_EQ(responses.count(), count);
  std::size_t pending = 0;
  std::size_t kept = 0;
  for (const auto& request : requests) pending += state(request).has_value();
  for (const auto& response : responses.values()) kept += response.result.isSuccessful();
  EXPECT_EQ(pending, 0u);
  EXPECT_LT(kept, count);
  // Those that were cancelled before they were sent are logged; the rest fail without a line.
  for (const auto& message : log.messages(LogLevel::error)) {
    EXPECT_EQ(message, "Failure sending request Fetch: Task has been cancelled");
    expectFailureLog("Task has been cancelled");
  }
  // A download that is cancelled when it is whole leaves its file, like any other.
  EXPECT_GE(downloads().size(), kept);
  expectKeptDownloads(downloads().size());
}

TEST_F(DownloadSendTests, WhatTheCallbacksHoldIsLetGoOnceTheSendIsAnswered) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  const test::Waiter done;
  fetch("/file.txt")
      .send(
          queue, [held](RequestProgress) { static_cast<void>(*held); },
          [held, done](const Answer&) { done.signal(); });
  held.reset();
  ASSERT_TRUE(done.waitFor());
  queue.sync([] {});
  EXPECT_TRUE(test::eventually([&] { return watched.expired(); }));
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, AThrowingCompletionIsLogged) {
  fetch("/file.txt").send(queue, progress.callback(), [](const Answer&) {
    throw std::runtime_error("my mistake");
  });
  ASSERT_TRUE(log.waitForMessage(LogLevel::fault, "A completion threw: my mistake"));
  expectLog(LogLevel::fault, "A completion threw: my mistake");
  expectKeptDownloads(1);
}

TEST_F(DownloadSendTests, ABodyOfADownloadRequestIsSent) {
  struct Query : DownloadPostRequestable<Query, Data> {
    URL url;
    Data body{"which file?"};
    explicit Query(const std::string& address) : url(address) {}
  };
  test::Collector<DownloadResponse<Data>> answers;
  Query(server.url("/file.txt")).send(queue, answers.callback());
  ASSERT_TRUE(answers.waitFor(1));
  EXPECT_EQ(answers.value(0).result.body(), Data("content"));
  EXPECT_EQ(server.request(0).body, "which file?");
  expectKeptDownloads(1);
}

}  // namespace
}  // namespace tarn
