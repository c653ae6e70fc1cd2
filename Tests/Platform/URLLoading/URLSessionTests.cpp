#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/Eventually.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace tarn::test {
namespace {

Script hello() { return Script().respond(200, {}, "hello"); }

TEST(URLSession, CountsTasksFromOne) {
  RecordedSession one;
  RecordedSession two;
  const auto request = RecordedSession::request("http://127.0.0.1/");
  EXPECT_EQ(one->dataTask(request)->taskIdentifier(), 1);
  EXPECT_EQ(one->dataTask(request)->taskIdentifier(), 2);
  EXPECT_EQ(two->dataTask(request)->taskIdentifier(), 1);
  EXPECT_EQ(one->dataTask(request)->taskIdentifier(), 3);
}

TEST(URLSession, KeepsACopyOfItsConfiguration) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.httpMaximumConnectionsPerHost = 3;
  RecordedSession session(configuration);
  configuration.httpMaximumConnectionsPerHost = 4;
  EXPECT_EQ(session->configuration().httpMaximumConnectionsPerHost, 3);
}

TEST(URLSession, UsesTheQueueItIsGiven) {
  ScriptedServer server;
  server.route("/", hello());
  const auto queue = std::make_shared<OperationQueue>("events");
  queue->setSuspended(true);
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate, queue);
  const auto task = session->dataTask(RecordedSession::request(server.url("/")));
  task->resume();
  ASSERT_TRUE(eventually([&] { return queue->operationCount() > 0; }));
  // A small answer is told in one operation: what is told, data and end, was put on the queue
  // together.
  EXPECT_EQ(queue->operationCount(), 1u);
  EXPECT_EQ(task->countOfBytesReceived(), 5);
  EXPECT_EQ(task->state(), URLSessionTask::State::running);  // until it is told
  EXPECT_EQ(delegate->record(1).completions, 0);
  queue->setSuspended(false);
  EXPECT_TRUE(delegate->waitForCompletion(1));
  EXPECT_EQ(delegate->record(1).body.size(), 5u);
  session->invalidateAndCancel();
  EXPECT_TRUE(delegate->waitForInvalid());
}

TEST(URLSession, WorksWithoutADelegate) {
  ScriptedServer server;
  server.route("/", Script().respond(302, {{"Location", "/to"}}));
  server.route("/to", hello());
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), nullptr);
  const auto task = session->dataTask(RecordedSession::request(server.url("/")));
  task->resume();
  EXPECT_TRUE(server.waitForRequests(2));
  session->finishTasksAndInvalidate();
}

// -- Invalidating

TEST(URLSessionInvalidation, CancelsTasksInFlightQueuedAndNotStarted) {
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest&) { return Script().stall(); });
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 8; ++i) tasks.push_back(session.start(server.url("/")));
  tasks.push_back(session->dataTask(RecordedSession::request(server.url("/"))));
  ASSERT_TRUE(server.waitForStalls(6));
  session->invalidateAndCancel();
  ASSERT_TRUE(session.delegate().waitForInvalid());
  for (const auto& task : tasks) {
    EXPECT_EQ(session.delegate().record(task->taskIdentifier()).code(), URLError::cancelled);
    EXPECT_EQ(session.delegate().record(task->taskIdentifier()).completions, 1);
  }
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(URLSessionInvalidation, LetsRunningTasksFinish) {
  ScriptedServer server;
  server.route("/", Script().stall().respond(200, {}, "hello"));
  RecordedSession session;
  const auto running = session.start(server.url("/"));
  const auto later = session->dataTask(RecordedSession::request(server.url("/")));
  ASSERT_TRUE(server.waitForStalls(1));
  session->finishTasksAndInvalidate();
  EXPECT_EQ(session.delegate().invalidations(), 0);
  server.releaseStalls();
  EXPECT_EQ(session.finished(running).text(), "hello");
  // A task that was made before is still one of the session's.
  later->resume();
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(session.delegate().invalidations(), 0);
  server.releaseStalls();
  EXPECT_EQ(session.finished(later).text(), "hello");
  EXPECT_TRUE(session.delegate().waitForInvalid());
}

TEST(URLSessionInvalidation, ATaskThatIsDroppedUnstartedHoldsNothingUp) {
  RecordedSession session;
  auto task = session->dataTask(RecordedSession::request("http://127.0.0.1/"));
  session->finishTasksAndInvalidate();
  EXPECT_EQ(session.delegate().invalidations(), 0);
  task.reset();
  EXPECT_TRUE(session.delegate().waitForInvalid());
}

TEST(URLSessionInvalidation, TasksMadeLaterFail) {
  ScriptedServer server;
  server.route("/", Script().stall().respond(200));
  RecordedSession session;
  const auto running = session.start(server.url("/"));
  ASSERT_TRUE(server.waitForStalls(1));
  session->finishTasksAndInvalidate();
  // While the session lives on for its last task, its delegate is told.
  EXPECT_EQ(session.load(server.url("/")).code(), URLError::cancelled);
  server.releaseStalls();
  ASSERT_TRUE(session.delegate().waitForInvalid());
  const auto late = session->dataTask(RecordedSession::request(server.url("/")));
  late->resume();
  ASSERT_TRUE(eventually([&] { return late->state() == URLSessionTask::State::completed; }));
  ASSERT_TRUE(late->error());
  EXPECT_EQ(late->error()->code(), URLError::cancelled);
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(URLSessionInvalidation, HappensOnceHoweverOftenAskedFor) {
  RecordedSession session;
  session->finishTasksAndInvalidate();
  session->invalidateAndCancel();
  session->invalidateAndCancel();
  ASSERT_TRUE(session.delegate().waitForInvalid());
  session->finishTasksAndInvalidate();
}

TEST(URLSessionInvalidation, LetsGoOfTheDelegate) {
  ScriptedServer server;
  auto delegate = std::make_shared<RecordingDelegate>();
  const std::weak_ptr<RecordingDelegate> watched = delegate;
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
  const auto task = session->dataTask(RecordedSession::request(server.url("/")));
  task->resume();
  ASSERT_TRUE(delegate->waitForCompletion(1));
  session->finishTasksAndInvalidate();
  ASSERT_TRUE(delegate->waitForInvalid());
  delegate.reset();
  for (int i = 0; i < 1'000'000 && !watched.expired(); ++i) std::this_thread::yield();
  EXPECT_TRUE(watched.expired());
}

TEST(URLSessionInvalidation, WithinAnEventOfATask) {
  ScriptedServer server;
  server.route("/", hello());
  RecordedSession session;
  session.delegate().onComplete = [&](URLSessionTask&) { session->invalidateAndCancel(); };
  EXPECT_EQ(session.load(server.url("/")).code(), 0);
  EXPECT_TRUE(session.delegate().waitForInvalid());
}

// -- Ending without being asked

TEST(URLSession, OneThatEverybodyDroppedEndsByItself) {
  ScriptedServer server;
  server.route("/", hello());
  auto delegate = std::make_shared<RecordingDelegate>();
  const std::weak_ptr<RecordingDelegate> watched = delegate;
  {
    auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
    session->dataTask(RecordedSession::request(server.url("/")))->resume();
    session->dataTask(RecordedSession::request(server.url("/unused")));
  }
  EXPECT_TRUE(delegate->waitForCompletion(1));
  EXPECT_TRUE(server.waitForOpenConnections(0));
  delegate.reset();
  for (int i = 0; i < 1'000'000 && !watched.expired(); ++i) std::this_thread::yield();
  EXPECT_TRUE(watched.expired());
}

TEST(URLSession, LeavesNoDescriptorOrThreadBehind) {
  ScriptedServer server(false);
  server.setHandler([](const ReceivedRequest&) { return hello(); });
  const auto burst = [&] {
    RecordedSession session;
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (int i = 0; i < 30; ++i) tasks.push_back(session.start(server.url("/")));
    for (const auto& task : tasks) EXPECT_EQ(session.finished(task).text(), "hello");
  };
  burst();  // the process's own threads and descriptors come into being
  ASSERT_TRUE(server.waitForOpenConnections(0));
  const auto descriptors = openFileDescriptorCount();
  const auto threads = threadCount();
  for (int i = 0; i < 20; ++i) burst();
  ASSERT_TRUE(server.waitForOpenConnections(0));
  EXPECT_LE(openFileDescriptorCount(), descriptors);
  EXPECT_LE(threadCount(), threads + 2);  // the shared pool may have grown
}

// -- Limits per host

TEST(URLSessionHostLimit, SixConnectionsInOrderOfArrival) {
  constexpr int count = 40;
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest&) {
    return Script().delay(std::chrono::milliseconds(2)).respond(200);
  });
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < count; ++i)
    tasks.push_back(session.start(server.url("/" + std::to_string(i))));
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).status(), 200);
  EXPECT_EQ(server.peakConnections(), 6u);
  EXPECT_EQ(server.connectionCount(), 6u);
  // Up to six are on their way at once and may overtake each other; nobody may overtake the queue.
  const auto requests = server.requests();
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const auto number = std::stoul(requests[i].path().substr(1));
    EXPECT_LE(number, i + 5);
    EXPECT_GE(number + 5, i);
  }
}

TEST(URLSessionHostLimit, OneConnectionKeepsStrictOrder) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.httpMaximumConnectionsPerHost = 1;
  ScriptedServer server;
  RecordedSession session(configuration);
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 50; ++i) tasks.push_back(session.start(server.url("/" + std::to_string(i))));
  for (const auto& task : tasks) session.finished(task);
  const auto requests = server.requests();
  for (std::size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].path(), "/" + std::to_string(i));
  }
  EXPECT_EQ(server.peakConnections(), 1u);
}

TEST(URLSessionHostLimit, HostsDoNotWaitForEachOther) {
  ScriptedServer slow;
  slow.setHandler([](const ReceivedRequest&) { return Script().stall(); });
  ScriptedServer quick;
  RecordedSession session;
  for (int i = 0; i < 20; ++i) session.start(slow.url("/"));
  EXPECT_EQ(session.load(quick.url("/")).status(), 404);
}

TEST(URLSessionHostLimit, ATaskThatEndsAnyWayMakesRoom) {
  const std::vector<Script> endings{Script().reset(), Script().close(),
                                    Script().respond(302, {{"Location", "ftp://x/"}})};
  for (const auto& ending : endings) {
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.httpMaximumConnectionsPerHost = 1;
    ScriptedServer server;
    server.route("/bad", ending);
    RecordedSession session(configuration);
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (int i = 0; i < 10; ++i) tasks.push_back(session.start(server.url("/bad")));
    EXPECT_EQ(session.load(server.url("/good")).status(), 404);
    for (const auto& task : tasks) EXPECT_NE(session.finished(task).code(), 0);
  }
}

// -- Cookies

TEST(URLSessionCookies, AreKeptWithinASessionAndNotAcross) {
  ScriptedServer server;
  server.route("/set", Script().respond(200, {{"Set-Cookie", "sid=1; Path=/"}}));
  RecordedSession session;
  session.load(server.url("/set"));
  session.load(server.url("/get"));
  EXPECT_EQ(server.request(1).header("Cookie"), "sid=1");
  RecordedSession another;
  another.load(server.url("/get"));
  EXPECT_EQ(server.request(2).header("Cookie"), std::nullopt);
}

TEST(URLSessionCookies, OfARedirectingAnswerAreSentToItsTarget) {
  ScriptedServer server;
  server.route("/", Script().respond(302, {{"Location", "/to"}, {"Set-Cookie", "a=b"}}));
  RecordedSession session;
  session.load(server.url("/"));
  EXPECT_EQ(server.request(1).header("Cookie"), "a=b");
}

TEST(URLSessionCookies, OfTheRequestComeAfterThoseOfTheSession) {
  ScriptedServer server;
  server.route("/set", Script().respond(200, {{"Set-Cookie", "sid=2"}}));
  RecordedSession session;
  session.load(server.url("/set"));
  auto request = RecordedSession::request(server.url("/"));
  request.setValue("mine=1", "Cookie");
  session.load(request);
  EXPECT_EQ(server.request(1).header("Cookie"), "sid=2; mine=1");
}

}  // namespace
}  // namespace tarn::test
