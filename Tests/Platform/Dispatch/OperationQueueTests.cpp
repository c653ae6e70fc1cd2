#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

TEST(OperationQueueTests, HasItsNameAndNoLimit) {
  const OperationQueue queue("name");
  EXPECT_EQ(queue.name(), "name");
  EXPECT_EQ(queue.maxConcurrentOperationCount(), OperationQueue::noLimit);
  EXPECT_FALSE(queue.isSuspended());
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(OperationQueueTests, RunsSeveralAtOnceByDefault) {
  OperationQueue queue("together");
  const DispatchSemaphore first(0);
  const DispatchSemaphore second(0);
  std::atomic<int> met = 0;
  queue.addOperation([&] {
    first.signal();
    met += second.wait(longWait) ? 1 : 0;
  });
  queue.addOperation([&] {
    second.signal();
    met += first.wait(longWait) ? 1 : 0;
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(met, 2);
}

TEST(OperationQueueTests, NeverRunsMoreThanItsLimit) {
  for (const int limit : {1, 2, 3}) {
    SCOPED_TRACE(limit);
    OperationQueue queue("limited");
    queue.setMaxConcurrentOperationCount(static_cast<std::size_t>(limit));
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::atomic<int> runs = 0;
    const DispatchSemaphore pause(0);
    for (int i = 0; i < 30; ++i) {
      queue.addOperation([&] {
        const int now = ++running;
        for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        pause.wait(TimeInterval(0.001));  // lets others start, if they may
        ++runs;
        --running;
      });
    }
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(most, limit);
    EXPECT_EQ(runs, 30);
  }
}

TEST(OperationQueueTests, ALimitOfOneKeepsTheOrder) {
  OperationQueue queue("serial");
  queue.setMaxConcurrentOperationCount(1);
  std::vector<int> seen;  // unsynchronised: one at a time
  std::vector<int> expected;
  for (int i = 0; i < 1'000; ++i) {
    queue.addOperation([&seen, i] { seen.push_back(i); });
    expected.push_back(i);
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(seen, expected);
}

TEST(OperationQueueTests, ALimitOfZeroStartsNoneUntilRaised) {
  OperationQueue queue("stopped");
  queue.setMaxConcurrentOperationCount(0);
  const DispatchSemaphore ran(0);
  queue.addOperation([&] { ran.signal(); });
  EXPECT_FALSE(ran.wait(TimeInterval(0.02)));
  EXPECT_EQ(queue.operationCount(), 1U);
  queue.setMaxConcurrentOperationCount(1);
  EXPECT_TRUE(ran.wait(longWait));
  queue.waitUntilAllOperationsAreFinished();
}

TEST(OperationQueueTests, StartsNoneWhileSuspended) {
  OperationQueue queue("suspended");
  const DispatchSemaphore ran(0);
  queue.setSuspended(true);
  EXPECT_TRUE(queue.isSuspended());
  for (int i = 0; i < 3; ++i) {
    queue.addOperation([&] { ran.signal(); });
  }
  EXPECT_FALSE(ran.wait(TimeInterval(0.02)));
  EXPECT_EQ(queue.operationCount(), 3U);
  queue.setSuspended(false);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(ran.wait(longWait));
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(OperationQueueTests, ASuspensionByAnOperationHoldsTheNextOne) {
  OperationQueue queue("suspending");
  queue.setMaxConcurrentOperationCount(1);
  const DispatchSemaphore ran(0);
  queue.addOperation([&] { queue.setSuspended(true); });
  queue.addOperation([&] { ran.signal(); });
  EXPECT_FALSE(ran.wait(TimeInterval(0.02)));
  queue.setSuspended(false);
  EXPECT_TRUE(ran.wait(longWait));
  queue.waitUntilAllOperationsAreFinished();
}

TEST(OperationQueueTests, ASuspensionHoldsOperationsThatAreAboutToStart) {
  OperationQueue queue("suspending");
  const DispatchSemaphore ran(0);
  std::atomic<bool> startedWhileSuspended = false;
  queue.addOperation([&] {
    queue.addOperation([&] {  // next on this thread
      startedWhileSuspended = queue.isSuspended();
      ran.signal();
    });
    queue.setSuspended(true);
  });
  ran.wait(TimeInterval(0.02));
  queue.setSuspended(false);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(startedWhileSuspended);
}

TEST(OperationQueueTests, WaitingOnAnIdleQueueReturnsAtOnce) {
  OperationQueue queue("idle");
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(OperationQueueTests, WorkersThatWaitForItAreMadeUpFor) {
  OperationQueue queue("waited for");
  const DispatchGroup group;
  const DispatchSemaphore go(0);
  const DispatchSemaphore waiting(0);
  queue.addOperation([&] { go.wait(); });
  for (int i = 0; i < 20; ++i) {
    DispatchQueue::global().async(group, [&] {
      waiting.signal();
      queue.waitUntilAllOperationsAreFinished();
    });
  }
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(waiting.wait(longWait));
  DispatchQueue::global().async([&] { go.signal(); });
  EXPECT_TRUE(group.wait(longWait));
}

TEST(OperationQueueTests, AThrowingOperationIsReportedUnderTheNameAndCountsAsFinished) {
  static std::mutex mutex;
  static std::vector<std::string> reports;
  reports.clear();
  const auto before = setUncaughtErrorHook([](const Error& error, std::string_view where) {
    const std::lock_guard lock(mutex);
    reports.push_back(std::string(where) + ": " + error.message());
  });
  const DispatchSemaphore reported(0);
  {
    OperationQueue queue("thrower");
    queue.setMaxConcurrentOperationCount(1);
    queue.addOperation([] { throw std::runtime_error("operation"); });
    queue.addOperation([&] { reported.signal(); });
    ASSERT_TRUE(reported.wait(longWait));
    queue.waitUntilAllOperationsAreFinished();
  }
  setUncaughtErrorHook(before);
  const std::lock_guard lock(mutex);
  EXPECT_THAT(reports, testing::ElementsAre("thrower: operation"));
}

TEST(OperationQueueTests, PendingOperationsOutliveTheObject) {
  const DispatchGroup group;
  const DispatchSemaphore go(0);
  std::atomic<int> runs = 0;
  auto queue = std::make_unique<OperationQueue>("gone");
  queue->setMaxConcurrentOperationCount(1);
  queue->addOperation([&] { go.wait(); });
  for (int i = 0; i < 10; ++i) {
    group.enter();
    queue->addOperation([&] {
      ++runs;
      group.leave();
    });
  }
  queue.reset();
  go.signal();
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_EQ(runs, 10);
}

TEST(OperationQueueDeathTests, AnOperationThatWaitsForItsOwnQueueIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        OperationQueue queue("own");
        queue.addOperation([&] { queue.waitUntilAllOperationsAreFinished(); });
        queue.waitUntilAllOperationsAreFinished();
      },
      "inside an operation of 'own'");
}

}  // namespace
}  // namespace tarn
