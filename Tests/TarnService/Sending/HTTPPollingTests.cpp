#include <Platform/Dispatch/ManualDispatchClock.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using testing::ElementsAre;

/// A request type that is polled every ten seconds and tells which of its polls it is.
struct Ticker : DataGetRequestable<Ticker>, HTTPPolling<Ticker> {
  static constexpr double pollingRate = 10;
  static inline std::atomic<bool> shouldFirePoll = true;
  static inline std::atomic<int> makes = 0;
  static inline std::function<void()> onMake = [] {};  // set while no poll is made
  static inline std::string address;
  static inline const std::shared_ptr<int> alive = std::make_shared<int>(0);

  URL url = URL::empty();
  int number = 0;
  bool declines = false;
  std::shared_ptr<int> token = alive;

  bool shouldSend() const { return !declines; }
  static std::optional<Ticker> make() {
    const int number = ++makes;
    onMake();
    Ticker request;
    request.url = URL(address);
    request.number = number;
    return request;
  }
};

std::string bodyOf(const DataResponse& response) {
  return response.data ? std::string(response.data->view()) : response.result.error()->message();
}

/// A server, a clock that the test moves, and the main queue, which the test drains.
class HTTPPollingTests : public test::ServiceTest {
 protected:
  HTTPPollingTests() {
    server.route("/tick", Script().respond(200, {}, "tock"));
    server.route("/stall", Script().stall().respond(200, {}, "at last"));
    Ticker::shouldFirePoll = true;
    Ticker::makes = 0;
    Ticker::onMake = [] {};
    Ticker::address = server.url("/tick");
  }
  void TearDown() override {
    TarnService::isMocked = false;
    EXPECT_FALSE(detail::addPollingHandler(typeid(Ticker), nullptr)) << "still polled";
    // Else a response on its way would reach the handlers of the next test.
    EXPECT_TRUE(drainUntil([] { return Ticker::alive.use_count() == 1; }));
    ServiceTest::TearDown();
  }

  template <class Condition>
  static bool drainUntil(Condition condition) {
    return test::eventually([&] {
      MainQueue::drain();
      return condition();
    });
  }
  void advance(double seconds) { clock.advance(TimeInterval(seconds)); }
  /// One interval, and all that the tick after it does up to its response.
  void tickOnce() {
    const auto before = events.count();
    advance(10);
    EXPECT_TRUE(drainUntil([&] { return events.count() > before; }));
  }
  /// What is due by now has run: a fire takes its turn on the timer's queue, and declines.
  void waitForTick() {
    auto declining = request("/");
    declining.declines = true;
    Ticker::firePoll(declining, queue, [](const DataResponse&) {});
  }
  /// A poll handler that notes its name, the poll and the body of its answer.
  auto note(const std::string& name) const {
    return [name, events = events](const Ticker& request, const DataResponse& response) {
      events.add(name + std::to_string(request.number) + " " + bodyOf(response));
    };
  }
  Ticker request(const std::string& path) const {
    Ticker request;
    request.url = URL(server.url(path));
    return request;
  }
  /// Whether an item waits on the main queue, within the patience of a test.
  static bool mainQueueFills() {
    pollfd event{MainQueue::fileDescriptor(), POLLIN, 0};
    return ::poll(&event, 1, static_cast<int>(test::patience.count())) == 1;
  }

  ManualDispatchClock clock;
  test::ScriptedServer server;
  DispatchQueue queue{"test.completions"};
  test::Collector<std::string> events;
  test::Collector<DataResponse> responses;
};

TEST_F(HTTPPollingTests, EachResponseIsGivenToTheHandlersInTheirOrder) {
  Ticker::poll(note("a"));
  Ticker::poll(note("b"));
  Ticker::addPollingHandler(note("c"));
  for (std::size_t tick = 1; tick <= 3; ++tick) {
    advance(10);
    ASSERT_TRUE(drainUntil([&] { return events.count() == 3 * tick; }));
  }
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("a1 tock", "b1 tock", "c1 tock", "a2 tock", "b2 tock",
                                           "c2 tock", "a3 tock", "b3 tock", "c3 tock"));
  EXPECT_EQ(Ticker::makes, 3);
  EXPECT_EQ(server.requestCount(), 3u);
}

TEST_F(HTTPPollingTests, TheFirstPollComesAfterOneInterval) {
  struct Row {
    double seconds;
    int makes;
  };
  for (const Row row : {Row{9.999, 0}, Row{10, 1}}) {
    SCOPED_TRACE(row.seconds);
    Ticker::makes = 0;
    Ticker::poll();
    advance(row.seconds);
    Ticker::stopPolling();  // once it has returned, what was due has been made
    EXPECT_EQ(Ticker::makes, row.makes);
  }
}

std::atomic<int> makesOfUnhurried = 0;

struct Unhurried : DataGetRequestable<Unhurried>, HTTPPolling<Unhurried> {
  Unhurried() { ++makesOfUnhurried; }
  bool shouldSend() const { return false; }
};

TEST_F(HTTPPollingTests, ByDefaultAPollIsMadeEvery300Seconds) {
  static_assert(Unhurried::pollingRate == 300.0 && Unhurried::shouldFirePoll);
  for (const double seconds : {299.999, 300.0}) {
    SCOPED_TRACE(seconds);
    makesOfUnhurried = 0;
    Unhurried::poll();
    advance(seconds);
    Unhurried::stopPolling();
    EXPECT_EQ(makesOfUnhurried, seconds == 300.0 ? 1 : 0);
  }
}

TEST_F(HTTPPollingTests, ASecondPollDoesNotStartTheTimerAnew) {
  Ticker::poll();
  advance(6);
  Ticker::poll();
  advance(4);
  Ticker::stopPolling();
  EXPECT_EQ(Ticker::makes, 1);
}

TEST_F(HTTPPollingTests, AHandlerMayBeNone) {
  Ticker::poll(nullptr);
  Ticker::poll(PollingHandler<Ticker>());
  Ticker::addPollingHandler(PollingHandler<Ticker>());
  Ticker::poll(note("a"));
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("a1 tock"));
}

TEST_F(HTTPPollingTests, WhereNoPollShouldFireTheTicksGoOnAndSendNothing) {
  Ticker::shouldFirePoll = false;
  Ticker::poll(note("a"));
  for (int tick = 1; tick <= 3; ++tick) {
    advance(10);
    waitForTick();
    ASSERT_EQ(Ticker::makes, tick);
  }
  Ticker::stopPolling();
  EXPECT_EQ(server.connectionCount(), 0u);

  Ticker::poll(note("b"));
  Ticker::shouldFirePoll = true;
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("b4 tock"));
}

std::atomic<int> readsOfShouldFirePoll = 0;

/// Makes no request the first time.
struct Hesitant : DataGetRequestable<Hesitant>, HTTPPolling<Hesitant> {
  static double pollingRate() { return 10; }
  static bool shouldFirePoll() { return ++readsOfShouldFirePoll > 0; }
  URL url;
  static std::optional<Hesitant> make() {
    if (++Ticker::makes == 1) return std::nullopt;
    return Hesitant{{}, {}, URL(Ticker::address)};
  }
};

TEST_F(HTTPPollingTests, ATickWithoutARequestIsLeftOut) {
  readsOfShouldFirePoll = 0;
  Hesitant::poll([events = events](const Hesitant&, const DataResponse&) { events.add("got"); });
  advance(10);
  ASSERT_TRUE(test::eventually([] { return Ticker::makes == 1; }));
  tickOnce();
  Hesitant::stopPolling();
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(readsOfShouldFirePoll, 1);
}

TEST_F(HTTPPollingTests, HandlersAreCalledWhereTheMainQueueIsDrained) {
  test::Collector<std::thread::id> threads;
  Ticker::poll([this, threads](const Ticker&, const DataResponse&) {
    threads.add(std::this_thread::get_id());
    events.add("called");
  });
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(threads.values(), ElementsAre(std::this_thread::get_id()));
}

TEST_F(HTTPPollingTests, AHandlerGetsFailuresToo) {
  Ticker::address = server.url("/missing");
  Ticker::poll([this](const Ticker&, const DataResponse& response) {
    responses.add(response);
    events.add("called");
  });
  tickOnce();
  Ticker::stopPolling();
  EXPECT_EQ(responses.value(0).status, HTTPStatus::notFound);
}

TEST_F(HTTPPollingTests, AThrowingHandlerIsLoggedAndKeepsNoOtherFromItsResponse) {
  Ticker::poll([](const Ticker&, const DataResponse&) { throw std::runtime_error("my mistake"); });
  Ticker::poll(note("b"));
  expectLog(LogLevel::fault, "A polling handler threw: my mistake");
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("b1 tock"));
}

TEST_F(HTTPPollingTests, AThrowingCreationIsLoggedAndTheTimerGoesOn) {
  Ticker::onMake = [] {
    if (Ticker::makes == 1) throw std::runtime_error("no request");
  };
  Ticker::poll(note("a"));
  advance(10);
  ASSERT_TRUE(log.waitFor(1));
  EXPECT_THAT(log.entries()[0].message, testing::HasSubstr("TarnService.pollTimerQueue"));
  expectLog(LogLevel::fault, log.entries()[0].message);
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("a2 tock"));
}

TEST_F(HTTPPollingTests, WhatIsNotPolledCannotBeStoppedNorGetHandlers) {
  expectLog(LogLevel::fault, "Polling handler should already be provided Ticker");
  expectLog(LogLevel::fault, "Not currently polling Ticker");
  Ticker::addPollingHandler(note("a"));
  Ticker::stopPolling();
  ASSERT_EQ(log.entries().size(), 2u);
  EXPECT_STREQ(log.entries()[0].location.function, "_addPollingHandler(_:)");
  EXPECT_STREQ(log.entries()[1].location.function, "stopPolling()");
  // Nothing was kept of the handler.
  Ticker::poll(note("b"));
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("b1 tock"));
}

TEST_F(HTTPPollingTests, TypesOfOneNameArePolledApart) {
  const auto poll = [](auto label) {
    struct Local : DataGetRequestable<Local>, HTTPPolling<Local> {};
    (void)label;
    Local::poll();
    return &Local::stopPolling;
  };
  const auto stopFirst = poll(1);
  const auto stopSecond = poll("two");
  stopFirst();
  stopSecond();  // a fault in the log if the first had stopped it
}

TEST_F(HTTPPollingTests, AFireHoldsTheTimerUntilItsCompletion) {
  Ticker::poll(note("a"));
  Ticker::firePoll(request("/stall"), queue, [this](const DataResponse& response) {
    advance(10);  // the timer runs again
    responses.add(response);
  });
  ASSERT_TRUE(server.waitForStalls(1));
  advance(15);
  // A fire takes its turn on the timer's queue: a tick would have run by then.
  Ticker::firePoll(request("/stall"), queue, responses.callback());
  EXPECT_EQ(Ticker::makes, 0);
  server.releaseStalls(2);
  ASSERT_TRUE(responses.waitFor(2));
  EXPECT_EQ(bodyOf(responses.value(0)), "at last");
  ASSERT_TRUE(drainUntil([&] { return events.count() > 0; }));
  Ticker::stopPolling();
}

TEST_F(HTTPPollingTests, AFireOfATypeThatIsNotPolledIsJustSent) {
  Ticker::firePoll(request("/tick"), queue, responses.callback());
  Ticker::firePollForRetryable(request("/tick"), queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(2));
  EXPECT_EQ(bodyOf(responses.value(0)), "tock");
  EXPECT_EQ(bodyOf(responses.value(1)), "tock");
}

TEST_F(HTTPPollingTests, ADeclinedOrFailingFireLeavesTheTimerRunning) {
  struct Moody : DataGetRequestable<Moody>, HTTPPolling<Moody> {
    static double pollingRate() { return 10; }
    bool throws = false;
    bool shouldSend() const {
      if (throws) throw std::runtime_error("undecided");
      return false;
    }
    static std::optional<Moody> make() {
      ++Ticker::makes;
      return std::nullopt;
    }
  };
  Moody::poll();
  Moody::firePoll(Moody{{}, {}, false}, queue, responses.callback());
  EXPECT_THROW(Moody::firePoll(Moody{{}, {}, true}, queue, responses.callback()),
               std::runtime_error);
  advance(10);
  Moody::stopPolling();
  EXPECT_EQ(Ticker::makes, 1);
  EXPECT_EQ(responses.count(), 0u);
}

TEST_F(HTTPPollingTests, StoppingDuringAFireLeavesTheFireAlone) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  Ticker::poll([held = std::move(held)](const Ticker&, const DataResponse&) {});
  Ticker::firePoll(request("/stall"), queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  Ticker::stopPolling();  // its timer is suspended and goes all the same
  EXPECT_TRUE(watched.expired());
  advance(100);
  server.releaseStalls();
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(bodyOf(responses.value(0)), "at last");
  queue.sync([] {});
  advance(100);
  EXPECT_EQ(Ticker::makes, 0);
}

TEST_F(HTTPPollingTests, AFireOfATypePolledBeforeDoesNotTouchItsNewTimer) {
  Ticker::poll();
  Ticker::firePoll(request("/stall"), queue, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  Ticker::stopPolling();
  Ticker::poll();
  advance(10);
  ASSERT_TRUE(test::eventually([] { return Ticker::makes == 1; }));
  server.releaseStalls();
  ASSERT_TRUE(responses.waitFor(1));
  advance(10);
  ASSERT_TRUE(test::eventually([] { return Ticker::makes == 2; }));
  Ticker::stopPolling();
}

TEST_F(HTTPPollingTests, AResponseOnItsWayReachesNoHandlerOnceStopped) {
  Ticker::address = server.url("/stall");
  Ticker::poll(note("a"));
  advance(10);
  ASSERT_TRUE(server.waitForStalls(1));
  MainQueue::drain();
  Ticker::stopPolling();
  server.releaseStalls();
  ASSERT_TRUE(mainQueueFills());
  MainQueue::drain();
  EXPECT_EQ(events.count(), 0u);
}

TEST_F(HTTPPollingTests, AResponseOnItsWayReachesTheHandlersOfTheTimeItArrives) {
  Ticker::address = server.url("/stall");
  Ticker::poll(note("a"));
  advance(10);
  ASSERT_TRUE(server.waitForStalls(1));
  Ticker::stopPolling();
  Ticker::poll(note("b"));
  server.releaseStalls();
  ASSERT_TRUE(drainUntil([&] { return events.count() > 0; }));
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("b1 at last"));
}

TEST_F(HTTPPollingTests, AResponseThatWaitsOnTheMainQueueReachesNoHandlerOnceStopped) {
  Ticker::poll(note("a"));
  tickOnce();
  advance(10);
  ASSERT_TRUE(mainQueueFills());
  Ticker::stopPolling();
  EXPECT_EQ(MainQueue::drain(), 1u);
  EXPECT_THAT(events.values(), ElementsAre("a1 tock"));
}

TEST_F(HTTPPollingTests, AHandlerMayStopAndNoHandlerAfterItIsCalled) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  Ticker::poll(note("a"));
  Ticker::poll([](const Ticker&, const DataResponse&) { Ticker::stopPolling(); });
  Ticker::poll(
      [note = note("c"), held = std::move(held)](
          const Ticker& request, const DataResponse& response) { note(request, response); });
  tickOnce();
  EXPECT_TRUE(watched.expired());
  EXPECT_THAT(events.values(), ElementsAre("a1 tock"));
}

TEST_F(HTTPPollingTests, AHandlerMayFireAndAddHandlers) {
  Ticker::poll([this](const Ticker& polled, const DataResponse& response) {
    note("a")(polled, response);
    if (polled.number == 1) Ticker::addPollingHandler(note("b"));
    Ticker::firePoll(polled, queue, responses.callback());
  });
  tickOnce();
  ASSERT_TRUE(responses.waitFor(1));
  advance(10);
  ASSERT_TRUE(drainUntil([&] { return events.count() == 3; }));
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("a1 tock", "a2 tock", "b2 tock"));
  ASSERT_TRUE(responses.waitFor(2));
}

TEST_F(HTTPPollingTests, ATickThatStopsItsTypeSendsNothing) {
  const test::Waiter stopped;
  Ticker::onMake = [stopped] {
    Ticker::stopPolling();
    stopped.signal();
  };
  Ticker::poll(note("a"));
  advance(10);
  ASSERT_TRUE(stopped.waitFor());
  // Another of the same address arrives; it would come second.
  DataGetRequest(URL(Ticker::address)).send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(HTTPPollingTests, ATickThatFiresItselfSendsThatOnly) {
  Ticker::onMake = [this] {
    if (Ticker::makes == 1) Ticker::firePoll(request("/tick"), queue, responses.callback());
  };
  Ticker::poll(note("a"));
  advance(10);
  ASSERT_TRUE(responses.waitFor(1));
  tickOnce();
  Ticker::stopPolling();
  EXPECT_THAT(events.values(), ElementsAre("a2 tock"));
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(HTTPPollingTests, StoppingWaitsForATickThatRuns) {
  const test::Waiter running;
  std::atomic<bool> isOver = false;
  const DispatchSemaphore released(0);
  Ticker::onMake = [&] {
    running.signal();
    released.wait();
    isOver = true;
  };
  Ticker::poll();
  advance(10);
  ASSERT_TRUE(running.waitFor());
  queue.async([released] { released.signal(); });
  Ticker::stopPolling();
  EXPECT_TRUE(isOver);
}

/// Stops the other one of two while both are being made.
template <int N>
struct Rival : DataGetRequestable<Rival<N>>, HTTPPolling<Rival<N>> {
  static constexpr double pollingRate = 10;
  static inline std::atomic<int> arrived = 0;
  static std::optional<Rival> make() {
    ++Rival<0>::arrived;
    EXPECT_TRUE(test::eventually([] { return Rival<0>::arrived >= 2; }));
    Rival<1 - N>::stopPolling();
    ++Rival<0>::arrived;
    return std::nullopt;
  }
};

TEST_F(HTTPPollingTests, TicksMayStopEachOther) {
  Rival<0>::arrived = 0;
  Rival<0>::poll();
  Rival<1>::poll();
  advance(10);
  ASSERT_TRUE(test::eventually([] { return Rival<0>::arrived == 4; }));
}

TEST_F(HTTPPollingTests, AMainQueueThatNobodyDrainsIsToldOfOnce) {
  Ticker::onMake = [this] {
    if (Ticker::makes <= 7) {
      EXPECT_TRUE(log.entries().empty());
    }
  };
  expectLog(LogLevel::fault,
            "Timed polls of Ticker are not delivered: nothing has drained the main queue for a "
            "minute. Call MainQueue::run(), or MainQueue::drain() from an event loop.");
  Ticker::poll(note("a"));
  for (int tick = 1; tick <= 9; ++tick) {
    advance(10);
    waitForTick();
    ASSERT_EQ(Ticker::makes, tick);
  }
  ASSERT_TRUE(log.waitFor(1));
  // Nothing is lost.
  ASSERT_TRUE(drainUntil([&] { return events.count() == 9; }));
  Ticker::stopPolling();
}

TEST_F(HTTPPollingTests, AMainQueueThatIsDrainedSlowlyIsNotToldOf) {
  Ticker::poll(note("a"));
  tickOnce();
  for (int tick = 2; tick <= 20; ++tick) {
    advance(10);
    waitForTick();
    ASSERT_EQ(Ticker::makes, tick);
  }
  ASSERT_TRUE(drainUntil([&] { return events.count() == 20; }));
  Ticker::stopPolling();
}

TEST_F(HTTPPollingTests, WherePollsAreNotFiredNobodyHasToDrainTheMainQueue) {
  Ticker::shouldFirePoll = false;
  Ticker::poll();
  for (int tick = 1; tick <= 20; ++tick) {
    advance(10);
    waitForTick();
    ASSERT_EQ(Ticker::makes, tick);
  }
  Ticker::stopPolling();
  EXPECT_FALSE(MainQueue::drain() > 0);
}

/// Polled and retried; counts its own sends.
struct Stubborn : DataGetRequestable<Stubborn>,
                  HTTPPolling<Stubborn>,
                  HTTPRetryAttempting<Stubborn> {
  static constexpr double pollingRate = 100;
  static constexpr double retryInterval = 0.5;
  static constexpr std::int64_t retryLimit = 3;
  URL url;
  std::shared_ptr<std::atomic<int>> ownSends = std::make_shared<std::atomic<int>>(0);
  static std::optional<Stubborn> make() {
    ++Ticker::makes;
    return std::nullopt;
  }
  template <class F>
  void send(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    ++*ownSends;
    _send(std::move(completionQueue), std::forward<F>(completion));
  }
};

class PollingAndRetryTests : public HTTPPollingTests {
 protected:
  PollingAndRetryTests() {
    server.routeSequence("/late", {Script().respond(503, {}, "1"), Script().respond(503, {}, "2"),
                                   Script().respond(200, {}, "3")});
    server.routeSequence("/later",
                         {Script().respond(503, {}, "1"), Script().respond(503, {}, "2"),
                          Script().respond(503, {}, "3"), Script().respond(200, {}, "4")});
  }
  /// The delays of these many retries pass.
  void passDelays(std::size_t retries) {
    for (std::size_t retry = 1; retry <= retries; ++retry) {
      ASSERT_TRUE(clock.waitForRequestedDelays(retry, test::patience));
      clock.advance(clock.requestedDelays()[retry - 1]);
    }
  }
  Stubborn stubborn(const std::string& path) const {
    return Stubborn{{}, {}, {}, URL(server.url(path))};
  }
};

TEST_F(PollingAndRetryTests, EveryAttemptIsFired) {
  test::Collector<HTTPRetryResult<DataResponse>> results;
  const auto request = stubborn("/late");
  request.sendAttemptingRetry(queue, results.callback());
  passDelays(2);
  ASSERT_TRUE(results.waitFor(1));
  EXPECT_EQ(bodyOf(*results.value(0).successfulResponse()), "3");
  EXPECT_EQ(results.value(0).failCount(), 2);
  EXPECT_EQ(*request.ownSends, 0);
}

TEST_F(PollingAndRetryTests, TheTimerIsHeldDuringEachAttempt) {
  Stubborn::poll();
  test::Collector<HTTPRetryResult<DataResponse>> results;
  stubborn("/stall").sendAttemptingRetry(queue, results.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  advance(100);
  Stubborn::firePoll(stubborn("/stall"), queue, responses.callback());
  EXPECT_EQ(Ticker::makes, 0);
  server.releaseStalls(2);
  ASSERT_TRUE(results.waitFor(1));
  ASSERT_TRUE(test::eventually([] { return Ticker::makes == 1; }));
  Stubborn::stopPolling();
}

TEST_F(PollingAndRetryTests, SendFromPollSendsFirstAndFiresItsRetries) {
  const auto request = stubborn("/late");
  test::Collector<bool> onQueue;
  request.sendFromPoll(queue, [this, onQueue, responses = responses](DataResponse response) {
    onQueue.add(queue.isCurrent());
    responses.add(std::move(response));
  });
  passDelays(2);
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(bodyOf(responses.value(0)), "3");
  EXPECT_TRUE(onQueue.value(0));
  EXPECT_EQ(*request.ownSends, 1);
}

TEST_F(PollingAndRetryTests, AMockTakesPartInNoAttemptThatIsFired) {
  struct Mocked : DataGetRequestable<Mocked>,
                  HTTPPolling<Mocked>,
                  HTTPRetryAttempting<Mocked>,
                  HTTPMockable<Mocked> {
    static double retryInterval() { return 0.5; }
    static std::int64_t retryLimit() { return 3; }
    static std::optional<Mocked> make() { return std::nullopt; }
    URL url = URL(Ticker::address);
    HTTPStatus mockStatus() const { return HTTPStatus::notFound; }
  };
  TarnService::isMocked = true;
  test::Collector<HTTPRetryResult<DataResponse>> results;
  Mocked().sendAttemptingRetry(queue, results.callback());
  ASSERT_TRUE(results.waitFor(1));
  EXPECT_EQ(results.value(0).failCount(), 0);
  EXPECT_EQ(bodyOf(*results.value(0).successfulResponse()), "tock");
  // The first one is sent, and mocked, which fails; the second is fired.
  Mocked().sendFromPoll(queue, responses.callback());
  EXPECT_EQ(server.requestCount(), 1u);
  ASSERT_TRUE(clock.waitForRequestedDelays(2, test::patience));  // the mock's own and the retry's
  clock.advance(TimeInterval(0.5));
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(bodyOf(responses.value(0)), "tock");
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(PollingAndRetryTests, SendFromPollAnswersWithTheLastOfOnlyFailures) {
  const auto request = stubborn("/later");
  request.sendFromPoll(queue, responses.callback());
  passDelays(3);
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(bodyOf(responses.value(0)), "4");
}

TEST_F(PollingAndRetryTests, AResultWithoutAnyResponseIsAFault) {
  expectLog(LogLevel::fault,
            "Hit completion without some sort response. This is an invalid state.");
  const auto response = detail::lastResponse(HTTPRetryResult<DataResponse>::totalFailure({}));
  const auto error = response.result.error();
  const auto* unknown = error->as<HTTPUnknownError>();
  ASSERT_NE(unknown, nullptr);
  EXPECT_EQ(unknown->kind(), HTTPUnknownError::Case::completionWithoutResponseFromPolling);
  EXPECT_EQ(unknown->function(), "sendFromPoll(completionQueue:completion:)");
  EXPECT_EQ(unknown->line(), 116);
  EXPECT_THAT(unknown->file(), testing::HasSubstr("HTTPRetryAtempting"));
  EXPECT_FALSE(response.data);
  EXPECT_EQ(response.urlResponse, nullptr);
}

}  // namespace
}  // namespace tarn
