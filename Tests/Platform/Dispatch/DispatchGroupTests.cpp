#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

TEST(DispatchGroupTests, AnEmptyGroupDoesNotBlock) {
  const DispatchGroup group;
  group.wait();
  EXPECT_TRUE(group.wait(TimeInterval(0)));
}

TEST(DispatchGroupTests, WaitEndsWithTheLastLeave) {
  const DispatchGroup group;
  std::atomic<int> left = 0;
  for (int i = 0; i < 3; ++i) group.enter();
  std::jthread leaver([&] {
    for (int i = 0; i < 3; ++i) {
      ++left;
      group.leave();
    }
  });
  group.wait();
  EXPECT_EQ(left, 3);
}

TEST(DispatchGroupTests, WaitTimesOutWhileSomethingIsUnfinished) {
  const DispatchGroup group;
  group.enter();
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(group.wait(TimeInterval(0.02)));
  EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
  EXPECT_FALSE(group.wait(TimeInterval(-1)));
  group.leave();
  EXPECT_TRUE(group.wait(TimeInterval(0)));
}

TEST(DispatchGroupTests, AllWaitersAreReleased) {
  const DispatchGroup group;
  group.enter();
  std::atomic<int> released = 0;
  std::vector<std::jthread> waiters;
  for (int i = 0; i < 5; ++i) {
    waiters.emplace_back([&] { released += group.wait(longWait) ? 1 : 0; });
  }
  group.leave();
  waiters.clear();
  EXPECT_EQ(released, 5);
}

TEST(DispatchGroupTests, NotifyRunsOnItsQueueOnceTheGroupIsEmpty) {
  const DispatchGroup group;
  const DispatchQueue queue("notified");
  const DispatchSemaphore notified(0);
  std::atomic<bool> onQueue = false;
  group.enter();
  group.notify(queue, [&] {
    onQueue = queue.isCurrent();
    notified.signal();
  });
  queue.sync([] {});
  EXPECT_FALSE(notified.wait(TimeInterval(0)));
  group.leave();
  ASSERT_TRUE(notified.wait(longWait));
  EXPECT_TRUE(onQueue);
}

TEST(DispatchGroupTests, NotifyOfAnEmptyGroupRunsAtOnceAndOnlyOnce) {
  const DispatchGroup group;
  const DispatchQueue queue("notified");
  int runs = 0;
  group.notify(queue, [&] { ++runs; });
  EXPECT_EQ(queue.sync([&] { return runs; }), 1);
  group.enter();
  group.leave();
  EXPECT_EQ(queue.sync([&] { return runs; }), 1);
}

TEST(DispatchGroupTests, NotificationsAreServedInOrderAndTheGroupCanBeUsedAgain) {
  const DispatchGroup group;
  const DispatchQueue queue("notified");
  std::vector<int> seen;
  for (int round = 0; round < 2; ++round) {
    group.enter();
    group.notify(queue, [&seen, round] { seen.push_back(10 * round); });
    group.notify(queue, [&seen, round] { seen.push_back(10 * round + 1); });
    group.leave();
  }
  EXPECT_THAT(queue.sync([&] { return seen; }), testing::ElementsAre(0, 1, 10, 11));
}

TEST(DispatchGroupTests, AThrowingMemberStillLeaves) {
  const DispatchGroup group;
  DispatchQueue("thrower").async(group, [] { throw std::runtime_error("member"); });
  EXPECT_TRUE(group.wait(longWait));
}

TEST(DispatchGroupTests, CopiesAreTheSameGroup) {
  const DispatchGroup group;
  const DispatchGroup copy = group;
  EXPECT_EQ(group, copy);
  EXPECT_NE(group, DispatchGroup());
  group.enter();
  EXPECT_FALSE(copy.wait(TimeInterval(0)));
  copy.leave();
  EXPECT_TRUE(group.wait(TimeInterval(0)));
}

TEST(DispatchGroupDeathTests, LeavingWithoutEnteringIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(DispatchGroup().leave(), "without a matching enter");
}

}  // namespace
}  // namespace tarn
