#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Types/FatalError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <deque>
#include <latch>
#include <memory>
#include <mutex>
#include <numeric>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using Attribute = DispatchQueue::Attribute;

// Bounds of waits that end at once unless the tested behaviour is missing.
constexpr TimeInterval longWait = 30s;

/// A gate that blocks in a way that the library cannot see.
class RawGate {
 public:
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    condition_.notify_all();
  }
  bool wait() {
    std::unique_lock lock(mutex_);
    return condition_.wait_for(lock, longWait, [&] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool open_ = false;
};

DispatchQueue concurrentQueue(std::string label) {
  return DispatchQueue(std::move(label), QualityOfService::unspecified, Attribute::concurrent);
}

TEST(DispatchQueueTests, CarriesItsLabelAndQualityOfService) {
  const DispatchQueue queue("label", QualityOfService::utility);
  EXPECT_EQ(queue.label(), "label");
  EXPECT_EQ(queue.qualityOfService(), QualityOfService::utility);
  EXPECT_EQ(DispatchQueue("other").qualityOfService(), QualityOfService::unspecified);
}

TEST(DispatchQueueTests, CopiesAreEqualAndOtherQueuesOfTheSameLabelAreNot) {
  const DispatchQueue queue("label");
  const DispatchQueue copy = queue;
  EXPECT_EQ(queue, copy);
  EXPECT_NE(queue, DispatchQueue("label"));
  EXPECT_EQ(DispatchQueue::main(), DispatchQueue::main());
}

TEST(DispatchQueueTests, GlobalQueuesAreOnePerQualityOfService) {
  EXPECT_EQ(DispatchQueue::global(), DispatchQueue::global(QualityOfService::default_));
  EXPECT_EQ(DispatchQueue::global(), DispatchQueue::global(QualityOfService::unspecified));
  EXPECT_NE(DispatchQueue::global(), DispatchQueue::global(QualityOfService::background));
  const DispatchGroup group;
  DispatchQueue::global(QualityOfService::background).async(group, [] {});
  EXPECT_TRUE(group.wait(longWait));
}

TEST(DispatchQueueTests, SerialQueueRunsItemsInOrder) {
  const DispatchQueue queue("order");
  std::vector<int> seen;
  for (int i = 0; i < 10'000; ++i) {
    queue.async([&seen, i] { seen.push_back(i); });
  }
  std::vector<int> expected(10'000);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(queue.sync([&] { return seen; }), expected);
}

TEST(DispatchQueueTests, SerialQueueNeverRunsTwoItemsAtOnce) {
  const DispatchQueue queue("one at a time");
  const DispatchGroup group;
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  int runs = 0;  // unsynchronised: what the queue orders needs no lock
  const auto item = [&] {
    if (inside.fetch_add(1) != 0) ++overlaps;
    ++runs;
    inside.fetch_sub(1);
  };
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2'000; ++i) {
        queue.async(group, item);
        queue.sync(item);
      }
    });
  }
  threads.clear();
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(runs, 16'000);
}

TEST(DispatchQueueTests, ConcurrentQueueRunsItemsAtOnce) {
  const DispatchQueue queue = concurrentQueue("together");
  const DispatchGroup group;
  const DispatchSemaphore first(0);
  const DispatchSemaphore second(0);
  std::atomic<int> met = 0;
  queue.async(group, [&] {
    first.signal();
    if (second.wait(longWait)) ++met;
  });
  queue.async(group, [&] {
    second.signal();
    if (first.wait(longWait)) ++met;
  });
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_EQ(met, 2);
}

TEST(DispatchQueueTests, SyncOnAnIdleQueueRunsOnTheCallersThread) {
  for (const DispatchQueue& queue : {DispatchQueue("serial"), concurrentQueue("concurrent")}) {
    SCOPED_TRACE(queue.label());
    const auto here = std::this_thread::get_id();
    EXPECT_EQ(queue.sync([] { return std::this_thread::get_id(); }), here);
  }
}

TEST(DispatchQueueTests, SyncOnABusyQueueStillRunsOnTheCallersThread) {
  const DispatchQueue queue("busy");
  const DispatchSemaphore go(0);
  queue.async([go] { go.wait(); });
  std::jthread later([go, queue] { go.signal(); });
  EXPECT_EQ(queue.sync([] { return std::this_thread::get_id(); }), std::this_thread::get_id());
}

TEST(DispatchQueueTests, SyncReturnsValuesAndReferences) {
  const DispatchQueue queue("values");
  int number = 7;
  int& reference = queue.sync([&]() -> int& { return number; });
  EXPECT_EQ(&reference, &number);
  const auto unique = queue.sync([] { return std::make_unique<int>(3); });
  EXPECT_EQ(*unique, 3);
}

TEST(DispatchQueueTests, SyncPassesExceptionsOnAndLeavesTheQueueUsable) {
  for (const DispatchQueue& queue : {DispatchQueue("serial"), concurrentQueue("concurrent")}) {
    SCOPED_TRACE(queue.label());
    EXPECT_THROW(queue.sync([] { throw std::out_of_range("no"); }), std::out_of_range);
    EXPECT_EQ(queue.sync([] { return 1; }), 1);
  }
}

TEST(DispatchQueueTests, SyncWaitsItsTurnBehindItemsAddedBefore) {
  const DispatchQueue queue("turn");
  const DispatchSemaphore go(0);
  std::vector<int> seen;
  queue.async([&] { go.wait(); });
  for (int i = 0; i < 20; ++i) {
    queue.async([&seen, i] { seen.push_back(i); });
  }
  go.signal();
  EXPECT_EQ(queue.sync([&] { return seen.size(); }), 20U);
}

TEST(DispatchQueueTests, ItemsAddedDuringASyncRunAfterIt) {
  const DispatchQueue queue("after sync");
  const DispatchGroup group;
  std::vector<int> seen;
  queue.sync([&] {
    queue.async(group, [&] { seen.push_back(2); });
    seen.push_back(1);
  });
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_THAT(seen, testing::ElementsAre(1, 2));
}

TEST(DispatchQueueTests, ASyncBodyMayDropTheLastHandleOfItsQueue) {
  auto queue = std::make_unique<DispatchQueue>("dropped");
  bool ran = false;
  queue->sync([&] {
    queue.reset();
    ran = true;
  });
  EXPECT_TRUE(ran);
}

TEST(DispatchQueueDeathTests, SyncOnTheCurrentSerialQueueIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const DispatchQueue queue("own");
        queue.sync([&] { queue.sync([] {}); });
      },
      "sync on the serial queue 'own'");
  EXPECT_DEATH(
      {
        const DispatchQueue outer("outer");
        const DispatchQueue inner("inner");
        const DispatchGroup group;
        outer.async(group, [&] { inner.sync([&] { outer.sync([] {}); }); });
        group.wait(longWait);
      },
      "sync on the serial queue 'outer'");
}

TEST(DispatchQueueTests, SyncOnTheCurrentConcurrentQueueRuns) {
  const DispatchQueue queue = concurrentQueue("own");
  EXPECT_EQ(queue.sync([&] { return queue.sync([] { return 5; }); }), 5);
}

TEST(DispatchQueueTests, IsCurrentInsideItsItemsOnly) {
  const DispatchQueue outer("outer");
  const DispatchQueue inner("inner");
  EXPECT_FALSE(outer.isCurrent());
  outer.sync([&] {
    EXPECT_TRUE(outer.isCurrent());
    EXPECT_FALSE(inner.isCurrent());
    inner.sync([&] { EXPECT_TRUE(outer.isCurrent() && inner.isCurrent()); });
    EXPECT_FALSE(inner.isCurrent());
  });
  EXPECT_FALSE(outer.isCurrent());
  const DispatchGroup group;
  std::atomic<bool> current = false;
  outer.async(group, [&] { current = outer.isCurrent() && !inner.isCurrent(); });
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_TRUE(current);
}

TEST(DispatchQueueTests, ChainOfBlockedSyncsAcrossFortyQueuesIsMadeUpFor) {
  constexpr std::size_t depth = 40;
  std::deque<DispatchQueue> queues;
  for (std::size_t i = 0; i <= depth; ++i) queues.emplace_back("chain " + std::to_string(i));
  const DispatchGroup group;
  const DispatchSemaphore started(0);
  const DispatchSemaphore go(0);
  const DispatchSemaphore end(0);
  std::atomic<std::size_t> done = 0;
  queues[depth].async(group, [&] { end.wait(); });
  for (std::size_t i = 0; i < depth; ++i) {
    queues[i].async(group, [&, i] {
      started.signal();
      go.wait();
      queues[i + 1].sync([&] { ++done; });
    });
  }
  for (std::size_t i = 0; i < depth; ++i) ASSERT_TRUE(started.wait(longWait));
  for (std::size_t i = 0; i < depth; ++i) go.signal();
  end.signal();
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_EQ(done, depth);
}

TEST(DispatchQueueTests, SixtyBlockedWorkersAreMadeUpForAtOnce) {
  const DispatchQueue queue = concurrentQueue("blocked");
  const DispatchSemaphore blocked(0);
  const DispatchSemaphore go(0);
  const auto start = std::chrono::steady_clock::now();
  for (int round = 0; round < 10; ++round) {
    const DispatchGroup group;
    std::atomic<int> passed = 0;
    for (int i = 0; i < 60; ++i) {
      queue.async(group, [&] {
        blocked.signal();
        if (go.wait(longWait)) ++passed;
      });
    }
    for (int i = 0; i < 60; ++i) ASSERT_TRUE(blocked.wait(longWait));
    queue.async(group, [&] {
      for (int i = 0; i < 60; ++i) go.signal();
    });
    ASSERT_TRUE(group.wait(longWait));
    EXPECT_EQ(passed, 60);
  }
  // Workers taken for blocked only because nothing moves for ten ticks would take more than six
  // seconds.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(DispatchQueueTests, AWorkerThatWaitsBrieflyForItsTurnIsNotMadeUpFor) {
  const DispatchQueue queue = concurrentQueue("waiting");
  const DispatchQueue turns("turns");
  const int normal = std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
  int rounds = 0;  // in which nobody waited for a millisecond, however the system ran the threads
  for (int round = 0; round < 200 && rounds < 20; ++round) {
    const DispatchGroup group;
    std::atomic<int> waiting = 0;
    turns.sync([&] {
      const auto start = std::chrono::steady_clock::now();
      for (int i = 0; i < normal + 8; ++i) {
        queue.async(group, [&] {
          ++waiting;
          turns.sync([] {});
        });
      }
      // Long enough for other threads to take the rest, were they called.
      while (std::chrono::steady_clock::now() < start + 700us) std::this_thread::yield();
      const int seen = waiting;
      if (std::chrono::steady_clock::now() >= start + 1ms) return;
      ++rounds;
      EXPECT_LE(seen, normal);
    });
    ASSERT_TRUE(group.wait(longWait));
  }
}

TEST(DispatchQueueTests, SaysOnceThatAllThreadsAreBlockedWhileWorkWaits) {
  static std::atomic<int> reports = 0;
  static DispatchSemaphore& reported = *new DispatchSemaphore(0);
  const auto before = setTroubleHook([](std::string_view message) {
    EXPECT_EQ(message,
              "All threads of the queues, as many as there may be, are blocked or busy while work "
              "waits");
    ++reports;
    reported.signal();
  });
  for (int episode = 1; episode <= 2; ++episode) {
    const DispatchSemaphore gate(0);
    const DispatchGroup group;
    // More than there may be threads: some of these are what waits.
    constexpr int items = 80;
    for (int i = 0; i < items; ++i) DispatchQueue::global().async(group, [gate] { gate.wait(); });
    // On a busy machine it may be so for a moment, of which nothing is said.
    EXPECT_FALSE(reported.wait(TimeInterval(0.5)));
    EXPECT_TRUE(reported.wait(longWait));
    // The same episode goes on for many ticks, in which nothing is said again.
    EXPECT_FALSE(group.wait(TimeInterval(1.5)));
    EXPECT_EQ(reports, episode);
    for (int i = 0; i < items; ++i) gate.signal();
    EXPECT_TRUE(group.wait(longWait));
  }
  setTroubleHook(before);
}

TEST(DispatchQueueTests, ABlockedGroupWaitIsMadeUpFor) {
  const DispatchGroup outer;
  for (int i = 0; i < 20; ++i) {
    DispatchQueue::global().async(outer, [] {
      const DispatchGroup inner;
      DispatchQueue::global().async(inner, [] {});
      inner.wait();
    });
  }
  EXPECT_TRUE(outer.wait(longWait));
}

TEST(DispatchQueueTests, AnItemIsNotHeldUpByTheOneThatAddedIt) {
  const DispatchQueue first("first");
  const DispatchQueue second("second");
  const DispatchGroup group;
  RawGate gate;
  std::atomic<bool> opened = false;
  first.async(group, [&] {
    second.async([&] { gate.open(); });
    opened = gate.wait();
  });
  ASSERT_TRUE(group.wait(2 * longWait));
  EXPECT_TRUE(opened);
}

TEST(DispatchQueueTests, WorkersBlockedUnseenAreMadeUpForInTheEnd) {
  // As many as there are normal workers, and then some, all waiting for an item added last.
  const int count = static_cast<int>(std::max(2U, std::thread::hardware_concurrency())) + 3;
  const DispatchQueue queue = concurrentQueue("unseen");
  const DispatchGroup group;
  RawGate gate;
  std::atomic<int> passed = 0;
  for (int i = 0; i < count; ++i) {
    queue.async(group, [&] { passed += gate.wait() ? 1 : 0; });
  }
  queue.async(group, [&] { gate.open(); });
  ASSERT_TRUE(group.wait(2 * longWait));
  EXPECT_EQ(passed, count);
}

TEST(DispatchQueueTests, AThrowingItemIsReportedUnderTheLabelAndTheQueueGoesOn) {
  static std::mutex mutex;
  static std::vector<std::string> reports;
  reports.clear();
  const auto before = setUncaughtErrorHook([](const Error& error, std::string_view where) {
    const std::lock_guard lock(mutex);
    reports.push_back(std::string(where) + ": " + error.message());
  });
  for (const DispatchQueue& queue : {DispatchQueue("serial"), concurrentQueue("concurrent")}) {
    const DispatchGroup group;
    queue.async(group, [] { throw std::runtime_error("thrown"); });
    ASSERT_TRUE(group.wait(longWait));
    std::atomic<bool> ran = false;
    queue.async(group, [&] { ran = true; });
    ASSERT_TRUE(group.wait(longWait));
    queue.sync([] {});
    EXPECT_TRUE(ran);
  }
  setUncaughtErrorHook(before);
  const std::lock_guard lock(mutex);
  EXPECT_THAT(reports, testing::UnorderedElementsAre("serial: thrown", "concurrent: thrown"));
}

TEST(DispatchQueueTests, PendingItemsOutliveTheLastHandle) {
  for (const Attribute attribute : {Attribute::serial, Attribute::concurrent}) {
    const DispatchGroup group;
    const DispatchSemaphore go(0);
    std::atomic<int> runs = 0;
    {
      const DispatchQueue queue("gone", QualityOfService::unspecified, attribute);
      queue.async(group, [&] { go.wait(); });
      for (int i = 0; i < 100; ++i) {
        queue.async(group, [&] { ++runs; });
      }
    }
    go.signal();
    ASSERT_TRUE(group.wait(longWait));
    EXPECT_EQ(runs, 100);
  }
}

TEST(DispatchQueueTests, WhatAnItemOwnsGoesWithItsQueueStillCurrent) {
  struct Owned {
    DispatchQueue queue;
    DispatchGroup group;
    std::atomic<bool>& current;
    ~Owned() {
      current = queue.isCurrent();
      group.leave();
    }
  };
  const DispatchQueue queue("owner");
  const DispatchGroup group;
  std::atomic<bool> current = false;
  group.enter();
  queue.async([owned = std::unique_ptr<Owned>(new Owned{queue, group, current})] {});
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_TRUE(current);
}

TEST(DispatchQueueTests, APipelineStartedOnAWorkerStaysOnItsThread) {
  constexpr int hops = 500;
  struct Pipeline {
    std::deque<DispatchQueue> queues;
    DispatchGroup group;
    int left = hops;
    int moves = 0;
    std::thread::id thread{};

    void hop(std::size_t stage) {
      const auto here = std::this_thread::get_id();
      if (thread != std::thread::id() && thread != here) ++moves;
      thread = here;
      if (--left == 0) return group.leave();
      const std::size_t next = (stage + 1) % queues.size();
      queues[next].async([this, next] { hop(next); });
      // Long enough for another thread to take the item, were it offered; no tick long.
      const auto end = std::chrono::steady_clock::now() + 100us;
      while (std::chrono::steady_clock::now() < end) {
      }
    }
  };
  Pipeline pipeline;
  for (int i = 0; i < 10; ++i) pipeline.queues.emplace_back("stage " + std::to_string(i));
  pipeline.group.enter();
  pipeline.queues[0].async([&] { pipeline.hop(0); });
  ASSERT_TRUE(pipeline.group.wait(longWait));
  // A thread kept off its processor for some ticks is relieved of its item, so a few moves are in
  // order.
  EXPECT_LT(pipeline.moves, hops / 4);
}

TEST(DispatchQueueTests, AnEndlessChainDoesNotStarveOtherWork) {
  // Chains on every normal worker, each of which always has a next item of its own.
  const std::size_t chains = std::max(2U, std::thread::hardware_concurrency());
  const DispatchGroup group;
  std::atomic<bool> stop = false;
  struct Chain {
    DispatchQueue first;
    DispatchQueue second;
    DispatchGroup group;
    std::atomic<bool>& stop;

    void run(bool onFirst) {
      if (stop) return group.leave();
      (onFirst ? second : first).async([this, onFirst] { run(!onFirst); });
    }
  };
  std::deque<Chain> running;
  for (std::size_t i = 0; i < chains; ++i) {
    group.enter();
    running.push_back(Chain{DispatchQueue("first"), DispatchQueue("second"), group, stop});
    running.back().first.async([&chain = running.back()] { chain.run(true); });
  }
  const DispatchSemaphore ran(0);
  DispatchQueue("other").async([&] { ran.signal(); });
  EXPECT_TRUE(ran.wait(longWait));
  stop = true;
  EXPECT_TRUE(group.wait(longWait));
}

TEST(DispatchQueueTests, UrgentWorkGoesFirstAndBackgroundWorkStillGetsTurns) {
  // All workers are held while a backlog builds up; then the order of starts shows.
  const DispatchGroup group;
  const unsigned workers = std::max(2U, std::thread::hardware_concurrency());
  RawGate gate;
  std::latch held(workers);
  for (unsigned i = 0; i < workers; ++i) {
    DispatchQueue::global().async(group, [&] {
      held.count_down();
      gate.wait();
    });
  }
  held.wait();
  constexpr int items = 400;
  std::mutex mutex;
  std::vector<QualityOfService> order;
  for (const QualityOfService level :
       {QualityOfService::background, QualityOfService::userInteractive}) {
    for (int i = 0; i < items; ++i) {
      DispatchQueue::global(level).async(group, [&, level] {
        const std::lock_guard lock(mutex);
        order.push_back(level);
      });
    }
  }
  gate.open();
  ASSERT_TRUE(group.wait(longWait));
  const auto urgentInFirstHalf =
      std::count(order.begin(), order.begin() + items, QualityOfService::userInteractive);
  EXPECT_GT(urgentInFirstHalf, items * 3 / 4);
  EXPECT_LT(urgentInFirstHalf, items);
}

TEST(DispatchQueueTests, WorkersAreNamedAndBlockTheApplicationsSignals) {
  const DispatchGroup group;
  std::string name;
  std::vector<int> unblocked;
  DispatchQueue("named").async(group, [&] {
    std::array<char, 16> buffer{};
    pthread_getname_np(pthread_self(), buffer.data(), buffer.size());
    name = buffer.data();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGUSR1, SIGALRM, SIGPIPE}) {
      if (sigismember(&mask, signal) == 0) unblocked.push_back(signal);
    }
  });
  ASSERT_TRUE(group.wait(longWait));
  EXPECT_EQ(name, "tarn.worker");
  EXPECT_THAT(unblocked, testing::IsEmpty());
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGTERM), 0) << "the caller's own mask is left alone";
}

TEST(DispatchQueueDeathTests, OnOneProcessorOneThreadRunsAllUnlessItIsBlocked) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        cpu_set_t processors;
        sched_getaffinity(0, sizeof processors, &processors);
        std::size_t first = 0;
        while (!CPU_ISSET(first, &processors)) ++first;
        CPU_ZERO(&processors);
        CPU_SET(first, &processors);
        sched_setaffinity(0, sizeof processors, &processors);
        // Another may be called where the one is kept off its processor for long.
        bool alone = false;
        for (int round = 0; round < 20 && !alone; ++round) {
          const DispatchGroup group;
          std::mutex mutex;
          std::set<std::thread::id> threads;
          for (int item = 0; item < 32; ++item) {
            DispatchQueue::global().async(group, [&] {
              const auto end = std::chrono::steady_clock::now() + 1ms;
              while (std::chrono::steady_clock::now() < end) continue;
              const std::lock_guard lock(mutex);
              threads.insert(std::this_thread::get_id());
            });
          }
          group.wait();
          alone = threads.size() == 1;
        }
        const DispatchGroup group;
        RawGate gate;
        bool passed = false;
        DispatchQueue::global().async(group, [&] { passed = gate.wait(); });
        DispatchQueue::global().async(group, [&] { gate.open(); });
        group.wait();
        std::exit(alone && passed ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(DispatchQueueTests, WorkersThatAreNoLongerNeededLeave) {
  // Each thread tells when it ends.
  struct Farewell {
    ~Farewell() { left().signal(); }
    static const DispatchSemaphore& left() {
      static const auto* const semaphore = new DispatchSemaphore(0);
      return *semaphore;
    }
    void stay() const {}
  };
  constexpr unsigned workers = 20;
  const DispatchGroup group;
  const DispatchSemaphore arrived(0);
  const DispatchSemaphore go(0);
  for (unsigned i = 0; i < workers; ++i) {
    DispatchQueue::global().async(group, [&] {
      thread_local const Farewell farewell;
      farewell.stay();
      arrived.signal();
      go.wait();
    });
  }
  for (unsigned i = 0; i < workers; ++i) ASSERT_TRUE(arrived.wait(longWait));
  for (unsigned i = 0; i < workers; ++i) go.signal();
  ASSERT_TRUE(group.wait(longWait));
  const unsigned kept = std::max(2U, std::thread::hardware_concurrency());
  for (unsigned i = kept; i < workers; ++i) ASSERT_TRUE(Farewell::left().wait(longWait));
  DispatchQueue::global().async(group, [] {});
  EXPECT_TRUE(group.wait(longWait));
}

TEST(DispatchQueueDeathTests, ExitWithWorkInFlightIsClean) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct Endless {
    void operator()() const { queue().async(Endless()); }
    static const DispatchQueue& queue() {
      static const auto* const endless = new DispatchQueue("endless");
      return *endless;
    }
  };
  EXPECT_EXIT(
      {
        const DispatchSemaphore started(0);
        Endless()();
        Endless::queue().async([started] { started.signal(); });
        DispatchQueue::global().async([] { DispatchSemaphore(0).wait(); });
        DispatchQueue::global().asyncAfter(TimeInterval(3600), [] {});
        DispatchQueue::main().async([] {});
        started.wait();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(DispatchQueueTests, ManyThreadsOnManyQueuesLoseNothing) {
  constexpr unsigned threads = 8;
  constexpr int operations = 10'000;
  struct Counted {
    DispatchQueue queue;
    std::int64_t count = 0;  // unsynchronised: touched on its queue only
    void increment() { ++count; }
  };
  std::deque<Counted> counted;
  for (int i = 0; i < 20; ++i) {
    counted.push_back(Counted{DispatchQueue("stress " + std::to_string(i))});
  }
  const DispatchGroup group;
  std::atomic<std::int64_t> hops = 0;
  std::vector<std::jthread> callers;
  for (unsigned t = 0; t < threads; ++t) {
    callers.emplace_back([&, t] {
      std::minstd_rand random(t + 1);
      for (int i = 0; i < operations; ++i) {
        Counted& target = counted[random() % counted.size()];
        Counted& other = counted[random() % counted.size()];
        switch (random() % 4) {
          case 0:
            target.queue.async(group, [&] { target.increment(); });
            break;
          case 1:
            target.queue.sync([&] { target.increment(); });
            break;
          case 2:
            target.queue.async(group, [&] {
              target.increment();
              ++hops;
              other.queue.async(group, [&] { other.increment(); });
            });
            break;
          default:
            group.enter();
            target.queue.asyncAfter(TimeInterval(0.0001), [&] {
              target.increment();
              group.leave();
            });
        }
      }
    });
  }
  callers.clear();
  ASSERT_TRUE(group.wait(2 * longWait));
  std::int64_t total = 0;
  for (Counted& each : counted) total += each.queue.sync([&] { return each.count; });
  EXPECT_EQ(total, std::int64_t{threads} * operations + hops);
}

}  // namespace
}  // namespace tarn
