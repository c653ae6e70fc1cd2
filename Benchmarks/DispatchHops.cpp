// What a hop between serial queues, an uncontended turn and a wake of another thread cost, beside
// what general-purpose schedulers ask for the same pipeline. All in one process, one after the
// other.
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <semaphore>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int stages = 10;
constexpr int hops = 1'000'000;
constexpr int wakes = 5'000;

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long contextSwitches() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw + usage.ru_nivcsw;
}

/// Runs `body`, which does `count` operations, five times and prints the median by processor time,
/// which other load on the machine disturbs least.
template <class F>
void measure(const char* name, int count, F body) {
  struct Run {
    double wall;
    double cpu;
    double switches;
  };
  std::vector<Run> runs;
  for (int i = 0; i < 5; ++i) {
    const auto start = Clock::now();
    const double cpu = cpuSeconds();
    const long switches = contextSwitches();
    body();
    const std::chrono::duration<double, std::nano> wall = Clock::now() - start;
    runs.push_back({wall.count() / count, (cpuSeconds() - cpu) * 1e9 / count,
                    static_cast<double>(contextSwitches() - switches) * 1e3 / count});
  }
  std::nth_element(runs.begin(), runs.begin() + 2, runs.end(),
                   [](const Run& a, const Run& b) { return a.cpu < b.cpu; });
  std::printf("%-44s %9.0f ns  %9.0f ns CPU  %9.2f switches per 1000\n", name, runs[2].wall,
              runs[2].cpu, runs[2].switches);
}

/// A token that goes round the stages; `post(stage, work)` is how the scheduler adds work to a
/// stage.
template <class Post>
struct Pipeline {
  Post post;
  int left;
  std::binary_semaphore done{0};

  void hop(int stage) {
    if (--left == 0) return done.release();
    const int next = (stage + 1) % stages;
    post(next, [this, next] { hop(next); });
  }

  static void run(Post post, int count) {
    Pipeline pipeline{post, count};
    pipeline.post(0, [&pipeline] { pipeline.hop(0); });
    pipeline.done.acquire();
  }
};

template <class Post>
void runTokens(Post post, int tokens) {
  std::vector<std::jthread> starters;
  for (int i = 0; i < tokens; ++i) {
    starters.emplace_back([&] { Pipeline<Post>::run(post, hops / tokens); });
  }
}

/// The least that makes serial queues of TBB tasks: a locked list that one task at a time drains.
class TaskQueue {
 public:
  TaskQueue(tbb::task_arena& arena, tbb::task_group& group) : arena_(arena), group_(group) {}

  void async(std::function<void()> work) {
    {
      const std::lock_guard lock(mutex_);
      items_.push_back(std::move(work));
      if (std::exchange(busy_, true)) return;
    }
    arena_.enqueue(group_.defer([this] { drain(); }));
  }

 private:
  void drain() {
    for (;;) {
      std::function<void()> work;
      {
        const std::lock_guard lock(mutex_);
        if (items_.empty()) {
          busy_ = false;
          return;
        }
        work = std::move(items_.front());
        items_.pop_front();
      }
      work();
    }
  }

  tbb::task_arena& arena_;
  tbb::task_group& group_;
  std::mutex mutex_;
  std::deque<std::function<void()>> items_;
  bool busy_ = false;
};

void measureHops(int threads, int tokens) {
  const std::string suffix = ", " + std::to_string(tokens) + " token(s)";
  {
    std::vector<tarn::DispatchQueue> queues;
    for (int i = 0; i < stages; ++i) queues.emplace_back("stage");
    measure(("hop, serial DispatchQueue" + suffix).c_str(), hops, [&] {
      runTokens([&](int stage, auto work) { queues[static_cast<std::size_t>(stage)].async(work); },
                tokens);
    });
  }
  {
    boost::asio::thread_pool pool(static_cast<std::size_t>(threads));
    std::vector<boost::asio::strand<boost::asio::thread_pool::executor_type>> strands;
    for (int i = 0; i < stages; ++i) strands.push_back(make_strand(pool));
    measure(("hop, Asio strand" + suffix).c_str(), hops, [&] {
      runTokens(
          [&](int stage, auto work) {
            boost::asio::post(strands[static_cast<std::size_t>(stage)], work);
          },
          tokens);
    });
    pool.join();
  }
  {
    tbb::task_arena arena(threads, 0);
    tbb::task_group group;
    std::deque<TaskQueue> queues;
    for (int i = 0; i < stages; ++i) queues.emplace_back(arena, group);
    measure(("hop, serial queue of TBB tasks" + suffix).c_str(), hops, [&] {
      runTokens([&](int stage, auto work) { queues[static_cast<std::size_t>(stage)].async(work); },
                tokens);
    });
    arena.execute([&] { group.wait(); });
  }
}

void measureTurns() {
  const tarn::DispatchQueue queue("turns");
  int count = 0;
  measure("uncontended DispatchQueue::sync", hops, [&] {
    for (int i = 0; i < hops; ++i) queue.sync([&] { ++count; });
  });
  std::mutex mutex;
  measure("uncontended std::mutex", hops, [&] {
    for (int i = 0; i < hops; ++i) {
      const std::lock_guard lock(mutex);
      ++count;
    }
  });
  boost::asio::thread_pool pool(2);
  auto strand = make_strand(pool);
  std::binary_semaphore done(0);
  measure("strand and semaphore in place of sync", wakes, [&] {
    for (int i = 0; i < wakes; ++i) {
      post(strand, [&] {
        ++count;
        done.release();
      });
      done.acquire();
    }
  });
  pool.join();
}

/// A thread outside of the pool adds an item and waits for it: two wakes a round.
void measureWakes(int threads) {
  std::binary_semaphore done(0);
  const tarn::DispatchQueue queue("wake");
  measure("round trip to an idle DispatchQueue", wakes, [&] {
    for (int i = 0; i < wakes; ++i) {
      queue.async([&] { done.release(); });
      done.acquire();
    }
  });
  const tarn::DispatchSemaphore semaphore(0);
  measure("  the same, waiting on DispatchSemaphore", wakes, [&] {
    for (int i = 0; i < wakes; ++i) {
      queue.async([&] { semaphore.signal(); });
      semaphore.wait();
    }
  });
  boost::asio::thread_pool pool(static_cast<std::size_t>(threads));
  auto strand = make_strand(pool);
  measure("round trip to an idle Asio strand", wakes, [&] {
    for (int i = 0; i < wakes; ++i) {
      post(strand, [&] { done.release(); });
      done.acquire();
    }
  });
  pool.join();
  tbb::task_arena arena(threads, 0);
  tbb::task_group group;
  TaskQueue tasks(arena, group);
  measure("round trip to an idle queue of TBB tasks", wakes, [&] {
    for (int i = 0; i < wakes; ++i) {
      tasks.async([&] { done.release(); });
      done.acquire();
    }
  });
  arena.execute([&] { group.wait(); });
}

}  // namespace

int main() {
  const int threads = static_cast<int>(std::max(2U, std::thread::hardware_concurrency()));
  // One more than the workers: TBB counts the thread that waits.
  const tbb::global_control control(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(threads) + 1);
  std::printf("%d threads\n", threads);
  measureHops(threads, 1);
  measureHops(threads, 4);
  measureTurns();
  measureWakes(threads);
}
