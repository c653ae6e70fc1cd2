#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Types/FatalError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

bool readable(std::chrono::milliseconds limit = 0ms) {
  pollfd entry{MainQueue::fileDescriptor(), POLLIN, 0};
  return poll(&entry, 1, static_cast<int>(limit.count())) == 1 && (entry.revents & POLLIN) != 0;
}

TEST(MainQueueTests, DrainRunsWhatWaitsInOrderOnTheCallingThread) {
  std::vector<int> seen;
  const auto here = std::this_thread::get_id();
  for (int i = 0; i < 3; ++i) {
    DispatchQueue::main().async([&, i] {
      EXPECT_EQ(std::this_thread::get_id(), here);
      EXPECT_TRUE(DispatchQueue::main().isCurrent());
      seen.push_back(i);
    });
  }
  EXPECT_THAT(seen, testing::IsEmpty());
  EXPECT_EQ(MainQueue::drain(), 3U);
  EXPECT_THAT(seen, testing::ElementsAre(0, 1, 2));
  EXPECT_EQ(MainQueue::drain(), 0U);
}

TEST(MainQueueTests, DrainLeavesWhatIsAddedMeanwhileForTheNextOne) {
  int runs = 0;
  DispatchQueue::main().async([&] {
    ++runs;
    DispatchQueue::main().async([&] { ++runs; });
    EXPECT_EQ(MainQueue::drain(), 0U) << "inside an item nothing runs";
  });
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(runs, 2);
}

TEST(MainQueueTests, RunDrainsUntilStopped) {
  int runs = 0;
  const DispatchQueue worker("worker");
  worker.async([&] {
    DispatchQueue::main().async([&] {
      ++runs;
      worker.async([&] {
        DispatchQueue::main().async([&] {
          ++runs;
          MainQueue::stop();
        });
      });
    });
  });
  MainQueue::run();
  EXPECT_EQ(runs, 2);
}

TEST(MainQueueTests, StopEndsTheRunAfterTheCurrentItem) {
  std::vector<int> seen;
  DispatchQueue::main().async([&] {
    MainQueue::stop();
    seen.push_back(1);
  });
  DispatchQueue::main().async([&] { seen.push_back(2); });
  MainQueue::run();
  EXPECT_THAT(seen, testing::ElementsAre(1));
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_THAT(seen, testing::ElementsAre(1, 2));
}

TEST(MainQueueTests, AStopFromAnotherThreadEndsABlockedRun) {
  std::jthread stopper([] { MainQueue::stop(); });
  MainQueue::run();
  EXPECT_FALSE(MainQueue::run(TimeInterval(0))) << "one stop ends one run";
}

TEST(MainQueueTests, RunWithALimitTellsWhetherItWasStopped) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(MainQueue::run(TimeInterval(0.02)));
  EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
  DispatchQueue::main().async([] { MainQueue::stop(); });
  EXPECT_TRUE(MainQueue::run(longWait));
}

TEST(MainQueueTests, ARunThatIsNeverIdleStillEndsAtItsLimit) {
  struct Again {
    void operator()() const {
      if (*running) DispatchQueue::main().async(Again{running});
    }
    bool* running;
  };
  bool running = true;
  DispatchQueue::main().async(Again{&running});
  EXPECT_FALSE(MainQueue::run(TimeInterval(0.01)));
  running = false;
  MainQueue::drain();
}

TEST(MainQueueTests, FileDescriptorIsReadableWhileItemsWait) {
  EXPECT_FALSE(readable());
  DispatchQueue::main().async([] {});
  DispatchQueue::main().async([] {});
  EXPECT_TRUE(readable());
  EXPECT_TRUE(readable()) << "looking does not change it";
  EXPECT_EQ(MainQueue::drain(), 2U);
  EXPECT_FALSE(readable());
  EXPECT_EQ(MainQueue::fileDescriptor(), MainQueue::fileDescriptor());
}

TEST(MainQueueTests, FileDescriptorTellsOfItemsAddedBeforeItWasAskedFor) {
  DispatchQueue::main().async([] {});
  EXPECT_TRUE(readable());
  EXPECT_EQ(MainQueue::drain(), 1U);
}

TEST(MainQueueTests, FileDescriptorWakesAnEventLoop) {
  ASSERT_FALSE(readable());
  int runs = 0;
  DispatchQueue::global().async([&] { DispatchQueue::main().async([&] { ++runs; }); });
  ASSERT_TRUE(readable(30s));
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(runs, 1);
}

TEST(MainQueueTests, SyncFromAnotherThreadRunsWhereTheQueueIsDrained) {
  const auto here = std::this_thread::get_id();
  std::atomic<bool> onMain = false;
  std::atomic<bool> threw = false;
  int number = 4;
  std::atomic<bool> sameReference = false;
  DispatchQueue::global().async([&] {
    onMain = DispatchQueue::main().sync([] { return std::this_thread::get_id(); }) == here;
    sameReference = &DispatchQueue::main().sync([&]() -> int& { return number; }) == &number;
    try {
      DispatchQueue::main().sync([] { throw std::out_of_range("main"); });
    } catch (const std::out_of_range&) {
      threw = true;
    }
    MainQueue::stop();
  });
  ASSERT_TRUE(MainQueue::run(longWait));
  EXPECT_TRUE(onMain);
  EXPECT_TRUE(threw);
  EXPECT_TRUE(sameReference);
}

TEST(MainQueueTests, ItemsAddedFromManyThreadsAllRun) {
  const DispatchGroup group;
  int runs = 0;  // on the main queue
  std::vector<std::jthread> adders;
  for (int t = 0; t < 4; ++t) {
    adders.emplace_back([&] {
      for (int i = 0; i < 1'000; ++i) {
        DispatchQueue::main().async(group, [&] { ++runs; });
      }
    });
  }
  group.enter();
  DispatchQueue::global().async([&] {
    adders.clear();
    group.leave();
  });
  group.notify(DispatchQueue::main(), [] { MainQueue::stop(); });
  ASSERT_TRUE(MainQueue::run(longWait));
  EXPECT_EQ(runs, 4'000);
}

TEST(MainQueueTests, AThrowingItemIsReportedAndTheNextOneRuns) {
  static std::vector<std::string> reports;
  reports.clear();
  const auto before = setUncaughtErrorHook([](const Error& error, std::string_view where) {
    reports.push_back(std::string(where) + ": " + error.message());
  });
  int runs = 0;
  DispatchQueue::main().async([] { throw std::runtime_error("thrown"); });
  DispatchQueue::main().async([&] { ++runs; });
  EXPECT_EQ(MainQueue::drain(), 2U);
  setUncaughtErrorHook(before);
  EXPECT_EQ(runs, 1);
  EXPECT_THAT(reports, testing::ElementsAre(DispatchQueue::main().label() + ": thrown"));
}

TEST(MainQueueDeathTests, WaitingForItselfIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        DispatchQueue::main().async([] { DispatchQueue::main().sync([] {}); });
        MainQueue::drain();
      },
      "sync on the main queue");
  EXPECT_DEATH(
      {
        MainQueue::drain();
        DispatchQueue::main().sync([] {});
      },
      "sync on the main queue");
  EXPECT_DEATH(
      {
        DispatchQueue::main().async([] { MainQueue::run(); });
        MainQueue::drain();
      },
      "being drained already");
}

}  // namespace
}  // namespace tarn
