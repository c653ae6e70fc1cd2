#pragma once

#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Detail/RingBuffer.hpp>
#include <Platform/Dispatch/Detail/WorkerPool.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/UniqueFunction.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::detail {

/// Runs the work; what it throws is reported as an uncaught error of `where`.
void runReported(Work& work, std::string_view where) noexcept;

/// What the handles on one queue share.
class QueueCore : public std::enable_shared_from_this<QueueCore> {
 public:
  QueueCore(std::string label, QualityOfService qualityOfService)
      : label_(std::move(label)), qualityOfService_(qualityOfService) {}
  virtual ~QueueCore() = default;
  QueueCore(const QueueCore&) = delete;
  QueueCore& operator=(const QueueCore&) = delete;

  const std::string& label() const noexcept { return label_; }
  QualityOfService qualityOfService() const noexcept { return qualityOfService_; }

  virtual void async(Work work) = 0;

  /// Waits until the calling thread may run something on this queue; endTurn() gives the turn back.
  virtual void beginTurn() = 0;
  virtual void endTurn() = 0;

  virtual bool isMain() const noexcept { return false; }
  bool isCurrent() const noexcept;

  /// Whether the thread that made this process by fork() was inside the queue then. Asked as the
  /// state of the queue begins anew.
  bool wasForkedInside() const noexcept;

 protected:
  /// Runs one item inside a frame of this queue, and lets go of it; what it throws is reported.
  void runItem(Work& work) noexcept;

 private:
  const std::string label_;
  const QualityOfService qualityOfService_;
};

/// The queues that the calling thread is inside of.
extern thread_local constinit const QueueFrame* currentFrame;

/// One item at a time. The thread whose turn it is, a worker or one that called sync, passes it on
/// when done. A turn for which nobody else waits is taken and given back without the lock.
class SerialQueueCore final : public QueueCore, private Runnable {
 public:
  SerialQueueCore(std::string label, QualityOfService qualityOfService);

  void async(Work work) override TARN_EXCLUDES(mutex_);
  void beginTurn() override TARN_EXCLUDES(mutex_);
  void endTurn() override TARN_EXCLUDES(mutex_);

 private:
  /// An item, or a thread that waits for its turn.
  struct Entry {
    Work work;
    Parker* waiter = nullptr;
  };

  struct State {
    RingBuffer<Entry> entries;
    std::shared_ptr<QueueCore> self;  // while submitted to the pool
  };

  /// Whether the turn is somebody's, and whether there are entries that it has to be passed on to.
  enum Turn : std::uint32_t { free, taken, awaited };

  void run() noexcept override TARN_EXCLUDES(mutex_);
  State& state() noexcept TARN_REQUIRES(mutex_);
  bool takeTurnOrAwait() noexcept TARN_REQUIRES(mutex_);
  bool giveBackUnlessAwaited() noexcept;
  Entry pop(State& state) TARN_REQUIRES(mutex_);

  /// The turn as this process tells it: what a fork has left of the parent's equals none.
  static std::uint32_t inThisProcess(Turn turn) noexcept { return forkCount() * 4 + turn; }

  // Written with the mutex held, but for the steps between `free` and `taken`.
  std::atomic<std::uint32_t> turn_ = inThisProcess(free);
  Mutex mutex_;
  PerProcess<State> state_ TARN_GUARDED_BY(mutex_);
};

/// Items start in order and overlap; each one is a submission to the pool.
class ConcurrentQueueCore final : public QueueCore, private Runnable {
 public:
  ConcurrentQueueCore(std::string label, QualityOfService qualityOfService);

  void async(Work work) override TARN_EXCLUDES(mutex_);
  void beginTurn() override {}
  void endTurn() override {}

 private:
  struct State {
    RingBuffer<Work> items;           // as many as there are submissions
    std::shared_ptr<QueueCore> self;  // while there are any
  };

  void run() noexcept override TARN_EXCLUDES(mutex_);

  Mutex mutex_;
  PerProcess<State> state_ TARN_GUARDED_BY(mutex_);
};

}  // namespace tarn::detail
