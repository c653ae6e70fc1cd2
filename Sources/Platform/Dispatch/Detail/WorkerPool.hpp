#pragma once

#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Detail/RingBuffer.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/QualityOfService.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tarn::detail {

/// What the pool runs: a queue's turn. Each submission leads to one run().
class Runnable {
 public:
  explicit Runnable(QualityOfService qualityOfService) noexcept;
  Runnable(const Runnable&) = delete;
  Runnable& operator=(const Runnable&) = delete;

  virtual void run() noexcept = 0;

  std::size_t level() const noexcept { return level_; }

 protected:
  // Not deleted through here: submitted runnables keep themselves alive.
  ~Runnable() = default;

 private:
  std::size_t level_;
};

/// The threads that all queues share.
///
/// A worker keeps the first runnable that it submits for itself, as its next one, so that work
/// which hops from queue to queue wakes nobody. That one moves to the shared list when the worker
/// submits another or blocks, or when the timekeeper finds it waiting for longer than a tick. As
/// many workers are active as there were processors for the process when the pool was made; one
/// that blocks in this library is made up for, and so is one that blocks elsewhere while nothing
/// moves for some ticks.
class WorkerPool {
 public:
  /// Never destroyed: threads may be at work while the process exits. A child of fork() has another
  /// one.
  static WorkerPool& shared() {
    WorkerPool* const pool = instance_.load(std::memory_order_acquire);
    return pool != nullptr ? *pool : makeShared();
  }

  void submit(Runnable& runnable);

  /// As submit(), behind all others of its level.
  void submitShared(Runnable& runnable) TARN_EXCLUDES(mutex_);

  /// Whether the calling worker has others to go on with.
  bool othersWait() const noexcept;

  /// Moves on what waits for too long; false when there is nothing to watch. Called by the
  /// timekeeper on each tick.
  bool tick() TARN_EXCLUDES(mutex_);

  /// Whether anything waits that tick() might have to move on.
  bool needsTick() TARN_EXCLUDES(mutex_);

 private:
  friend class BlockingScope;

  struct Worker {
    std::atomic<Runnable*> next = nullptr;
    std::atomic<std::uint64_t> turns = 0;  // written by the worker only
    std::uint64_t turnsAtLastTick = 0;     // the timekeeper's
    int turnsOnNext = 0;                   // since the shared list was looked at; the worker's own
    Parker parker;
  };

  static constexpr std::size_t levels = 5;
  static constexpr std::size_t maximumThreads = 64;

  WorkerPool();

  static WorkerPool& makeShared();
  static void beginInChild() noexcept;
  static void workerMain(void* pool) noexcept;
  Runnable* take(Worker& worker);
  Runnable* takeShared(Worker& worker) TARN_EXCLUDES(mutex_);
  Runnable* popReady() TARN_REQUIRES(mutex_);
  void pushReady(Runnable& runnable) TARN_REQUIRES(mutex_);
  bool idle(Worker& worker) TARN_REQUIRES(mutex_);
  void leave(Worker& worker) TARN_REQUIRES(mutex_);

  /// The thread that something newly ready needs: an idle worker, a new one, or none as enough are
  /// active.
  struct Help {
    Worker* worker = nullptr;
    bool start = false;
  };
  Help findHelp() TARN_REQUIRES(mutex_);
  bool isExhausted() const TARN_REQUIRES(mutex_);
  void call(Help help) TARN_EXCLUDES(mutex_);
  bool stalled() TARN_REQUIRES(mutex_);

  void beginBlocking(Worker& worker) TARN_EXCLUDES(mutex_);
  void endBlocking() TARN_EXCLUDES(mutex_);

  std::size_t active() const TARN_REQUIRES(mutex_) { return threads_ - idle_.size() - blocked_; }

  static constinit std::atomic<WorkerPool*> instance_;
  static thread_local constinit Worker* current_;

  const std::size_t normalActive_;
  Mutex mutex_;
  std::array<RingBuffer<Runnable*>, levels> ready_ TARN_GUARDED_BY(mutex_);
  std::atomic<std::size_t> readyCount_ = 0;  // written with the mutex held
  std::size_t taken_ TARN_GUARDED_BY(mutex_) = 0;
  std::vector<std::unique_ptr<Worker>> workers_ TARN_GUARDED_BY(mutex_);
  std::vector<Worker*> idle_ TARN_GUARDED_BY(mutex_);  // the last to fall idle is woken first
  std::size_t threads_ TARN_GUARDED_BY(mutex_) = 0;
  std::size_t blocked_ TARN_GUARDED_BY(mutex_) = 0;
  std::size_t extraActive_ TARN_GUARDED_BY(mutex_) = 0;
  std::size_t takenAtLastTick_ TARN_GUARDED_BY(mutex_) = 0;
  int ticksWithoutProgress_ TARN_GUARDED_BY(mutex_) = 0;
  bool exhaustionReported_ TARN_GUARDED_BY(mutex_) = false;
};

/// Tells the pool that the calling thread, if it is a worker, waits for others.
class BlockingScope {
 public:
  BlockingScope();
  ~BlockingScope();
  BlockingScope(const BlockingScope&) = delete;
  BlockingScope& operator=(const BlockingScope&) = delete;

 private:
  bool worker_;
};

}  // namespace tarn::detail
