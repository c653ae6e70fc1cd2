#include <Support/Collector.hpp>
#include <Tambour/OptionalQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

namespace tarn {
namespace {

TEST(OptionalQueueTests, RunsOnTheQueueThatIsGiven) {
  const DispatchQueue queue("tambour.tests");
  const test::Collector<bool> onQueue;
  async(queue, [&] { onQueue.add(queue.isCurrent()); });
  ASSERT_TRUE(onQueue.waitFor(1));
  EXPECT_TRUE(onQueue.value(0));
}

TEST(OptionalQueueTests, KeepsTheQueuesOrder) {
  const DispatchQueue queue("tambour.tests");
  const test::Collector<int> order;
  for (int item = 0; item < 100; ++item) async(queue, [order, item] { order.add(item); });
  ASSERT_TRUE(order.waitFor(100));
  for (int item = 0; item < 100; ++item)
    EXPECT_EQ(order.value(static_cast<std::size_t>(item)), item);
}

TEST(OptionalQueueTests, RunsLaterEvenWhenCalledOnTheQueueItself) {
  const DispatchQueue queue("tambour.tests");
  const test::Waiter done;
  bool callerHasLeft = false;
  bool ranLater = false;
  queue.async([&] {
    async(queue, [&] {
      ranLater = callerHasLeft;
      done.signal();
    });
    callerHasLeft = true;
  });
  ASSERT_TRUE(done.waitFor());
  EXPECT_TRUE(ranLater);
}

TEST(OptionalQueueTests, RunsOnTheGlobalQueueWithoutOne) {
  const test::Collector<bool> onGlobal;
  async(std::nullopt, [&] { onGlobal.add(DispatchQueue::global().isCurrent()); });
  ASSERT_TRUE(onGlobal.waitFor(1));
  EXPECT_TRUE(onGlobal.value(0));
}

TEST(OptionalQueueTests, DoesNotRunOnTheCallersThreadWithoutAQueue) {
  std::promise<std::thread::id> ran;
  auto result = ran.get_future();
  async(std::nullopt, [&] { ran.set_value(std::this_thread::get_id()); });
  ASSERT_EQ(result.wait_for(std::chrono::seconds(15)), std::future_status::ready);
  EXPECT_NE(result.get(), std::this_thread::get_id());
}

TEST(OptionalQueueTests, WithoutAQueueItemsMayOverlap) {
  const test::Waiter first;
  const test::Waiter second;
  const test::Waiter both;
  const auto meet = [both](const test::Waiter& mine, const test::Waiter& other) {
    mine.signal();
    if (other.waitFor()) both.signal();
  };
  async(std::nullopt, [meet, first, second] { meet(first, second); });
  async(std::nullopt, [meet, first, second] { meet(second, first); });
  EXPECT_TRUE(both.waitFor(2));
}

TEST(OptionalQueueTests, TakesWorkThatOwnsWhatItWorksOn) {
  const test::Collector<int> values;
  async(std::nullopt, [values, owned = std::make_unique<int>(7)] { values.add(*owned); });
  ASSERT_TRUE(values.waitFor(1));
  EXPECT_EQ(values.value(0), 7);
}

}  // namespace
}  // namespace tarn
