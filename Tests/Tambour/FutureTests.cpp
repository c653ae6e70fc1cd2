#include <Support/Collector.hpp>
#include <Support/Eventually.hpp>
#include <Support/LogRecorder.hpp>
#include <Tambour/Future.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using Strings = test::Collector<std::string>;

std::string outcomeOf(const Future<int>& future) {
  try {
    return std::to_string(future.get());
  } catch (const std::exception& error) {
    return error.what();
  }
}

FutureError::Case futureError(const std::optional<Error>& error) {
  const auto* typed = error ? error->as<FutureError>() : nullptr;
  if (!typed) throw std::logic_error(error ? error->message() : "no error");
  return typed->kind();
}

Future<int> failed(const std::string& message) {
  const Future<int> future;
  future.markFailure(std::runtime_error(message));
  return future;
}

Future<int> completed(int value) {
  const Future<int> future;
  future.markCompletion(value);
  return future;
}

TEST(FutureTests, IsPendingUntilItIsMarked) {
  const Future<int> future;
  EXPECT_TRUE(future.isPending());
  EXPECT_FALSE(future.isCompleted());
  EXPECT_FALSE(future.isFailed());
  EXPECT_FALSE(future.error());
}

TEST(FutureTests, IsSettledOnceAndStaysSo) {
  const auto value = completed(1);
  EXPECT_TRUE(value.isCompleted());
  EXPECT_FALSE(value.markCompletion(2));
  EXPECT_FALSE(value.markFailure(std::runtime_error("late")));
  EXPECT_TRUE(value.isCompleted());
  EXPECT_FALSE(value.error());
  EXPECT_EQ(value.get(), 1);

  const auto error = failed("first");
  EXPECT_FALSE(error.markCompletion(2));
  EXPECT_FALSE(error.markFailure(std::runtime_error("late")));
  EXPECT_TRUE(error.isFailed());
  EXPECT_EQ(error.error()->message(), "first");
  EXPECT_THROW(error.get(), std::runtime_error);
}

TEST(FutureTests, CopiesNameTheSameFuture) {
  const Future<int> future;
  const auto copy = future;
  EXPECT_EQ(copy, future);
  EXPECT_NE(copy, Future<int>());
  EXPECT_TRUE(copy.markCompletion(3));
  EXPECT_EQ(future.get(), 3);
}

TEST(FutureTests, HoldsNothing) {
  const Future<void> future;
  const test::Waiter done;
  future.onCompletion([done] { done.signal(); });
  EXPECT_TRUE(future.markCompletion());
  EXPECT_FALSE(future.markCompletion());
  EXPECT_TRUE(done.waitFor());
  future.get();
}

TEST(FutureTests, AValueThatCannotBeTakenIsAFailure) {
  struct Fragile {
    Fragile() = default;
    Fragile(const Fragile&) { throw std::runtime_error("broke"); }
  };
  const Future<Fragile> future;
  EXPECT_TRUE(future.markCompletion(Fragile()));
  EXPECT_EQ(future.error()->message(), "broke");
}

// Handlers

TEST(FutureTests, HandlersRunOnTheirQueueInOrderBeforeAndAfterSettling) {
  const DispatchQueue queue("test.handlers");
  const Future<int> future;
  const Strings order;
  const auto add = [&](const std::string& name) {
    future.onCompletion(queue, [order, queue, name](int value) {
      order.add(name + std::to_string(value) + (queue.isCurrent() ? "" : " elsewhere"));
    });
  };
  add("a");
  add("b");
  future.markCompletion(7);
  add("c");
  add("d");
  ASSERT_TRUE(order.waitFor(4));
  queue.sync([] {});
  EXPECT_THAT(order.values(), testing::ElementsAre("a7", "b7", "c7", "d7"));
}

TEST(FutureTests, OnlyTheHandlersOfTheOutcomeRun) {
  const DispatchQueue queue("test.handlers");
  const Strings seen;
  const auto watch = [&](const Future<int>& future) {
    future.onCompletion(queue, [seen](int value) { seen.add(std::to_string(value)); })
        .onFailure(queue, [seen](const Error& error) { seen.add(error.message()); });
  };
  watch(completed(1));
  watch(failed("no"));
  ASSERT_TRUE(seen.waitFor(2));
  queue.sync([] {});
  EXPECT_THAT(seen.values(), testing::ElementsAre("1", "no"));
}

TEST(FutureTests, WithoutAQueueHandlersRunOnTheGlobalOne) {
  const test::Collector<bool> onGlobal;
  const auto note = [onGlobal](const auto&) { onGlobal.add(DispatchQueue::global().isCurrent()); };
  completed(1).onCompletion(note);
  failed("no").onFailure(note);
  ASSERT_TRUE(onGlobal.waitFor(2));
  EXPECT_THAT(onGlobal.values(), testing::Each(true));
}

TEST(FutureTests, AHandlerRunsLaterAlsoOnTheQueueThatAddsIt) {
  const DispatchQueue queue("test.handlers");
  const Strings order;
  queue.sync([&] {
    completed(1).onCompletion(queue, [order](int) { order.add("handler"); });
    order.add("added");
  });
  ASSERT_TRUE(order.waitFor(2));
  EXPECT_THAT(order.values(), testing::ElementsAre("added", "handler"));
}

TEST(FutureTests, WhatHandlersHoldIsLetGo) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  const DispatchQueue queue("test.handlers");
  const Future<int> future;
  future.onCompletion(queue, [held](int) {})
      .onFailure(queue, [held](const Error&) {})
      .addProgressHandler<int>([held](int) {});
  future.onCancel([held] {});
  held.reset();
  EXPECT_FALSE(watched.expired());
  future.markCompletion(1);
  queue.sync([] {});
  EXPECT_TRUE(watched.expired());
}

TEST(FutureTests, AMoveOnlyHandlerIsTaken) {
  const test::Collector<int> sums;
  completed(1).onCompletion(
      [sums, owned = std::make_unique<int>(2)](int value) { sums.add(*owned + value); });
  ASSERT_TRUE(sums.waitFor(1));
  EXPECT_EQ(sums.value(0), 3);
}

TEST(FutureTests, WhatAHandlerThrowsIsLoggedAndTheNextOneRuns) {
  test::LogRecorder log;
  const DispatchQueue queue("test.handlers");
  const test::Waiter done;
  completed(1)
      .onCompletion(queue, [](int) { throw std::runtime_error("oops"); })
      .onCompletion(queue, done.callback());
  EXPECT_TRUE(done.waitFor());
  EXPECT_THAT(log.messages(LogLevel::fault), testing::ElementsAre(testing::HasSubstr("oops")));
}

// Chains

struct Chain {
  std::string name;
  std::function<Future<int>(const Future<int>&)> make;
  std::string ofOne;    // what comes of a future of 1
  std::string ofError;  // what comes of one that failed with "no"
};

std::vector<Chain> chains() {
  const auto throws = [](const auto&) -> int { throw std::runtime_error("thrown"); };
  return {
      {"a value", [](auto f) { return f.then([](int v) { return v + 1; }); }, "2", "no"},
      {"a future", [](auto f) { return f.then([](int v) { return completed(v + 1); }); }, "2",
       "no"},
      {"a failed future", [](auto f) { return f.then([](int) { return failed("inner"); }); },
       "inner", "no"},
      {"a throw", [=](auto f) { return f.then(throws); }, "thrown", "no"},
      {"nothing and back", [](auto f) { return f.then([](int) {}).then([] { return 5; }); }, "5",
       "no"},
      {"a future of nothing",
       [](auto f) {
         return f
             .then([](int) {
               Future<void> done;
               done.markCompletion();
               return done;
             })
             .then([] { return 6; });
       },
       "6", "no"},
      {"another type",
       [](auto f) {
         return f.then([](int v) { return std::to_string(v); }).then([](const std::string& text) {
           return static_cast<int>(text.size());
         });
       },
       "1", "no"},
      {"recovered by a value", [](auto f) { return f.recover([](const Error&) { return 9; }); },
       "1", "9"},
      {"recovered by a future",
       [](auto f) { return f.recover([](const Error&) { return completed(9); }); }, "1", "9"},
      {"not recovered", [=](auto f) { return f.recover(throws); }, "1", "thrown"},
      {"recovered after a throw",
       [=](auto f) { return f.then(throws).recover([](const Error&) { return 8; }); }, "8", "8"},
  };
}

TEST(FutureTests, ChainsPassOnValuesAndErrors) {
  for (const auto& [name, make, ofOne, ofError] : chains()) {
    SCOPED_TRACE(name);
    const Future<int> source;
    const auto early = make(source);
    EXPECT_TRUE(early.isPending());
    source.markCompletion(1);
    EXPECT_EQ(outcomeOf(early), ofOne);
    EXPECT_EQ(outcomeOf(make(completed(1))), ofOne);
    EXPECT_EQ(outcomeOf(make(failed("no"))), ofError);
  }
}

TEST(FutureTests, ChainsRunOnTheirQueue) {
  const DispatchQueue queue("test.chain");
  EXPECT_TRUE(completed(1).then(queue, [queue](int) { return queue.isCurrent(); }).get());
  EXPECT_EQ(
      failed("no").recover(queue, [queue](const Error&) { return int{queue.isCurrent()}; }).get(),
      1);
  EXPECT_TRUE(completed(1).then([](int) { return DispatchQueue::global().isCurrent(); }).get());
}

// Waiting

TEST(FutureTests, AWaitThatEndsTooSoonLeavesTheFuturePending) {
  const Future<int> future;
  for (const double limit : {0.0, -1.0, 0.001}) {
    try {
      future.get(TimeInterval(limit));
      ADD_FAILURE() << "answered";
    } catch (const FutureError& error) {
      EXPECT_EQ(error.kind(), FutureError::Case::timedOut);
    }
  }
  EXPECT_TRUE(future.isPending());
  future.markCompletion(4);
  EXPECT_EQ(future.get(TimeInterval(0)), 4);
}

TEST(FutureTests, WorkersThatWaitForEachOtherAreMadeUpFor) {
  constexpr int depth = 24;  // more than the pool has threads
  const std::vector<Future<int>> row(depth);
  for (int index = 0; index + 1 < depth; ++index) {
    DispatchQueue::global().async(
        [mine = row[static_cast<std::size_t>(index)],
         next = row[static_cast<std::size_t>(index) + 1]] { mine.markCompletion(next.get() + 1); });
  }
  DispatchQueue::global().async([last = row.back()] { last.markCompletion(0); });
  EXPECT_EQ(row.front().get(TimeInterval(15)), depth - 1);
}

// Producers

TEST(FutureTests, APromiseThatGoesBreaksItsFuture) {
  std::optional<Promise<int>> promise(std::in_place);
  const auto future = promise->future();
  const test::Collector<FutureError::Case> kinds;
  future.onFailure([kinds](const Error& error) { kinds.add(futureError(error)); });
  promise.reset();
  EXPECT_EQ(futureError(future.error()), FutureError::Case::broken);
  ASSERT_TRUE(kinds.waitFor(1));
  EXPECT_EQ(kinds.value(0), FutureError::Case::broken);
}

TEST(FutureTests, OnlyThePromiseThatWasMovedToCounts) {
  auto promise = std::make_unique<Promise<int>>();
  const auto future = promise->future();
  {
    const Promise<int> moved = std::move(*promise);
    promise.reset();
    EXPECT_TRUE(future.isPending());
    moved.future().markCompletion(1);
  }
  EXPECT_EQ(future.get(), 1);
}

TEST(FutureTests, AChainOfAForgottenFutureIsBroken) {
  std::optional<Future<int>> source(std::in_place);
  const auto derived = source->then([](int value) { return value; });
  source.reset();
  EXPECT_EQ(futureError(derived.error()), FutureError::Case::broken);
}

// Cancelling

TEST(FutureTests, CancellingWithoutAHookFailsAtOnce) {
  const Future<int> future;
  future.cancel();
  EXPECT_EQ(futureError(future.error()), FutureError::Case::cancelled);
  EXPECT_FALSE(future.markCompletion(1));
}

TEST(FutureTests, CancellingASettledFutureDoesNothing) {
  int calls = 0;
  const auto future = completed(1);
  future.onCancel([&] { ++calls; });
  future.cancel();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(future.get(), 1);
}

TEST(FutureTests, TheProducerDecidesWhatACancelledFutureBecomes) {
  int calls = 0;
  const Future<int> future;
  future.onCancel([&] { ++calls; });
  future.cancel();
  future.cancel();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(future.isPending());
  future.markCompletion(1);  // it was on its way
  EXPECT_EQ(future.get(), 1);
}

TEST(FutureTests, AHookThatComesAfterTheCancellationRunsAtOnce) {
  int first = 0;
  int second = 0;
  const Future<int> future;
  future.onCancel([&] { ++first; });
  future.cancel();
  future.onCancel([&] { ++second; });
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST(FutureTests, AHookTakesThePlaceOfTheOneBefore) {
  int first = 0;
  int second = 0;
  const Future<int> future;
  future.onCancel([&] { ++first; });
  future.onCancel([&] { ++second; });
  future.cancel();
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST(FutureTests, WhatAHookThrowsIsTheFailure) {
  const Future<int> future;
  future.onCancel([] { throw std::runtime_error("stuck"); });
  future.cancel();
  EXPECT_EQ(outcomeOf(future), "stuck");
}

TEST(FutureTests, CancellingAChainCancelsWhatItWaitsFor) {
  const Future<int> source;
  const auto derived =
      source.then([](int v) { return v; }).recover([](const Error& e) -> int { e.raise(); });
  derived.cancel();
  EXPECT_EQ(futureError(source.error()), FutureError::Case::cancelled);
  EXPECT_EQ(outcomeOf(derived), FutureError::cancelled().message());

  const Future<int> inner;
  const test::Waiter answered;
  const auto flattened = completed(1).then([=](int) {
    answered.signal();
    return inner;
  });
  ASSERT_TRUE(answered.waitFor());
  flattened.cancel();
  EXPECT_EQ(outcomeOf(flattened), FutureError::cancelled().message());
  EXPECT_EQ(futureError(inner.error()), FutureError::Case::cancelled);
}

// Progress

TEST(FutureTests, ProgressReachesEveryHandlerOfItsTypeInOrder) {
  const Future<int> future;
  const Strings seen;
  const auto add = [&](const std::string& name) {
    future.addProgressHandler<int>(
        [seen, name](int value) { seen.add(name + std::to_string(value)); });
  };
  future.reportProgress(0);
  add("a");
  future.addProgressHandler<std::string>([seen](const std::string& text) { seen.add(text); });
  future.reportProgress(1);
  add("b");
  future.reportProgress(2);
  future.reportProgress(std::string("text"));
  future.markCompletion(1);
  future.reportProgress(3);
  add("c");
  future.reportProgress(4);
  EXPECT_THAT(seen.values(), testing::ElementsAre("a1", "a2", "b2", "text"));
}

TEST(FutureTests, WhatAProgressHandlerThrowsIsLoggedAndTheNextOneIsCalled) {
  test::LogRecorder log;
  const Future<int> future;
  const test::Collector<int> seen;
  future.addProgressHandler<int>([](int) { throw std::runtime_error("oops"); })
      .addProgressHandler<int>(seen.callback());
  future.reportProgress(1);
  EXPECT_EQ(seen.count(), 1u);
  EXPECT_THAT(log.messages(LogLevel::fault), testing::ElementsAre(testing::HasSubstr("oops")));
}

// Races

constexpr int rounds = 300;

TEST(FutureTests, OfManyThreadsThatSettleOneWins) {
  for (int round = 0; round < rounds; ++round) {
    const Future<int> future;
    std::atomic<int> winners = 0;
    std::thread completes([&] { winners += future.markCompletion(1); });
    std::thread fails([&] { winners += future.markFailure(std::runtime_error("no")); });
    std::thread cancels([&] { future.cancel(); });
    const auto outcome = outcomeOf(future);
    completes.join();
    fails.join();
    cancels.join();
    EXPECT_EQ(winners, outcome == FutureError::cancelled().message() ? 0 : 1);
    EXPECT_EQ(outcomeOf(future), outcome);
  }
}

TEST(FutureTests, AHandlerAddedWhileTheFutureIsSettledRunsOnceAndInOrder) {
  const DispatchQueue queue("test.handlers");
  for (int round = 0; round < rounds; ++round) {
    const Future<int> future;
    const test::Collector<int> order;
    constexpr int handlers = 8;
    std::thread settles([&] { future.markCompletion(1); });
    for (int index = 0; index < handlers; ++index) {
      future.onCompletion(queue, [order, index](int) { order.add(index); });
    }
    settles.join();
    ASSERT_TRUE(order.waitFor(handlers));
    queue.sync([] {});
    EXPECT_THAT(order.values(), testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
  }
}

TEST(FutureTests, TheLastHandleMayGoAsSoonAsTheFutureIsSettled) {
  for (int round = 0; round < rounds; ++round) {
    std::optional<Future<std::string>> future(std::in_place);
    std::thread settles([promise = Promise(*future)] {
      promise.future().markCompletion("a text that does not fit in place");
    });
    EXPECT_EQ(future->get(), "a text that does not fit in place");
    future.reset();
    settles.join();
  }
}

}  // namespace
}  // namespace tarn
