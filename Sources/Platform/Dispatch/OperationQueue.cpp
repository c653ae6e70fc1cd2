#include <Platform/Dispatch/Detail/QueueCore.hpp>
#include <Platform/Dispatch/Detail/RingBuffer.hpp>
#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>

#include <utility>

namespace tarn {
namespace detail {

/// Each running operation is one item on a concurrent queue; as many are added there as the limit
/// allows.
class OperationQueueCore : public std::enable_shared_from_this<OperationQueueCore> {
 public:
  explicit OperationQueueCore(std::string name)
      : queue_(std::move(name), QualityOfService::unspecified,
               DispatchQueue::Attribute::concurrent) {}

  const std::string& name() const noexcept { return queue_.label(); }

  void add(Work operation) TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      state().waiting.push(std::move(operation));
    }
    startAllowed();
  }

  std::size_t limit() const TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return limit_;
  }

  void setLimit(std::size_t limit) TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      limit_ = limit;
    }
    startAllowed();
  }

  bool isSuspended() const TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return suspended_;
  }

  void setSuspended(bool suspended) TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      suspended_ = suspended;
    }
    startAllowed();
  }

  std::size_t count() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return state().count();
  }

  void waitUntilEmpty() TARN_EXCLUDES(mutex_) {
    if (queue_.isCurrent()) {
      fatalError("waitUntilAllOperationsAreFinished() inside an operation of '" + name() + "'");
    }
    const MutexLock lock(mutex_);
    State& state = this->state();
    if (state.count() != 0) state.waiters.wait(mutex_, RealTime::max());
  }

 private:
  /// Adds an item to the queue below for each operation that may start.
  void startAllowed() TARN_EXCLUDES(mutex_) {
    std::size_t starts = 0;
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      for (; mayStart(state) && state.posted < state.waiting.size(); ++state.posted) ++starts;
    }
    for (; starts > 0; --starts) queue_.async([self = shared_from_this()] { self->runNext(); });
  }

  /// Runs on the queue. The operation is taken only here, so that the order holds and a suspension
  /// in the meantime counts.
  void runNext() TARN_EXCLUDES(mutex_) {
    struct Finish {
      OperationQueueCore& core;
      ~Finish() { core.finished(); }
    };
    Work operation;
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      --state.posted;
      if (state.waiting.empty() || !mayStart(state)) return;
      operation = state.waiting.pop();
      ++state.running;
    }
    const Finish finish{
        *this};  // after what the operation throws has been reported, and what it holds let go
    Work current = std::move(operation);
    runReported(current, name());
  }

  void finished() TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      --state.running;
      if (state.count() == 0) state.waiters.callAll();
    }
    startAllowed();
  }

  struct State {
    std::size_t count() const noexcept { return waiting.size() + running; }

    RingBuffer<Work> waiting;
    std::size_t posted = 0;  // items on the queue that have not started
    std::size_t running = 0;
    WaitList waiters;
  };

  State& state() TARN_REQUIRES(mutex_) {
    if (state_.renew() && queue_.wasForkedInside()) state_.present().running = 1;
    return state_.present();
  }

  bool mayStart(const State& state) const TARN_REQUIRES(mutex_) {
    return !suspended_ && limit_ > state.running && limit_ - state.running > state.posted;
  }

  const DispatchQueue queue_;
  mutable Mutex mutex_;
  PerProcess<State> state_ TARN_GUARDED_BY(mutex_);
  std::size_t limit_ TARN_GUARDED_BY(mutex_) = OperationQueue::noLimit;
  bool suspended_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace detail

OperationQueue::OperationQueue(std::string name)
    : core_(std::make_shared<detail::OperationQueueCore>(std::move(name))) {}

OperationQueue::~OperationQueue() = default;

const std::string& OperationQueue::name() const noexcept { return core_->name(); }

void OperationQueue::addOperation(Work operation) { core_->add(std::move(operation)); }

std::size_t OperationQueue::maxConcurrentOperationCount() const { return core_->limit(); }

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) { core_->setLimit(count); }

bool OperationQueue::isSuspended() const { return core_->isSuspended(); }

void OperationQueue::setSuspended(bool suspended) { core_->setSuspended(suspended); }

std::size_t OperationQueue::operationCount() const { return core_->count(); }

void OperationQueue::waitUntilAllOperationsAreFinished() { core_->waitUntilEmpty(); }

}  // namespace tarn
