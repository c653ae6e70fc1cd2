#pragma once

#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Detail/RingBuffer.hpp>
#include <Platform/Dispatch/Detail/WorkerPool.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/UniqueFunction.hpp>

#include <cstddef>
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
/// when done.
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
    bool busy = false;
    std::shared_ptr<QueueCore> self;  // while submitted to the pool
  };

  void run() noexcept override TARN_EXCLUDES(mutex_);
  State& state() noexcept TARN_REQUIRES(mutex_);

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
