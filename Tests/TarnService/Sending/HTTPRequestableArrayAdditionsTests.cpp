#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <limits>
#include <list>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using testing::ElementsAre;
using Responses = std::vector<DataResponse>;
using OnResponse = Completion<DataResponse>;

/// Goes over the wire.
struct Get : DataGetRequestable<Get>, HTTPRequestCancelable<Get> {
  explicit Get(const std::string& address) : url(address) {}

  URL url;
  UUID cancellationIdentifier;
  bool shouldSend = true;
  TimeInterval timeoutInterval{60};
};

/// Is answered as the test says.
struct Own : DataGetRequestable<Own> {
  std::string name;
  std::function<void(const Own&, const OnResponse&)> onSend;
  std::function<TimeInterval()> onTimeout = [] { return TimeInterval(60); };

  Own(std::string text, std::function<void(const Own&, const OnResponse&)> answer)
      : name(std::move(text)), onSend(std::move(answer)) {}
  TimeInterval timeoutInterval() const { return onTimeout(); }
  void send(std::optional<DispatchQueue>, OnResponse completion) const {
    onSend(*this, completion);
  }
};

DataResponse answer(const std::string& body) {
  return DataResponse(Data(body), std::nullopt,
                      std::make_shared<HTTPURLResponse>(URL("http://localhost/"), 200, "HTTP/1.1",
                                                        HTTPHeaderFields()),
                      std::nullopt);
}
void echo(const Own& request, const OnResponse& onResponse) { onResponse(answer(request.name)); }

/// A response's body, or the message of its failure.
std::string textOf(const DataResponse& response) {
  if (const auto error = response.result.error()) return error->message();
  return response.data ? std::string(response.data->view()) : "";
}
std::vector<std::string> textsOf(const Responses& responses) {
  std::vector<std::string> texts;
  for (const auto& response : responses) texts.push_back(textOf(response));
  return texts;
}

constexpr auto timedOut = "HTTPStatus: requestTimeout:408 is unacceptable";

class BatchTests : public test::ServiceTest {
 protected:
  BatchTests() {
    for (const char* name : {"a", "b", "c"}) {
      server.route(std::string("/") + name, Script().respond(200, {}, name));
    }
    server.route("/stall", Script().stall().respond(200, {}, "late"));
  }

  Get get(const std::string& name) const { return Get(server.url("/" + name)); }
  std::vector<Get> requests() const { return {get("a"), get("b"), get("c")}; }

  auto update() const {
    return [updates = updates](const auto&, const DataResponse& response) {
      updates.add(textOf(response));
    };
  }
  std::vector<std::string> result() const {
    EXPECT_TRUE(lists.waitFor(1));
    return textsOf(lists.value(0));
  }

  test::ScriptedServer server;
  DispatchQueue queue{"test.completions"};
  test::Collector<Responses> lists;
  test::Collector<std::string> updates;
};

/// What holds in both ways.
class EitherBatchTests : public BatchTests, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(Ways, EitherBatchTests, testing::Bool(), [](const auto& way) {
  return std::string(way.param ? "Parallel" : "Serial");
});

TEST_P(EitherBatchTests, AnEmptyRangeCompletesOnTheQueueWithAnEmptyList) {
  test::Collector<bool> onQueue;
  queue.sync([&] {
    send(std::vector<Get>(), queue, GetParam(), update(),
         [this, onQueue, lists = lists](const Responses& all) {
           onQueue.add(queue.isCurrent());
           lists.add(all);
         });
    EXPECT_EQ(lists.count(), 0u) << "ran inside of send";
  });
  EXPECT_THAT(result(), ElementsAre());
  EXPECT_THAT(onQueue.values(), ElementsAre(true));
  EXPECT_EQ(updates.count(), 0u);
}

TEST_P(EitherBatchTests, EachRequestIsAnsweredOnceAndTheListComesOnTheQueue) {
  test::Collector<bool> placesOfUpdates;
  test::Collector<bool> places;
  test::Collector<std::string> pairs;
  send(
      requests(), queue, GetParam(),
      [this, placesOfUpdates, pairs](const Get& request, const DataResponse& response) {
        placesOfUpdates.add(queue.isCurrent() || detail::serialArrayQueue().isCurrent());
        pairs.add(request.url.lastPathComponent() + textOf(response));
      },
      [this, places, lists = lists](Responses all) {
        places.add(queue.isCurrent());
        lists.add(std::move(all));
      });
  EXPECT_THAT(result(), testing::UnorderedElementsAre("a", "b", "c"));
  EXPECT_THAT(pairs.values(), testing::UnorderedElementsAre("aa", "bb", "cc"));
  EXPECT_THAT(placesOfUpdates.values(), ElementsAre(false, false, false));
  queue.sync([] {});
  EXPECT_THAT(places.values(), ElementsAre(true));
  EXPECT_EQ(server.requestCount(), 3u);
}

TEST_P(EitherBatchTests, WithoutAQueueTheListComesOnAThreadOfTheLibrary) {
  test::Collector<bool> places;
  send(requests(), std::nullopt, GetParam(), [places](const Responses& /*all*/) {
    places.add(detail::serialArrayQueue().isCurrent() || DispatchQueue::main().isCurrent());
  });
  ASSERT_TRUE(places.waitFor(1));
  EXPECT_FALSE(places.value(0));
}

TEST_P(EitherBatchTests, AnAbsentUpdateIsNotCalled) {
  send(requests(), queue, GetParam(), nullptr, lists.callback());
  send(requests(), queue, GetParam(), BatchUpdate<Get>(), lists.callback());
  send(requests(), queue, GetParam(), lists.callback());
  ASSERT_TRUE(lists.waitFor(3));
  for (const auto& list : lists.values()) EXPECT_EQ(list.size(), 3u);
}

TEST_P(EitherBatchTests, WhatAnUpdateOrTheCompletionThrowsIsLogged) {
  send(
      std::vector{Own("a", echo), Own("b", echo)}, queue, GetParam(),
      [](const Own& request, const DataResponse&) { throw std::runtime_error(request.name); },
      [lists = lists](const Responses& all) {
        lists.add(all);
        throw std::runtime_error("my mistake");
      });
  EXPECT_THAT(result(), ElementsAre("a", "b"));
  send(std::vector<Own>(), queue, GetParam(),
       [](const Responses&) { throw std::runtime_error("none"); });
  expectLog(LogLevel::fault, "A batch's update threw: a");
  expectLog(LogLevel::fault, "A batch's update threw: b");
  expectLog(LogLevel::fault, "A completion threw: my mistake");
  expectLog(LogLevel::fault, "A completion threw: none");
}

TEST_P(EitherBatchTests, ARequestWhoseSendThrowsHasFailed) {
  const Own throwing("b", [](const Own&, const OnResponse&) { throw std::runtime_error("no"); });
  send(std::vector{Own("a", echo), throwing, Own("c", echo)}, queue, GetParam(), update(),
       lists.callback());
  EXPECT_THAT(result(), ElementsAre("a", "no", "c"));
  EXPECT_THAT(updates.values(), ElementsAre("a", "no", "c"));
}

TEST_P(EitherBatchTests, TheRequestsAreCopied) {
  test::Collector<OnResponse> pending;
  {
    std::vector<Own> passing{
        Own("a", [pending](const Own&, const OnResponse& onResponse) { pending.add(onResponse); })};
    send(
        passing, queue, GetParam(),
        [updates = updates](const Own& request, const auto&) { updates.add(request.name); },
        lists.callback());
    passing[0].name = "changed";
  }
  ASSERT_TRUE(pending.waitFor(1));
  pending.value(0)(answer("a"));
  EXPECT_THAT(result(), ElementsAre("a"));
  EXPECT_THAT(updates.values(), ElementsAre("a"));
}

TEST_P(EitherBatchTests, IsCancelledAsAWhole) {
  const std::list<Get> all{get("stall"), get("stall")};
  // In a serial batch the second is sent when the first one's update has returned.
  const DispatchSemaphore allCancelled(0);
  const auto hold = [tell = update(), allCancelled](const Get& request, const auto& response) {
    tell(request, response);
    allCancelled.wait();
    allCancelled.signal();
  };
  send(all, queue, GetParam(), hold, lists.callback());
  ASSERT_TRUE(server.waitForStalls(GetParam() ? 2 : 1));
  cancel(all);
  allCancelled.signal();
  if (!GetParam()) {
    // The second was not sent yet, and so is not cancelled.
    ASSERT_TRUE(server.waitForRequests(2));
    ASSERT_TRUE(server.waitForStalls(1));
    all.back().cancel();
  }
  ASSERT_TRUE(lists.waitFor(1));
  ASSERT_EQ(lists.value(0).size(), 2u);
  for (const auto& response : lists.value(0)) EXPECT_EQ(response.result.error()->code(), -999);
  EXPECT_EQ(updates.count(), 2u);
}

/// As some views, can be gone through only where it is not const.
struct Changing {
  std::vector<Get> requests;
  auto begin() { return requests.begin(); }
  auto end() { return requests.end(); }
};

TEST_P(EitherBatchTests, TakesEveryRange) {
  const std::vector<Get> vector = requests();
  const std::list<Get> list(vector.begin(), vector.end());
  const std::array<Get, 2> array{get("a"), get("b")};
  send(list, queue, GetParam(), lists.callback());
  send(std::span(vector).first(2), queue, GetParam(), lists.callback());
  send(array, queue, GetParam(), lists.callback());
  send(std::initializer_list<Get>{get("a"), get("b")}, queue, GetParam(), lists.callback());
  send(Changing{vector}, queue, GetParam(), lists.callback());
  ASSERT_TRUE(lists.waitFor(5));
  std::multiset<std::size_t> sizes;
  for (const auto& responses : lists.values()) sizes.insert(responses.size());
  EXPECT_THAT(sizes, ElementsAre(2, 2, 2, 3, 3));
}

TEST_F(BatchTests, ParallelRequestsAreOnTheirWayAtOnce) {
  send(std::vector(3, get("stall")), queue, true, update(), lists.callback());
  ASSERT_TRUE(server.waitForStalls(3));
  EXPECT_EQ(updates.count(), 0u);
  server.releaseStalls();
  EXPECT_THAT(result(), ElementsAre("late", "late", "late"));
  EXPECT_EQ(updates.count(), 3u);
}

TEST_F(BatchTests, AParallelListIsInTheOrderOfTheAnswers) {
  test::Collector<OnResponse> pending;
  const auto keep = [pending](const Own&, const OnResponse& onResponse) {
    pending.add(onResponse);
  };
  send(std::vector(3, Own("", keep)), queue, true, update(), lists.callback());
  ASSERT_EQ(pending.count(), 3u);  // sent before `send` has returned
  pending.value(2)(answer("c"));
  pending.value(0)(answer("a"));
  queue.sync([] {});
  EXPECT_EQ(lists.count(), 0u);
  pending.value(1)(answer("b"));
  EXPECT_THAT(result(), ElementsAre("c", "a", "b"));
  EXPECT_THAT(updates.values(), ElementsAre("c", "a", "b"));
}

TEST_F(BatchTests, UpdatesOfAParallelBatchMayOverlap) {
  const DispatchSemaphore arrived(0);
  const DispatchSemaphore gone(0);
  test::Collector<bool> met;
  const auto meet = [=](const Get&, const DataResponse& response) {
    const bool isFirst = textOf(response) == "a";
    (isFirst ? arrived : gone).signal();
    met.add((isFirst ? gone : arrived).wait(TimeInterval(15)));
  };
  send(std::vector{get("a"), get("b")}, queue, true, meet, lists.callback());
  ASSERT_TRUE(lists.waitFor(1));
  EXPECT_THAT(met.values(), ElementsAre(true, true));
}

TEST_F(BatchTests, InParallelARequestThatDeclinesIsDoneWithoutAResponse) {
  Get declining = get("b");
  declining.shouldSend = false;
  send(std::vector{get("a"), declining}, queue, true, update(), lists.callback());
  EXPECT_THAT(result(), ElementsAre("a"));
  send(std::vector{declining, declining}, queue, true, update(), lists.callback());
  ASSERT_TRUE(lists.waitFor(2));
  EXPECT_TRUE(lists.value(1).empty());
  EXPECT_EQ(updates.count(), 1u);
}

TEST_F(BatchTests, SerialRequestsAreSentOneAfterAnother) {
  test::Collector<std::string> events;
  const auto slowly = [events](const Own& request, const OnResponse& onResponse) {
    events.add("send " + request.name);
    DispatchQueue::global().async([events, name = request.name, onResponse] {
      events.add("answer " + name);
      onResponse(answer(name));
    });
  };
  send(std::vector{Own("a", slowly), Own("b", slowly), Own("c", slowly)}, queue, false,
       lists.callback());
  EXPECT_THAT(result(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(events.values(),
              ElementsAre("send a", "answer a", "send b", "answer b", "send c", "answer c"));
}

TEST_F(BatchTests, SerialBatchesNeverInterleave) {
  test::Collector<char> events;
  const auto slowly = [events](const Own& request, const OnResponse& onResponse) {
    events.add(request.name[0]);
    DispatchQueue::global().async([onResponse] { onResponse(answer("")); });
  };
  {
    std::vector<std::jthread> senders;
    for (const char* name : {"a", "b", "c", "d"}) {
      senders.emplace_back([this, name, slowly] {
        send(std::vector(20, Own(name, slowly)), queue, false, lists.callback());
      });
    }
  }
  ASSERT_TRUE(lists.waitFor(4));
  ASSERT_EQ(events.count(), 80u);
  std::string order;
  for (const char name : events.values()) {
    if (order.empty() || order.back() != name) order += name;
  }
  EXPECT_EQ(order.size(), 4u) << order;
}

// 1.9 seconds are the request's own time-out too, so the wait is the shorter one.
TEST_F(BatchTests, ASilentRequestOfASerialBatchIsPassedOverAfterWholeSeconds) {
  Get silent = get("stall");
  silent.timeoutInterval = TimeInterval(1.9);
  const auto start = std::chrono::steady_clock::now();
  send(std::vector{get("a"), silent, get("c")}, queue, false, update(), lists.callback());
  EXPECT_THAT(result(), ElementsAre("a", timedOut, "c"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  const DataResponse failure = lists.value(0).at(1);
  EXPECT_EQ(failure.result.error()->as<HTTPResponseError>()->status(), HTTPStatus::requestTimeout);
  EXPECT_EQ(failure.data, std::nullopt);
  EXPECT_EQ(failure.urlResponse, nullptr);
  EXPECT_EQ(failure.headers, std::nullopt);
  // The update is not told of it, but of the answer that comes after all.
  ASSERT_TRUE(updates.waitFor(3));
  EXPECT_EQ(updates.value(0), "a");
  EXPECT_EQ(updates.value(1), "c");
  queue.sync([] {});
  EXPECT_EQ(lists.count(), 1u);
}

TEST(WaitLimitTests, DropsTheFraction) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const std::pair<double, double> rows[] = {{2.9, 2},
                                            {2, 2},
                                            {0.9, 0},
                                            {0, 0},
                                            {-0.5, 0},
                                            {-2.9, -2},
                                            {1e300, 1e300},
                                            {infinity, infinity},
                                            {-infinity, -infinity}};
  for (const auto& [timeout, limit] : rows) {
    EXPECT_EQ(detail::waitLimit(TimeInterval(timeout)).count(), limit) << timeout;
  }
  EXPECT_TRUE(std::isnan(detail::waitLimit(TimeInterval(std::nan(""))).count()));
}

TEST_F(BatchTests, NoTimeOutOfASerialBatchIsTooLongOrTooShort) {
  struct Row {
    double timeout;
    std::string text;
  };
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const Row rows[] = {{infinity, "x"}, {std::nan(""), "x"}, {1e300, "x"},
                      {0.9, timedOut}, {-5, timedOut},      {-infinity, timedOut}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.timeout);
    const bool answers = row.text == "x";
    Own request("x", [answers](const Own&, const OnResponse& onResponse) {
      if (!answers) return;
      DispatchQueue::global().asyncAfter(TimeInterval(0.01),
                                         [onResponse] { onResponse(answer("x")); });
    });
    request.onTimeout = [row] { return TimeInterval(row.timeout); };
    const test::Collector<Responses> list;
    send(std::vector{request}, queue, false, list.callback());
    ASSERT_TRUE(list.waitFor(1));
    EXPECT_THAT(textsOf(list.value(0)), ElementsAre(row.text));
  }
}

TEST_F(BatchTests, ALateAnswerJoinsTheList) {
  test::Collector<OnResponse> pending;
  Own late("late",
           [pending](const Own&, const OnResponse& onResponse) { pending.add(onResponse); });
  late.onTimeout = [] { return TimeInterval(0); };
  const Own next("next", [pending](const Own& request, const OnResponse& onResponse) {
    pending.value(0)(answer("late"));
    echo(request, onResponse);
  });
  send(std::vector{late, next}, queue, false, update(), lists.callback());
  EXPECT_THAT(result(), ElementsAre(timedOut, "late", "next"));
  EXPECT_THAT(updates.values(), ElementsAre("late", "next"));
}

TEST_F(BatchTests, AnAnswerAfterTheListHasBeenDeliveredIsHarmless) {
  test::Collector<OnResponse> pending;
  Own late("late",
           [pending](const Own&, const OnResponse& onResponse) { pending.add(onResponse); });
  late.onTimeout = [] { return TimeInterval(0); };
  send(std::vector{late}, queue, false, update(), lists.callback());
  EXPECT_THAT(result(), ElementsAre(timedOut));
  EXPECT_EQ(updates.count(), 0u);
  pending.value(0)(answer("late"));
  EXPECT_THAT(updates.values(), ElementsAre("late"));
  queue.sync([] {});
  EXPECT_EQ(lists.count(), 1u);
}

TEST_F(BatchTests, InASerialBatchARequestThatDeclinesTimesOut) {
  Get declining = get("b");
  declining.shouldSend = false;
  declining.timeoutInterval = TimeInterval(0.9);
  send(std::vector{get("a"), declining, get("c")}, queue, false, update(), lists.callback());
  EXPECT_THAT(result(), ElementsAre("a", timedOut, "c"));
  EXPECT_THAT(updates.values(), ElementsAre("a", "c"));
}

TEST_F(BatchTests, ARequestThatCannotSayItsTimeOutIsNotWaitedFor) {
  Own request("a", [](const Own&, const OnResponse&) {});
  request.onTimeout = []() -> TimeInterval { throw std::runtime_error("unknown"); };
  send(std::vector{request}, queue, false, lists.callback());
  EXPECT_THAT(result(), ElementsAre(timedOut));
  expectLog(LogLevel::fault, "A request's timeoutInterval threw: unknown");
}

TEST_F(BatchTests, TheSerialQueueIsOne) {
  EXPECT_EQ(detail::serialArrayQueue().label(),
            "dev.tarnservice.tarnservice.httprequestable.array.serial");
  EXPECT_EQ(detail::serialArrayQueue().qualityOfService(), QualityOfService::unspecified);
  EXPECT_TRUE(detail::serialArrayQueue() == detail::serialArrayQueue());
}

TEST_F(BatchTests, ABatchLetsGoOfAllThatItHolds) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  for (const bool isParallel : {true, false}) {
    send(
        requests(), queue, isParallel, [held](const Get&, const DataResponse&) {},
        [held, lists = lists](const Responses& all) { lists.add(all); });
  }
  held.reset();
  ASSERT_TRUE(lists.waitFor(2));
  EXPECT_TRUE(test::eventually([&] { return watched.expired(); }));
}

TEST(LargeBatchTests, TenThousandRequestsInParallelAreAllAnswered) {
  constexpr std::size_t count = 10'000;
  test::ScriptedServer server(false);
  server.route("/", Script().respond(200, {}, "yes"));
  test::Collector<Responses> lists;
  std::atomic<std::size_t> updates = 0;
  std::vector<Get> requests;
  for (std::size_t index = 0; index < count; ++index) requests.emplace_back(server.url());
  send(
      requests, std::nullopt, true, [&](const Get&, const DataResponse&) { ++updates; },
      lists.callback());
  ASSERT_TRUE(lists.waitFor(1, std::chrono::seconds(100)));
  EXPECT_EQ(updates, count);
  const Responses all = lists.value(0);
  ASSERT_EQ(all.size(), count);
  for (const auto& response : all) ASSERT_EQ(textOf(response), "yes");
  EXPECT_EQ(server.requestCount(), count);
  EXPECT_EQ(taskManager().pendingCount(), 0u);
}

}  // namespace
}  // namespace tarn
