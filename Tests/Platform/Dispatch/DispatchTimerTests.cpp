#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Dispatch/DispatchTimer.hpp>
#include <Platform/Dispatch/ManualDispatchClock.hpp>
#include <Platform/Types/FatalError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

namespace tarn {
namespace {

using namespace std::chrono_literals;
constexpr TimeInterval longWait = 30s;

/// A timer whose fires are counted on its queue, on a clock that the test moves.
class DispatchTimerTests : public testing::Test {
 protected:
  DispatchTimerTests() {
    timer_->setEventHandler([this] { ++fires_; });
  }
  ~DispatchTimerTests() override {
    queue_.sync([] {});
  }

  int fires() {
    return queue_.sync([&] { return fires_; });
  }
  void advance(double seconds) { clock_.advance(TimeInterval(seconds)); }
  DispatchTime in(double seconds) { return clock_.now() + TimeInterval(seconds); }

  ManualDispatchClock clock_;
  DispatchQueue queue_{"timer"};
  int fires_ = 0;  // on the queue
  std::optional<DispatchTimer> timer_{queue_};
};

TEST_F(DispatchTimerTests, IsMadeSuspended) {
  timer_->schedule(in(1));
  advance(2);
  EXPECT_EQ(fires(), 0);
}

TEST_F(DispatchTimerTests, FiresOnceAtItsDeadline) {
  timer_->schedule(in(1));
  timer_->resume();
  advance(0.999);
  EXPECT_EQ(fires(), 0);
  advance(0.001);
  EXPECT_EQ(fires(), 1);
  advance(100);
  EXPECT_EQ(fires(), 1);
}

TEST_F(DispatchTimerTests, RunsItsHandlerOnItsQueue) {
  bool current = false;
  timer_->setEventHandler([&] { current = queue_.isCurrent(); });
  timer_->schedule(in(1));
  timer_->resume();
  advance(1);
  EXPECT_TRUE(queue_.sync([&] { return current; }));
}

TEST_F(DispatchTimerTests, RepeatsAtItsInterval) {
  timer_->schedule(in(1), TimeInterval(0.5));
  timer_->resume();
  advance(1);
  for (int expected = 1; expected <= 20; ++expected) {
    EXPECT_EQ(fires(), expected);
    advance(0.5);
  }
}

TEST_F(DispatchTimerTests, ADelayedFireDoesNotShiftTheOnesAfterIt) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  advance(1.75);
  EXPECT_EQ(fires(), 1);
  advance(0.25);
  EXPECT_EQ(fires(), 2);
}

TEST_F(DispatchTimerTests, FiresMissedInALeapBecomeOne) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  advance(10.5);
  EXPECT_EQ(fires(), 1);
  advance(0.25);
  EXPECT_EQ(fires(), 1);
  advance(0.25);
  EXPECT_EQ(fires(), 2);
}

TEST_F(DispatchTimerTests, FiresMissedWhileTheQueueIsBusyBecomeOne) {
  const DispatchSemaphore go(0);
  queue_.async([go] { go.wait(); });
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  for (int i = 0; i < 5; ++i) advance(1);
  go.signal();
  EXPECT_EQ(fires(), 1);
  advance(1);
  EXPECT_EQ(fires(), 2);
}

TEST_F(DispatchTimerTests, AnOverdueDeadlineFiresOnResume) {
  timer_->schedule(in(0), TimeInterval(1));
  timer_->resume();
  EXPECT_EQ(fires(), 1);
  advance(1);
  EXPECT_EQ(fires(), 2);
}

TEST_F(DispatchTimerTests, FiresMissedWhileSuspendedBecomeOneOnResume) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  advance(1);
  EXPECT_EQ(fires(), 1);
  timer_->suspend();
  advance(3.5);
  EXPECT_EQ(fires(), 1);
  timer_->resume();
  EXPECT_EQ(fires(), 2);
  advance(0.5);
  EXPECT_EQ(fires(), 3);
}

TEST_F(DispatchTimerTests, AFireWaitingForItsQueueIsHeldBackBySuspension) {
  const DispatchSemaphore go(0);
  queue_.async([go] { go.wait(); });
  timer_->schedule(in(1));
  timer_->resume();
  advance(1);
  timer_->suspend();
  go.signal();
  EXPECT_EQ(fires(), 0);
  timer_->resume();
  EXPECT_EQ(fires(), 1);
}

TEST_F(DispatchTimerTests, SuspensionsNest) {
  timer_->schedule(in(1));
  timer_->suspend();
  timer_->resume();
  advance(1);
  EXPECT_EQ(fires(), 0);
  timer_->resume();
  EXPECT_EQ(fires(), 1);
}

TEST_F(DispatchTimerTests, ANewScheduleReplacesTheOneBefore) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  timer_->schedule(in(5));
  advance(4);
  EXPECT_EQ(fires(), 0);
  advance(1);
  EXPECT_EQ(fires(), 1);
  advance(5);
  EXPECT_EQ(fires(), 1);
}

TEST_F(DispatchTimerTests, ANewHandlerReplacesTheOneBefore) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  int others = 0;
  timer_->setEventHandler([&] { ++others; });
  advance(1);
  EXPECT_EQ(fires(), 0);
  EXPECT_EQ(queue_.sync([&] { return others; }), 1);
}

TEST_F(DispatchTimerTests, IntervalsHaveALowerBound) {
  for (const double interval : {0.0, -1.0, 1e-12}) {
    SCOPED_TRACE(interval);
    DispatchTimer timer(queue_);
    int count = 0;
    timer.setEventHandler([&] { ++count; });
    timer.schedule(in(1), TimeInterval(interval));
    timer.resume();
    advance(1);
    EXPECT_EQ(queue_.sync([&] { return count; }), 1);
    advance(0.001);
    EXPECT_EQ(queue_.sync([&] { return count; }), 2);
  }
}

TEST_F(DispatchTimerTests, CancelEndsItAndRunsTheCancelHandlerOnceOnTheQueue) {
  int cancels = 0;
  bool current = false;
  timer_->setCancelHandler([&] {
    ++cancels;
    current = queue_.isCurrent();
  });
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  EXPECT_FALSE(timer_->isCancelled());
  timer_->cancel();
  timer_->cancel();
  EXPECT_TRUE(timer_->isCancelled());
  advance(5);
  EXPECT_EQ(fires(), 0);
  EXPECT_EQ(cancels, 1);
  EXPECT_TRUE(current);
}

TEST_F(DispatchTimerTests, NoHandlerStartsAfterACancelOnItsQueue) {
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  queue_.sync([&] {
    advance(1);  // the fire waits behind this item
    timer_->cancel();
  });
  EXPECT_EQ(fires(), 0);
}

TEST_F(DispatchTimerTests, CancelReleasesTheHandlers) {
  const auto owned = std::make_shared<int>(0);
  timer_->setEventHandler([owned] {});
  timer_->setCancelHandler([owned] {});
  timer_->cancel();
  queue_.sync([] {});
  EXPECT_EQ(owned.use_count(), 1);
  timer_->setEventHandler([owned] {});
  EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(DispatchTimerTests, DestructionCancels) {
  int cancels = 0;
  timer_->setCancelHandler([&] { ++cancels; });
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  timer_.reset();
  advance(2);
  EXPECT_EQ(fires(), 0);
  EXPECT_EQ(cancels, 1);
}

TEST_F(DispatchTimerTests, AHandlerMayDestroyItsTimer) {
  timer_->setEventHandler([this] {
    ++fires_;
    timer_.reset();
  });
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  advance(1);
  EXPECT_EQ(fires(), 1);
  advance(1);
  EXPECT_EQ(fires(), 1);
}

TEST_F(DispatchTimerTests, AThrowingHandlerIsReportedAndTheTimerGoesOn) {
  static std::atomic<int> reports;
  reports = 0;
  const auto before = setUncaughtErrorHook([](const Error& error, std::string_view where) {
    if (error.message() == "handler" && where == "timer") ++reports;
  });
  timer_->setEventHandler([] { throw std::runtime_error("handler"); });
  timer_->schedule(in(1), TimeInterval(1));
  timer_->resume();
  for (int i = 0; i < 2; ++i) {
    advance(1);
    queue_.sync([] {});
  }
  setUncaughtErrorHook(before);
  EXPECT_EQ(reports, 2);
}

TEST(DispatchTimerRealTimeTests, FiresByTheSystemsClock) {
  const DispatchSemaphore fired(0);
  DispatchTimer timer(DispatchQueue("timer"));
  timer.setEventHandler([&] { fired.signal(); });
  const DispatchTime start = DispatchTime::now();
  timer.schedule(start + TimeInterval(0.01), TimeInterval(0.01));
  timer.resume();
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(fired.wait(longWait));
  EXPECT_GE((DispatchTime::now() - start).count(), 0.03);
}

TEST(DispatchTimerDeathTests, ResumingOnceTooOftenIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        DispatchTimer timer(DispatchQueue("timer"));
        timer.resume();
        timer.resume();
      },
      "without a matching suspend");
}

}  // namespace
}  // namespace tarn
