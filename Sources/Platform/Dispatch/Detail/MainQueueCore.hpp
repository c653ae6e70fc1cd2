#pragma once

#include <Platform/Dispatch/Detail/QueueCore.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <thread>

namespace tarn::detail {

/// The main queue: its items wait for the thread that drains it.
class MainQueueCore final : public QueueCore {
 public:
  MainQueueCore();

  /// Never destroyed: threads may be at work while the process exits.
  static const std::shared_ptr<MainQueueCore>& shared();

  void async(Work work) override TARN_EXCLUDES(mutex_);
  void beginTurn() override {}
  void endTurn() override {}
  bool isMain() const noexcept override { return true; }

  /// Runs `work` on the draining thread and waits; what it throws reaches the caller.
  void runThere(Work work) TARN_EXCLUDES(mutex_);

  /// True when ended by stop(), false at the deadline.
  bool run(RealTime deadline) TARN_EXCLUDES(mutex_);
  void stop() TARN_EXCLUDES(mutex_);
  std::size_t drain() TARN_EXCLUDES(mutex_);
  int fileDescriptor() TARN_EXCLUDES(mutex_);

 private:
  void beginDraining() TARN_EXCLUDES(mutex_);
  void endDraining() TARN_EXCLUDES(mutex_);
  Work pop() TARN_REQUIRES(mutex_);
  void showReadable(bool readable) TARN_REQUIRES(mutex_);
  static void beginInChild() noexcept;

  PerProcess<Parker> parker_;  // of the thread in run()
  Mutex mutex_;
  PerProcess<RingBuffer<Work>> items_ TARN_GUARDED_BY(mutex_);
  bool draining_ TARN_GUARDED_BY(mutex_) = false;
  bool stopped_ TARN_GUARDED_BY(mutex_) = false;
  std::thread::id drainer_ TARN_GUARDED_BY(mutex_);  // the last one
  int eventFd_ TARN_GUARDED_BY(mutex_) = -1;         // made when first asked for
};

}  // namespace tarn::detail
