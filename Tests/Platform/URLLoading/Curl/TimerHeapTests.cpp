#include <Platform/URLLoading/Curl/TimerHeap.hpp>

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace tarn::detail {
namespace {

struct NamedTimer final : Timer {
  void timerFired() noexcept override {}
};

Clock::time_point at(int milliseconds) {
  return Clock::time_point(std::chrono::milliseconds(milliseconds));
}

TEST(TimerHeap, GivesTimersInOrderOnceTheyAreDue) {
  TimerHeap heap;
  NamedTimer one, two, three;
  heap.set(two, at(20));
  heap.set(three, at(30));
  heap.set(one, at(10));
  EXPECT_EQ(heap.earliest(), at(10));
  EXPECT_EQ(heap.takeDue(at(5)), nullptr);
  EXPECT_EQ(heap.takeDue(at(25)), &one);
  EXPECT_EQ(heap.takeDue(at(25)), &two);
  EXPECT_EQ(heap.takeDue(at(25)), nullptr);
  heap.remove(three);
  heap.remove(three);
  EXPECT_TRUE(heap.empty());
}

TEST(TimerHeap, HoldsItsOrderHoweverTimersMove) {
  std::minstd_rand random(11);
  TimerHeap heap;
  std::vector<NamedTimer> timers(60);
  std::map<Timer*, int> expected;
  for (int step = 0; step < 20'000; ++step) {
    NamedTimer& timer = timers[random() % timers.size()];
    const int deadline = static_cast<int>(random() % 1000);
    if (random() % 4 == 0) {
      heap.remove(timer);
      expected.erase(&timer);
    } else {
      heap.set(timer, at(deadline));
      expected[&timer] = deadline;
    }
    ASSERT_EQ(heap.size(), expected.size());
    int earliest = 1000;
    for (const auto& entry : expected) earliest = std::min(earliest, entry.second);
    if (!expected.empty()) {
      ASSERT_EQ(heap.earliest(), at(earliest));
    }
  }
  int last = 0;
  while (Timer* timer = heap.takeDue(at(1000))) {
    EXPECT_GE(expected[timer], last);
    last = expected[timer];
  }
  EXPECT_TRUE(heap.empty());
}

}  // namespace
}  // namespace tarn::detail
