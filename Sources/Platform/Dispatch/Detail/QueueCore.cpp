#include <Platform/Dispatch/Detail/QueueCore.hpp>
#include <Platform/Types/FatalError.hpp>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

namespace tarn::detail {
namespace {

// How long a queue keeps a worker to itself while others wait.
constexpr int itemsPerTurn = 8;

// How long a worker waits for its turn before it is made up for. Turns are mostly short: made up
// for at once, many syncs on one queue would soon have all threads there may be waiting for it.
// What the worker was to run next waits as long.
constexpr std::chrono::milliseconds briefWait{1};

// In a child of fork(): what the forking thread was inside of. Never destroyed.
std::vector<const QueueCore*>& forkedInside = *new std::vector<const QueueCore*>;

[[maybe_unused]] const bool prepared = [] {
  callInChild([]() noexcept {
    forkedInside.clear();
    for (const QueueFrame* frame = currentFrame; frame != nullptr; frame = frame->outer) {
      forkedInside.push_back(frame->queue);
    }
  });
  return true;
}();

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

bool QueueCore::wasForkedInside() const noexcept {
  return std::find(forkedInside.begin(), forkedInside.end(), this) != forkedInside.end();
}

void QueueCore::runItem(Work& work) noexcept {
  const QueueFrame frame{this, currentFrame};
  currentFrame = &frame;
  runReported(work, label_);
  work = Work();  // what it owns goes while the queue is still its own
  currentFrame = frame.outer;
}

SerialQueueCore::SerialQueueCore(std::string label, QualityOfService qualityOfService)
    : QueueCore(std::move(label), qualityOfService), Runnable(qualityOfService) {}

SerialQueueCore::State& SerialQueueCore::state() noexcept {
  if (state_.renew()) turn_ = inThisProcess(wasForkedInside() ? taken : free);
  return state_.present();
}

bool SerialQueueCore::takeTurnOrAwait() noexcept {
  return turn_.exchange(inThisProcess(awaited), std::memory_order_acq_rel) == inThisProcess(free);
}

bool SerialQueueCore::giveBackUnlessAwaited() noexcept {
  std::uint32_t unawaited = inThisProcess(taken);
  return turn_.compare_exchange_strong(unawaited, inThisProcess(free), std::memory_order_release,
                                       std::memory_order_relaxed);
}

SerialQueueCore::Entry SerialQueueCore::pop(State& state) {
  Entry entry = state.entries.pop();
  if (state.entries.empty()) turn_.store(inThisProcess(taken), std::memory_order_relaxed);
  return entry;
}

void SerialQueueCore::async(Work work) {
  {
    const MutexLock lock(mutex_);
    State& state = this->state();
    state.entries.push({std::move(work), nullptr});
    if (!takeTurnOrAwait()) return;
    state.self = shared_from_this();
  }
  WorkerPool::shared().submit(*this);
}

void SerialQueueCore::beginTurn() {
  if (isCurrent()) {
    fatalError("sync on the serial queue '" + label() + "', on which the calling thread runs");
  }
  std::uint32_t noOnes = inThisProcess(free);
  if (turn_.compare_exchange_strong(noOnes, inThisProcess(taken), std::memory_order_acquire,
                                    std::memory_order_relaxed)) {
    return;
  }
  Parker parker;
  {
    const MutexLock lock(mutex_);
    State& state = this->state();
    if (takeTurnOrAwait()) return;
    state.entries.push({Work(), &parker});
  }
  if (parker.spin()) return;
  if (parker.parkUntil(std::chrono::steady_clock::now() + briefWait)) return;
  const BlockingScope blocking;
  parker.park();
}

void SerialQueueCore::endTurn() {
  if (giveBackUnlessAwaited()) return;
  Parker* waiter = nullptr;
  {
    const MutexLock lock(mutex_);
    State& state = this->state();
    if (state.entries.empty()) {
      turn_.store(inThisProcess(free), std::memory_order_release);
      return;
    }
    if (state.entries.front().waiter != nullptr) {
      waiter = pop(state).waiter;
    } else {
      state.self = shared_from_this();
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
      State& state = this->state();
      if (count == 0) self = std::move(state.self);
      if (state.entries.empty()) {
        turn_.store(inThisProcess(free), std::memory_order_release);
        return;
      }
      if (count >= itemsPerTurn && WorkerPool::shared().othersWait()) {
        state.self = std::move(self);
        break;
      }
      entry = pop(state);
    }
    // The turn is the waiting thread's now.
    if (entry.waiter != nullptr) return entry.waiter->unpark();
    runItem(entry.work);
    if (giveBackUnlessAwaited()) return;
  }
  WorkerPool::shared().submitShared(*this);
}

ConcurrentQueueCore::ConcurrentQueueCore(std::string label, QualityOfService qualityOfService)
    : QueueCore(std::move(label), qualityOfService), Runnable(qualityOfService) {}

void ConcurrentQueueCore::async(Work work) {
  {
    const MutexLock lock(mutex_);
    State& state = *state_;
    state.items.push(std::move(work));
    if (state.items.size() == 1) state.self = shared_from_this();
  }
  WorkerPool::shared().submit(*this);
}

void ConcurrentQueueCore::run() noexcept {
  std::shared_ptr<QueueCore> self;  // released without the lock
  Work work;
  {
    const MutexLock lock(mutex_);
    State& state = *state_;
    work = state.items.pop();
    self = state.items.empty() ? std::move(state.self) : state.self;
  }
  runItem(work);
}

}  // namespace tarn::detail
