#include <Platform/Dispatch/Mutex.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;

TEST(MutexTests, OneThreadAtATimeHoldsIt) {
  Mutex mutex;
  int count = 0;
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 5'000; ++i) {
        const MutexLock lock(mutex);
        ++count;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(count, 20'000);
}

TEST(MutexTests, ALockCanBeOpenedForAWhile) {
  Mutex mutex;
  const auto isFree = [&] {
    bool free = false;
    std::jthread([&] {
      if (mutex.try_lock()) {
        free = true;
        mutex.unlock();
      }
    }).join();
    return free;
  };
  {
    MutexLock lock(mutex);
    EXPECT_FALSE(isFree());
    lock.unlock();
    EXPECT_TRUE(isFree());
    lock.lock();
    EXPECT_FALSE(isFree());
    lock.unlock();
  }
  EXPECT_TRUE(isFree());
}

}  // namespace
}  // namespace tarn
