#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/ManualDispatchClock.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

TEST(ManualDispatchClockTests, StandsStillUntilAdvanced) {
  ManualDispatchClock clock;
  const DispatchTime start = DispatchTime::now();
  EXPECT_EQ(DispatchTime::now(), start);
  EXPECT_EQ(clock.now(), start);
  clock.advance(TimeInterval(2.5));
  EXPECT_EQ(DispatchTime::now() - start, TimeInterval(2.5));
  clock.advance(TimeInterval(-1));
  EXPECT_EQ(DispatchTime::now() - start, TimeInterval(2.5)) << "time never runs back";
}

TEST(ManualDispatchClockTests, ItemsRunInTheOrderOfTheirDeadlines) {
  ManualDispatchClock clock;
  const DispatchQueue queue("delayed");
  std::vector<std::string> seen;
  const auto add = [&](double delay, std::string name) {
    queue.asyncAfter(TimeInterval(delay), [&seen, name] { seen.push_back(name); });
  };
  add(3, "three");
  add(1, "one");
  add(2, "two");
  add(1, "one again");
  clock.advance(TimeInterval(1));
  EXPECT_THAT(queue.sync([&] { return seen; }), testing::ElementsAre("one", "one again"));
  clock.advance(TimeInterval(5));
  EXPECT_THAT(queue.sync([&] { return seen; }),
              testing::ElementsAre("one", "one again", "two", "three"));
}

TEST(ManualDispatchClockTests, ItemsRunNotBeforeTheirDeadline) {
  ManualDispatchClock clock;
  const DispatchQueue queue("delayed");
  int runs = 0;
  queue.asyncAfter(clock.now() + TimeInterval(1), [&] { ++runs; });
  clock.advance(TimeInterval(0.999'999));
  EXPECT_EQ(queue.sync([&] { return runs; }), 0);
  clock.advance(TimeInterval(0.000'001));
  EXPECT_EQ(queue.sync([&] { return runs; }), 1);
}

TEST(ManualDispatchClockTests, WhatIsDueAlreadyRunsWithoutAnAdvance) {
  const ManualDispatchClock clock;
  const DispatchQueue queue("due");
  std::vector<int> seen;
  queue.asyncAfter(TimeInterval(0), [&] { seen.push_back(1); });
  queue.asyncAfter(TimeInterval(-5), [&] { seen.push_back(2); });
  queue.asyncAfter(DispatchTime(0), [&] { seen.push_back(3); });
  EXPECT_THAT(queue.sync([&] { return seen; }), testing::ElementsAre(1, 2, 3));
}

TEST(ManualDispatchClockTests, RecordsTheDelaysAskedFor) {
  ManualDispatchClock clock;
  const DispatchQueue queue("delayed");
  queue.asyncAfter(TimeInterval(0.1), [] {});
  queue.asyncAfter(clock.now() + TimeInterval(2), [] {});
  queue.asyncAfter(TimeInterval(0), [] {});
  EXPECT_THAT(clock.requestedDelays(),
              testing::ElementsAre(TimeInterval(0.1), TimeInterval(2), TimeInterval(0)));
  clock.advance(TimeInterval(2));
}

TEST(ManualDispatchClockTests, EachClockBeginsItsOwnRecord) {
  {
    ManualDispatchClock clock;
    DispatchQueue("delayed").asyncAfter(TimeInterval(1), [] {});
    clock.advance(TimeInterval(1));
  }
  const ManualDispatchClock clock;
  EXPECT_THAT(clock.requestedDelays(), testing::IsEmpty());
}

TEST(ManualDispatchClockTests, WaitsForDelaysToBeAskedFor) {
  ManualDispatchClock clock;
  EXPECT_FALSE(clock.waitForRequestedDelays(1, TimeInterval(0.01)));
  const DispatchQueue queue("delayed");
  queue.async([queue] { queue.asyncAfter(TimeInterval(7), [] {}); });
  ASSERT_TRUE(clock.waitForRequestedDelays(1, longWait));
  EXPECT_THAT(clock.requestedDelays(), testing::ElementsAre(TimeInterval(7)));
  clock.advance(TimeInterval(7));
}

TEST(ManualDispatchClockTests, WhatIsAddedWhileTimeIsMovedOnIsNotMissed) {
  ManualDispatchClock clock;
  const DispatchQueue queue("delayed");
  for (std::size_t round = 1; round <= 3000; ++round) {
    const DispatchSemaphore ran(0);
    queue.async([&] { queue.asyncAfter(TimeInterval(1), [&] { ran.signal(); }); });
    ASSERT_TRUE(clock.waitForRequestedDelays(round, longWait));
    clock.advance(TimeInterval(1));  // the item may not have been added yet
    ASSERT_TRUE(ran.wait(longWait));
  }
}

TEST(ManualDispatchClockTests, TheSystemsClockTakesOverAtTheEnd) {
  const DispatchSemaphore ran(0);
  std::optional<ManualDispatchClock> clock(std::in_place);
  DispatchQueue("delayed").asyncAfter(TimeInterval(0.005), [&] { ran.signal(); });
  EXPECT_FALSE(ran.wait(TimeInterval(0.02)));
  clock.reset();
  EXPECT_TRUE(ran.wait(longWait));
}

TEST(ManualDispatchClockTests, WithoutItItemsFollowTheSystemsClock) {
  const DispatchQueue queue("delayed");
  const DispatchSemaphore ran(0);
  std::vector<int> seen;
  const DispatchTime start = DispatchTime::now();
  queue.asyncAfter(TimeInterval(0.03), [&] {
    seen.push_back(2);
    ran.signal();
  });
  queue.asyncAfter(TimeInterval(0.01), [&] { seen.push_back(1); });
  ASSERT_TRUE(ran.wait(longWait));
  EXPECT_GE((DispatchTime::now() - start).count(), 0.03);
  EXPECT_THAT(queue.sync([&] { return seen; }), testing::ElementsAre(1, 2));
}

// With a delay about as long as a call takes, some items are due by the time they are added.
TEST(ManualDispatchClockTests, ItemsWithTheSameDelayRunInTheOrderOfTheCalls) {
  for (const double delay : {1e-9, 1e-7, 3e-7, 1e-6, 1e-5}) {
    SCOPED_TRACE(delay);
    const DispatchQueue queue("delayed");
    const DispatchSemaphore done(0);
    constexpr int count = 5000;
    std::vector<int> seen;
    for (int item = 0; item < count; ++item) {
      queue.asyncAfter(TimeInterval(delay), [&, item] {
        seen.push_back(item);
        if (seen.size() == count) done.signal();
      });
    }
    ASSERT_TRUE(done.wait(longWait));
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  }
}

TEST(ManualDispatchClockDeathTests, ASecondOneIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const ManualDispatchClock first;
        const ManualDispatchClock second;
      },
      "installed already");
}

}  // namespace
}  // namespace tarn
