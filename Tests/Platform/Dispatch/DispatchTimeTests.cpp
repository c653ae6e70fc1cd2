#include <Platform/Dispatch/DispatchTime.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

namespace tarn {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(DispatchTimeTests, AddsSpansWithinItsRange) {
  struct Row {
    const char* name;
    DispatchTime time;
    double seconds;
    DispatchTime sum;
  };
  const DispatchTime second(1'000'000'000);
  const Row rows[] = {
      {"forward", second, 1.5, DispatchTime(2'500'000'000)},
      {"back", second, -0.25, DispatchTime(750'000'000)},
      {"rounded", second, 1e-9 * 0.6, DispatchTime(1'000'000'001)},
      {"before zero", second, -2, DispatchTime(0)},
      {"infinitely back", second, -infinity, DispatchTime(0)},
      {"too far", second, 1e10, DispatchTime::distantFuture()},
      {"infinite", second, infinity, DispatchTime::distantFuture()},
      {"not a number", second, std::nan(""), DispatchTime::distantFuture()},
      {"back from never", DispatchTime::distantFuture(), -5, DispatchTime::distantFuture()},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ((row.time + TimeInterval(row.seconds)).nanoseconds(), row.sum.nanoseconds());
  }
}

TEST(DispatchTimeTests, BeginsAtZero) {
  EXPECT_EQ(DispatchTime(std::numeric_limits<std::int64_t>::min()).nanoseconds(), 0);
}

TEST(DispatchTimeTests, GivesTheSpanBetweenTwoTimes) {
  EXPECT_EQ(DispatchTime(3'000'000'000) - DispatchTime(500'000'000), TimeInterval(2.5));
  EXPECT_EQ(DispatchTime(0) - DispatchTime(1'000'000'000), TimeInterval(-1));
  EXPECT_EQ(DispatchTime::distantFuture() - DispatchTime::now(), TimeInterval(infinity));
}

TEST(DispatchTimeTests, RunsWithTheMonotonicClock) {
  const auto before = std::chrono::steady_clock::now().time_since_epoch().count();
  const DispatchTime now = DispatchTime::now();
  const auto after = std::chrono::steady_clock::now().time_since_epoch().count();
  EXPECT_LE(before, now.nanoseconds());
  EXPECT_LE(now.nanoseconds(), after);
}

}  // namespace
}  // namespace tarn
