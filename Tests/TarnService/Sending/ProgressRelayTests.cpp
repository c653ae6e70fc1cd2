#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Support/Collector.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/Sending/ProgressRelay.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using testing::ElementsAre;

// The relay as a send uses it: `finish` comes by way of the queue.
class ProgressRelayTests : public test::ServiceTest {
 protected:
  static constexpr auto concurrent = DispatchQueue::Attribute::concurrent;

  std::shared_ptr<detail::ProgressRelay> relay(const std::optional<DispatchQueue>& onQueue) const {
    return std::make_shared<detail::ProgressRelay>(
        onQueue, [events = events](RequestProgress progress) {
          events.add(std::to_string(progress.completedBytes));
        });
  }
  void finish(const std::shared_ptr<detail::ProgressRelay>& progress,
              const std::optional<DispatchQueue>& onQueue) const {
    async(onQueue, [progress, events = events] {
      progress->finish([events] { events.add("completion"); });
    });
  }

  DispatchQueue queue{"test.progress"};
  test::Collector<std::string> events;
};

TEST_F(ProgressRelayTests, EveryValueArrivesWhereTheQueueKeepsUp) {
  const auto progress = relay(queue);
  for (std::int64_t done = 1; done <= 3; ++done) {
    progress->report({done, 3});
    queue.sync([] {});
  }
  finish(progress, queue);
  ASSERT_TRUE(events.waitFor(4));
  EXPECT_THAT(events.values(), ElementsAre("1", "2", "3", "completion"));
}

TEST_F(ProgressRelayTests, ABlockedQueueSeesTheLatestValueOnly) {
  const auto progress = relay(queue);
  const DispatchSemaphore blocked(0);
  queue.async([blocked] { blocked.wait(); });
  for (std::int64_t done = 1; done <= 1000; ++done) progress->report({done, 1000});
  blocked.signal();
  queue.sync([] {});
  EXPECT_THAT(events.values(), ElementsAre("1000"));
}

TEST_F(ProgressRelayTests, NoMoreThanOneItemWaitsInABlockedQueue) {
  const auto progress = relay(queue);
  const DispatchSemaphore blocked(0);
  queue.async([blocked] { blocked.wait(); });
  progress->report({1, 9});
  queue.async([events = events] { events.add("between"); });
  for (std::int64_t done = 2; done <= 9; ++done) progress->report({done, 9});
  queue.async([events = events] { events.add("behind"); });
  blocked.signal();
  queue.sync([] {});
  EXPECT_THAT(events.values(), ElementsAre("9", "between", "behind"));
}

TEST_F(ProgressRelayTests, WhatIsReportedWhileTheHandlerRunsComesInAnItemOfItsOwn) {
  test::Collector<std::string> order;
  const DispatchSemaphore entered(0);
  const DispatchSemaphore leave(0);
  const auto progress = std::make_shared<detail::ProgressRelay>(
      queue, [order, entered, leave](RequestProgress value) {
        order.add(std::to_string(value.completedBytes));
        if (value.completedBytes > 1) return;
        entered.signal();
        leave.wait();
      });
  progress->report({1, 9});
  entered.wait();
  progress->report({2, 9});
  progress->report({3, 9});
  queue.async([order] { order.add("other work"); });
  leave.signal();
  ASSERT_TRUE(order.waitFor(3));
  EXPECT_THAT(order.values(), ElementsAre("1", "other work", "3"));
}

TEST_F(ProgressRelayTests, TheLastValueComesBeforeTheCompletionOfABlockedQueue) {
  const auto progress = relay(queue);
  const DispatchSemaphore blocked(0);
  queue.async([blocked] { blocked.wait(); });
  progress->report({1, 2});
  progress->report({2, 2});
  finish(progress, queue);
  blocked.signal();
  ASSERT_TRUE(events.waitFor(2));
  EXPECT_THAT(events.values(), ElementsAre("2", "completion"));
}

TEST_F(ProgressRelayTests, ACompletionThatOvertakesTheProgressCallsItFirst) {
  const auto progress = relay(queue);
  const DispatchSemaphore blocked(0);
  queue.async([blocked] { blocked.wait(); });
  progress->report({1, 2});
  // As the item of a concurrent queue that starts before the one that was added first.
  progress->finish([events = events] { events.add("completion"); });
  EXPECT_THAT(events.values(), ElementsAre("1", "completion"));
  blocked.signal();
  queue.sync([] {});
  EXPECT_EQ(events.count(), 2u);
}

TEST_F(ProgressRelayTests, ACompletionWaitsForTheHandlerThatRunsAndBlocksNobody) {
  const DispatchQueue several("test.concurrent", QualityOfService::unspecified, concurrent);
  test::Collector<std::string> order;
  const DispatchSemaphore entered(0);
  const DispatchSemaphore leave(0);
  const auto progress = std::make_shared<detail::ProgressRelay>(
      several, [order, entered, leave](RequestProgress value) {
        entered.signal();
        leave.wait();
        order.add(std::to_string(value.completedBytes));
      });
  progress->report({1, 2});
  entered.wait();
  progress->report({2, 2});
  progress->finish([order] { order.add("completion"); });
  order.add("finish returned");
  leave.signal();
  leave.signal();
  ASSERT_TRUE(order.waitFor(4));
  EXPECT_THAT(order.values(), ElementsAre("finish returned", "1", "2", "completion"));
}

TEST_F(ProgressRelayTests, NothingComesAfterTheCompletion) {
  const auto progress = relay(queue);
  finish(progress, queue);
  ASSERT_TRUE(events.waitFor(1));
  progress->report({1, 2});
  queue.sync([] {});
  EXPECT_THAT(events.values(), ElementsAre("completion"));
}

TEST_F(ProgressRelayTests, CallsDoNotOverlapWithoutAQueue) {
  for (int round = 0; round < 20; ++round) {
    struct Seen {
      std::atomic<int> inside = 0;
      std::atomic<bool> overlapped = false;
      std::atomic<std::int64_t> last = 0;
    };
    const auto seen = std::make_shared<Seen>();
    const auto progress =
        std::make_shared<detail::ProgressRelay>(std::nullopt, [seen](RequestProgress value) {
          if (seen->inside++ != 0 || value.completedBytes <= seen->last) seen->overlapped = true;
          seen->last = value.completedBytes;
          --seen->inside;
        });
    for (std::int64_t done = 1; done <= 200; ++done) progress->report({done, 200});
    const test::Collector<std::int64_t> lasts;
    async(std::nullopt, [progress, seen, lasts] {
      progress->finish([seen, lasts] {
        if (seen->inside != 0) seen->overlapped = true;
        lasts.add(seen->last);
      });
    });
    ASSERT_TRUE(lasts.waitFor(1));
    EXPECT_EQ(lasts.value(0), 200);
    EXPECT_FALSE(seen->overlapped);
  }
}

TEST_F(ProgressRelayTests, AThrowingHandlerIsLoggedAndHurtsNobody) {
  const auto progress = std::make_shared<detail::ProgressRelay>(
      queue, [](RequestProgress) { throw std::runtime_error("my mistake"); });
  progress->report({1, 2});
  finish(progress, queue);
  ASSERT_TRUE(events.waitFor(1));
  EXPECT_THAT(events.values(), ElementsAre("completion"));
  expectLog(LogLevel::fault, "A progress handler threw: my mistake");
}

TEST_F(ProgressRelayTests, TheHandlerIsLetGoWithTheCompletion) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  const auto progress = std::make_shared<detail::ProgressRelay>(
      queue, [held = std::move(held)](RequestProgress) { static_cast<void>(*held); });
  progress->report({1, 2});
  finish(progress, queue);
  ASSERT_TRUE(events.waitFor(1));
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace tarn
