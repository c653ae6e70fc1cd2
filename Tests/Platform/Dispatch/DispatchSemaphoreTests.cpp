#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/ManualDispatchClock.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

TEST(DispatchSemaphoreTests, PassesAsManyWaitersAsItsValue) {
  const DispatchSemaphore semaphore(2);
  EXPECT_TRUE(semaphore.wait(TimeInterval(0)));
  EXPECT_TRUE(semaphore.wait(TimeInterval(0)));
  EXPECT_FALSE(semaphore.wait(TimeInterval(0)));
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(TimeInterval(0)));
}

TEST(DispatchSemaphoreTests, ANegativeValueTakesAsManySignalsFirst) {
  const DispatchSemaphore semaphore(-2);
  for (int i = 0; i < 2; ++i) semaphore.signal();
  EXPECT_FALSE(semaphore.wait(TimeInterval(0)));
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(TimeInterval(0)));
}

TEST(DispatchSemaphoreTests, ASignalReleasesABlockedWaiter) {
  const DispatchSemaphore semaphore(0);
  std::atomic<bool> signalled = false;
  std::jthread signaller([&] {
    signalled = true;
    semaphore.signal();
  });
  semaphore.wait();
  EXPECT_TRUE(signalled);
}

TEST(DispatchSemaphoreTests, TimesOutAndKeepsNoTraceOfIt) {
  const DispatchSemaphore semaphore(0);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(semaphore.wait(TimeInterval(0.02)));
  EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(TimeInterval(0)));
}

TEST(DispatchSemaphoreTests, TakesDeadlinesOfTheDispatchClock) {
  const DispatchSemaphore semaphore(0);
  EXPECT_FALSE(semaphore.wait(DispatchTime::now() + TimeInterval(0.01)));
  EXPECT_FALSE(semaphore.wait(DispatchTime(0)));
  semaphore.signal();
  EXPECT_TRUE(semaphore.wait(DispatchTime::distantFuture()));
}

TEST(DispatchSemaphoreTests, WaitsLastRealTimeUnderAManualClock) {
  const ManualDispatchClock clock;
  EXPECT_FALSE(DispatchSemaphore(0).wait(TimeInterval(0.01)));
  EXPECT_FALSE(DispatchSemaphore(0).wait(clock.now() + TimeInterval(0.01)));
}

TEST(DispatchSemaphoreTests, NoLimitIsTooLong) {
  for (const double seconds :
       {1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    SCOPED_TRACE(seconds);
    const DispatchSemaphore semaphore(0);
    std::jthread signaller([&] { semaphore.signal(); });
    EXPECT_TRUE(semaphore.wait(TimeInterval(seconds)));
  }
}

TEST(DispatchSemaphoreTests, NoSignalIsLostBetweenTimeOutsAndSignals) {
  const DispatchSemaphore semaphore(0);
  constexpr int signals = 5'000;
  std::atomic<int> passed = 0;
  {
    std::atomic<bool> done = false;
    std::vector<std::jthread> waiters;
    for (int i = 0; i < 3; ++i) {
      waiters.emplace_back([&] {
        while (!done) passed += semaphore.wait(TimeInterval(0.00001)) ? 1 : 0;
      });
    }
    for (int i = 0; i < signals; ++i) {
      // Spread over many time-outs, so that signals and time-outs meet.
      const auto next = std::chrono::steady_clock::now() + 20us;
      while (std::chrono::steady_clock::now() < next) {
      }
      semaphore.signal();
    }
    done = true;
  }
  while (semaphore.wait(TimeInterval(0))) ++passed;
  EXPECT_EQ(passed, signals);
}

TEST(DispatchSemaphoreTests, CopiesAreTheSameSemaphore) {
  const DispatchSemaphore semaphore(0);
  const DispatchSemaphore copy = semaphore;
  EXPECT_EQ(semaphore, copy);
  copy.signal();
  EXPECT_TRUE(semaphore.wait(longWait));
}

}  // namespace
}  // namespace tarn
