#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

namespace tarn::test {
namespace {

using State = URLSessionTask::State;

TEST(URLSessionTask, TellsOfAWholeAnswer) {
  ScriptedServer server;
  server.route(
      "/", Script().respond(200, {{"Content-Type", "text/Plain; charset=UTF-8"}, {"X-One", "1"}},
                            "hello"));
  RecordedSession session;
  const auto task = session->dataTask(RecordedSession::request(server.url("/?q")));
  EXPECT_EQ(task->state(), State::suspended);
  EXPECT_EQ(task->response(), nullptr);
  EXPECT_EQ(task->originalRequest().url().absoluteString(), server.url("/?q"));
  task->resume();
  EXPECT_EQ(task->state() == State::running || task->state() == State::completed, true);
  const auto loaded = session.finished(task);
  EXPECT_EQ(task->state(), State::completed);
  EXPECT_EQ(task->error(), std::nullopt);
  EXPECT_EQ(task->countOfBytesReceived(), 5);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.text(), "hello");
  EXPECT_EQ(loaded.record.dataEvents, 1);
  ASSERT_NE(loaded.response, nullptr);
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_EQ(loaded.response->httpVersion(), "HTTP/1.1");
  EXPECT_EQ(loaded.response->mimeType(), "text/plain");
  EXPECT_EQ(loaded.response->textEncodingName(), "utf-8");
  EXPECT_EQ(loaded.response->expectedContentLength(), 5);
  EXPECT_EQ(loaded.response->url().absoluteString(), server.url("/?q"));
  EXPECT_EQ(loaded.header("x-one"), "1");
}

TEST(URLSessionTask, AnEmptyBodyGivesNoDataEvent) {
  ScriptedServer server;
  server.route("/", Script().respond(204));
  RecordedSession session;
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.status(), 204);
  EXPECT_EQ(loaded.record.dataEvents, 0);
}

TEST(URLSessionTask, StartsNothingBeforeResume) {
  ScriptedServer server;
  RecordedSession session;
  const auto unused = session->dataTask(RecordedSession::request(server.url("/unused")));
  EXPECT_EQ(session.load(server.url("/used")).status(), 404);
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(unused->state(), State::suspended);
}

TEST(URLSessionTask, ASecondResumeHasNoEffect) {
  ScriptedServer server;
  RecordedSession session;
  const auto task = session.start(server.url("/"));
  task->resume();
  session.finished(task);
  task->resume();
  task->suspend();
  EXPECT_EQ(task->state(), State::completed);
  session.load(server.url("/"));
  EXPECT_EQ(server.requestCount(), 2u);
}

// -- Cancelling

TEST(URLSessionTaskCancel, BeforeTheFirstResume) {
  ScriptedServer server;
  RecordedSession session;
  const auto task = session->dataTask(RecordedSession::request(server.url("/")));
  task->cancel();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), URLError::cancelled);
  EXPECT_EQ(loaded.record.error->as<URLError>()->failingURL(), server.url("/"));
  task->resume();
  session.load(server.url("/other"));
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(URLSessionTaskCancel, WhileTheAnswerIsAwaited) {
  ScriptedServer server;
  server.route("/", Script().stall());
  RecordedSession session;
  const auto task = session.start(server.url("/"));
  ASSERT_TRUE(server.waitForStalls(1));
  task->cancel();
  EXPECT_NE(task->state(), State::running);
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(URLSessionTaskCancel, InTheMiddleOfTheBody) {
  ScriptedServer server;
  server.route("/", Script().head(200, {{"Content-Length", "100"}}).send("part").stall());
  RecordedSession session;
  const auto task = session.start(server.url("/"));
  ASSERT_TRUE(session.delegate().waitForBytes(task->taskIdentifier(), 4));
  task->cancel();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), URLError::cancelled);
  EXPECT_EQ(loaded.text(), "part");
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(URLSessionTaskCancel, WhileQueuedBehindTheHostLimit) {
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest&) { return Script().stall().respond(200); });
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 7; ++i) tasks.push_back(session.start(server.url("/" + std::to_string(i))));
  ASSERT_TRUE(server.waitForStalls(6));
  tasks[6]->cancel();
  EXPECT_EQ(session.finished(tasks[6]).code(), URLError::cancelled);
  server.releaseStalls(6);
  tasks.pop_back();
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).code(), 0);
  EXPECT_EQ(server.requestCount(), 6u);
}

TEST(URLSessionTaskCancel, AfterCompletionHasNoEffect) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  const auto loaded = session.load(server.url("/"));
  loaded.task->cancel();
  EXPECT_EQ(loaded.task->state(), State::completed);
  EXPECT_EQ(loaded.task->error(), std::nullopt);
  session.load(server.url("/"));
  EXPECT_EQ(session.delegate().record(loaded.task->taskIdentifier()).completions, 1);
}

TEST(URLSessionTaskCancel, WithinAnEventOfItsOwn) {
  ScriptedServer server;
  server.route("/", Script().head(200, {{"Content-Length", "100"}}).send("part").stall());
  RecordedSession session;
  session.delegate().onData = [](URLSessionTask& task, const Data&) { task.cancel(); };
  EXPECT_EQ(session.load(server.url("/")).code(), URLError::cancelled);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(URLSessionTaskCancel, WithinItsLastEventHasNoEffect) {
  ScriptedServer server;
  RecordedSession session;
  session.delegate().onComplete = [](URLSessionTask& task) {
    task.cancel();
    EXPECT_EQ(task.state(), State::completed);
  };
  EXPECT_EQ(session.load(server.url("/")).code(), 0);
}

TEST(URLSessionTaskCancel, ASuspendedTask) {
  ScriptedServer server;
  server.route("/", Script().head(200).send("part").stall());
  RecordedSession session;
  const auto task = session.start(server.url("/"));
  ASSERT_TRUE(session.delegate().waitForBytes(task->taskIdentifier(), 4));
  task->suspend();
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(URLSessionTaskCancel, DuringNameResolutionAndConnecting) {
  RecordedSession session;
  for (int i = 0; i < 20; ++i) {
    const auto task = session.start("http://nonexistent.invalid/" + std::to_string(i));
    task->cancel();
    EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  }
}

TEST(URLSessionTaskCancel, FromManyThreadsGivesOneCompletion) {
  ScriptedServer server(false);
  server.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "hello"); });
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 200; ++i) {
    tasks.push_back(session->dataTask(RecordedSession::request(server.url("/"))));
  }
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::minstd_rand random(seed);
      for (const auto& task : tasks) {
        if (random() % 2 == 0) task->resume();
        if (random() % 4 == 0) task->suspend();
        if (random() % 3 == 0) task->cancel();
        task->resume();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(session.delegate().waitForCompletions(tasks.size()));
  for (const auto& task : tasks) {
    const auto loaded = session.finished(task);
    EXPECT_EQ(loaded.record.completions, 1);
    EXPECT_TRUE(loaded.code() == 0 || loaded.code() == URLError::cancelled) << loaded.code();
    EXPECT_EQ(loaded.record.misplacedEvents, 0);
  }
}

// -- Suspending

TEST(URLSessionTaskSuspend, HoldsBackWhatTheServerSends) {
  ScriptedServer server;
  server.route("/", Script().head(200).send("one").stall().send("two").close());
  RecordedSession session;
  const auto task = session.start(server.url("/"));
  ASSERT_TRUE(session.delegate().waitForBytes(task->taskIdentifier(), 3));
  task->suspend();
  EXPECT_EQ(task->state(), State::suspended);
  // Another task shows that the loop has taken note of it.
  session.load(server.url("/other"));
  server.releaseStalls();
  session.load(server.url("/other"));
  EXPECT_EQ(session.delegate().record(task->taskIdentifier()).body.size(), 3u);
  task->resume();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.text(), "onetwo");
}

TEST(URLSessionTaskSuspend, BeforeTheConnectionStands) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  for (int i = 0; i < 20; ++i) {
    const auto task = session.start(server.url("/"));
    task->suspend();
    session.load(server.url("/other"));
    task->resume();
    EXPECT_EQ(session.finished(task).text(), "hello");
  }
}

TEST(URLSessionTaskSuspend, AQueuedTaskKeepsItsPlaceAndLetsOthersPass) {
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest&) { return Script().stall().respond(200); });
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 9; ++i) tasks.push_back(session.start(server.url("/" + std::to_string(i))));
  // Behind a task of another host the loop has taken note of what was done before.
  ScriptedServer other;
  session.load(other.url("/"));
  tasks[6]->suspend();
  session.load(other.url("/"));
  ASSERT_TRUE(server.waitForStalls(6));
  tasks[0]->cancel();
  ASSERT_TRUE(server.waitForRequests(7));
  EXPECT_EQ(server.request(6).path(), "/7");
  tasks[6]->resume();
  session.load(other.url("/"));
  tasks[1]->cancel();
  ASSERT_TRUE(server.waitForRequests(8));
  EXPECT_EQ(server.request(7).path(), "/6");
}

TEST(URLSessionTaskSuspend, AtRandomLosesNothingOfALargeBody) {
  constexpr std::size_t size = 64 << 20;
  constexpr std::size_t blockSize = 1 << 16;
  std::string block(blockSize, '\0');
  std::minstd_rand random(7);
  for (auto& byte : block) byte = static_cast<char>(random());
  ScriptedServer server;
  server.route("/", Script()
                        .head(200, {{"Content-Length", std::to_string(size)}})
                        .repeat(block, size / blockSize));
  // Checks as it goes, instead of keeping it all.
  struct CheckingDelegate : RecordingDelegate {
    void didReceiveData(URLSession&, URLSessionDataTask& task, Data data) override {
      for (const auto byte : data) {
        if (byte != static_cast<std::uint8_t>(block[received++ % block.size()])) ++wrong;
      }
      if (random() % 3 == 0) {
        task.suspend();
        task.resume();
      }
    }
    std::string block;
    std::size_t received = 0;
    std::size_t wrong = 0;
    std::minstd_rand random{3};
  };
  const auto delegate = std::make_shared<CheckingDelegate>();
  delegate->block = block;
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
  const auto task = session->dataTask(RecordedSession::request(server.url("/")));
  task->resume();
  std::size_t toggles = 0;
  while (task->state() != State::completed && toggles < 1'000'000) {
    task->suspend();
    std::this_thread::yield();
    task->resume();
    ++toggles;
  }
  task->resume();
  ASSERT_TRUE(delegate->waitForCompletion(task->taskIdentifier(), std::chrono::seconds(60)));
  const auto record = delegate->record(task->taskIdentifier());
  EXPECT_EQ(record.code(), 0) << record.error->message();
  EXPECT_EQ(delegate->received, size);
  EXPECT_EQ(delegate->wrong, 0u);
  EXPECT_EQ(task->countOfBytesReceived(), static_cast<std::int64_t>(size));
  EXPECT_GT(toggles, 10u);
  session->invalidateAndCancel();
  EXPECT_TRUE(delegate->waitForInvalid());
}

// -- Delivery

TEST(URLSessionTaskDelivery, ASlowDelegateHoldsUpTheServer) {
  constexpr std::size_t size = 64 << 20;
  ScriptedServer server;
  server.route("/", Script()
                        .head(200, {{"Content-Length", std::to_string(size)}})
                        .repeat(std::string(1 << 16, 'x'), size >> 16));
  ScriptedServer other;
  RecordedSession session;
  const DispatchSemaphore gate(0);
  std::atomic<bool> first{true};
  const auto large = server.url("/");
  session.delegate().onData = [&](URLSessionTask& task, const Data&) {
    if (task.originalRequest().url().absoluteString() == large && first.exchange(false))
      gate.wait();
  };
  const auto task = session.start(large);
  ASSERT_TRUE(session.delegate().waitForBytes(task->taskIdentifier(), 1));
  // Others go on meanwhile; by then the loop has read as much as it will.
  for (int i = 0; i < 50; ++i) EXPECT_EQ(session.load(other.url("/")).status(), 404);
  EXPECT_LT(task->countOfBytesReceived(), 4 << 20);
  gate.signal();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.record.body.size(), size);
}

TEST(URLSessionTaskDelivery, SmallPiecesAreMergedWhileTheDelegateIsBusy) {
  constexpr int pieces = 500;
  ScriptedServer server;
  Script script = Script::afterHead();
  script.head(200);
  for (int i = 0; i < pieces; ++i) script.send("piece").delay(std::chrono::milliseconds(0));
  server.route("/", script.close());
  RecordedSession session;
  const DispatchSemaphore gate(0);
  std::atomic<bool> first{true};
  session.delegate().onData = [&](URLSessionTask&, const Data&) {
    if (first.exchange(false)) gate.wait();
  };
  const auto task = session.start(server.url("/"));
  ASSERT_TRUE(server.waitForConnections(1) && server.waitForOpenConnections(0));
  while (task->countOfBytesReceived() < pieces * 5 && task->state() != State::completed) {
    std::this_thread::yield();
  }
  gate.signal();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.record.body.size(), pieces * 5u);
  EXPECT_LT(loaded.record.dataEvents, 10);
}

TEST(URLSessionTaskDelivery, ABlockedEventOfOneTaskDoesNotHoldUpAnother) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  const DispatchSemaphore gate(0);
  session.delegate().onData = [&](URLSessionTask& task, const Data&) {
    if (task.taskIdentifier() == 1) gate.wait();
  };
  const auto blocked = session.start(server.url("/"));
  EXPECT_EQ(session.load(server.url("/")).text(), "hello");
  EXPECT_EQ(session.delegate().record(1).completions, 0);
  gate.signal();
  EXPECT_EQ(session.finished(blocked).text(), "hello");
}

TEST(URLSessionTaskDelivery, AThrowingEventCountsAsHandled) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  session.delegate().onData = [](URLSessionTask&, const Data&) {
    throw std::runtime_error("from the test");
  };
  testing::internal::CaptureStderr();
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.code(), 0);
  const auto log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("from the test"), std::string::npos) << log;
}

}  // namespace
}  // namespace tarn::test
