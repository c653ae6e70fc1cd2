#include <Platform/Dispatch/Detail/QueueCore.hpp>
#include <Platform/Types/FatalError.hpp>

#include <utility>

namespace tarn::detail {
namespace {

// How long a queue keeps a worker to itself while others wait.
constexpr int itemsPerTurn = 8;

}  // namespace

thread_local constinit const QueueFrame* currentFrame = nullptr;

void runReported(Work& work, std::string_view where) noexcept {
  try {
    work();
  } catch (...) {
    reportUncaughtError(Error::current(), where);
  }
}

bool QueueCore::isCurrent() const noexcept {
  for (const QueueFrame* frame = currentFrame; frame != nullptr; frame = frame->outer) {
    if (frame->queue == this) return true;
  }
  return false;
}

void QueueCore::runItem(Work work) noexcept {
  const QueueFrame frame{this, currentFrame};
  currentFrame = &frame;
  runReported(work, label_);
  work = Work();  // what it owns goes while the queue is still its own
  currentFrame = frame.outer;
}

SerialQueueCore::SerialQueueCore(std::string label, QualityOfService qualityOfService)
    : QueueCore(std::move(label), qualityOfService), Runnable(qualityOfService) {}

void SerialQueueCore::async(Work work) {
  {
    const MutexLock lock(mutex_);
    entries_.push({std::move(work), nullptr});
    if (busy_) return;
    busy_ = true;
    self_ = shared_from_this();
  }
  WorkerPool::shared().submit(*this);
}

void SerialQueueCore::beginTurn() {
  if (isCurrent()) {
    fatalError("sync on the serial queue '" + label() + "', on which the calling thread runs");
  }
  Parker parker;
  {
    const MutexLock lock(mutex_);
    if (!busy_) {
      busy_ = true;
      return;
    }
    entries_.push({Work(), &parker});
  }
  if (parker.spin()) return;
  const BlockingScope blocking;
  parker.park();
}

void SerialQueueCore::endTurn() {
  Parker* waiter = nullptr;
  {
    const MutexLock lock(mutex_);
    if (entries_.empty()) {
      busy_ = false;
      return;
    }
    if (entries_.front().waiter != nullptr) {
      waiter = entries_.pop().waiter;
    } else {
      self_ = shared_from_this();
    }
  }
  if (waiter != nullptr) return waiter->unpark();
  WorkerPool::shared().submit(*this);
}

void SerialQueueCore::run() noexcept {
  std::shared_ptr<QueueCore> self;
  for (int count = 0;; ++count) {
    Entry entry;
    {
      const MutexLock lock(mutex_);
      if (count == 0) self = std::move(self_);
      if (entries_.empty()) {
        busy_ = false;
        return;
      }
      if (count >= itemsPerTurn && WorkerPool::shared().othersWait()) {
        self_ = std::move(self);
        break;
      }
      entry = entries_.pop();
    }
    // The turn is the waiting thread's now.
    if (entry.waiter != nullptr) return entry.waiter->unpark();
    runItem(std::move(entry.work));
  }
  WorkerPool::shared().submitShared(*this);
}

ConcurrentQueueCore::ConcurrentQueueCore(std::string label, QualityOfService qualityOfService)
    : QueueCore(std::move(label), qualityOfService), Runnable(qualityOfService) {}

void ConcurrentQueueCore::async(Work work) {
  {
    const MutexLock lock(mutex_);
    items_.push(std::move(work));
    if (++submissions_ == 1) self_ = shared_from_this();
  }
  WorkerPool::shared().submit(*this);
}

void ConcurrentQueueCore::run() noexcept {
  Work work;
  {
    const MutexLock lock(mutex_);
    work = items_.pop();
  }
  runItem(std::move(work));
  std::shared_ptr<QueueCore> self;  // released without the lock
  const MutexLock lock(mutex_);
  if (--submissions_ == 0) self = std::move(self_);
}

}  // namespace tarn::detail
