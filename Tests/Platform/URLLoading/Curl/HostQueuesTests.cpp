#include <Platform/URLLoading/Curl/HostQueues.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace tarn::test {
namespace {

using detail::HostQueue;
using detail::HostQueues;
using detail::Origin;

Origin host(int number) { return {false, "host" + std::to_string(number), 80}; }

void visitMany(HostQueues& queues) {
  for (int number = 1000; number < 1100; ++number) queues.of(host(number));
}

TEST(HostQueues, OneOriginHasOneQueue) {
  HostQueues queues(6);
  const auto queue = queues.of(host(1));
  EXPECT_EQ(queue->origin(), host(1));
  EXPECT_EQ(queues.of(host(1)), queue);
  EXPECT_NE(queues.of({true, "host1", 80}), queue);
  EXPECT_NE(queues.of({false, "host1", 81}), queue);
  EXPECT_NE(queues.of(host(2)), queue);
}

TEST(HostQueues, ThoseThatNobodyUsesGoWhenManyOthersCome) {
  HostQueues queues(6);
  const std::weak_ptr<HostQueue> unused = queues.of(host(1));
  const auto used = queues.of(host(2));
  visitMany(queues);
  EXPECT_TRUE(unused.expired());
  EXPECT_EQ(queues.of(host(2)), used);
}

TEST(HostQueues, WhatIsKnownOfHTTP2IsKept) {
  HostQueues queues(6);
  EXPECT_TRUE(queues.of(host(1))->setMultiplexed(true));
  visitMany(queues);
  EXPECT_FALSE(queues.of(host(1))->setMultiplexed(true));
}

}  // namespace
}  // namespace tarn::test
