#include <Platform/Dispatch/Detail/QueueCore.hpp>
#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>

#include <utility>

namespace tarn {
namespace detail {

/// A queue with a limit: each operation that may start is a submission to the pool.
class OperationQueueCore final : public QueueCore, private Runnable {
 public:
  explicit OperationQueueCore(std::string name)
      : QueueCore(std::move(name), QualityOfService::unspecified),
        Runnable(QualityOfService::unspecified) {}

  void async(Work operation) override TARN_EXCLUDES(mutex_) {
    std::size_t starts = 0;
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      state.waiting.push(std::move(operation));
      starts = takeStarts(state);
    }
    submit(starts);
  }
  void beginTurn() override {}
  void endTurn() override {}

  std::size_t limit() const TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return limit_;
  }

  void setLimit(std::size_t limit) TARN_EXCLUDES(mutex_) {
    std::size_t starts = 0;
    {
      const MutexLock lock(mutex_);
      limit_ = limit;
      starts = takeStarts(state());
    }
    submit(starts);
  }

  bool isSuspended() const TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return suspended_;
  }

  void setSuspended(bool suspended) TARN_EXCLUDES(mutex_) {
    std::size_t starts = 0;
    {
      const MutexLock lock(mutex_);
      suspended_ = suspended;
      starts = takeStarts(state());
    }
    submit(starts);
  }

  std::size_t count() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return state().count();
  }

  void waitUntilEmpty() TARN_EXCLUDES(mutex_) {
    if (isCurrent()) {
      fatalError("waitUntilAllOperationsAreFinished() inside an operation of '" + label() + "'");
    }
    const MutexLock lock(mutex_);
    State& state = this->state();
    if (state.count() != 0) state.waiters.wait(mutex_, RealTime::max());
  }

 private:
  struct State {
    std::size_t count() const noexcept { return waiting.size() + running; }

    RingBuffer<Work> waiting;
    std::size_t submitted = 0;  // to the pool, and not started
    std::size_t running = 0;
    WaitList waiters;
    std::shared_ptr<QueueCore> self;  // while anything is submitted
  };

  State& state() TARN_REQUIRES(mutex_) {
    if (state_.renew() && wasForkedInside()) state_.present().running = 1;
    return state_.present();
  }

  bool mayStart(const State& state) const TARN_REQUIRES(mutex_) {
    return !suspended_ && limit_ > state.running && limit_ - state.running > state.submitted;
  }

  /// How many submissions have to follow, for the operations that may start.
  std::size_t takeStarts(State& state) TARN_REQUIRES(mutex_) {
    std::size_t starts = 0;
    for (; mayStart(state) && state.submitted < state.waiting.size(); ++state.submitted) ++starts;
    if (starts > 0 && !state.self) state.self = shared_from_this();
    return starts;
  }

  void submit(std::size_t starts) {
    for (; starts > 0; --starts) WorkerPool::shared().submit(*this);
  }

  /// The operation is taken only here, so that the order holds and a suspension in the meantime
  /// counts.
  void run() noexcept override TARN_EXCLUDES(mutex_) {
    std::shared_ptr<QueueCore> self;  // released without the lock
    Work operation;
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      self = --state.submitted == 0 ? std::move(state.self) : state.self;
      if (state.waiting.empty() || !mayStart(state)) return;
      operation = state.waiting.pop();
      ++state.running;
    }
    runItem(operation);
    std::size_t starts = 0;
    {
      const MutexLock lock(mutex_);
      State& state = this->state();
      --state.running;
      if (state.count() == 0) state.waiters.callAll();
      starts = takeStarts(state);
    }
    submit(starts);
  }

  mutable Mutex mutex_;
  PerProcess<State> state_ TARN_GUARDED_BY(mutex_);
  std::size_t limit_ TARN_GUARDED_BY(mutex_) = OperationQueue::noLimit;
  bool suspended_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace detail

OperationQueue::OperationQueue(std::string name)
    : core_(std::make_shared<detail::OperationQueueCore>(std::move(name))) {}

OperationQueue::~OperationQueue() = default;

const std::string& OperationQueue::name() const noexcept { return core_->label(); }

void OperationQueue::addOperation(Work operation) { core_->async(std::move(operation)); }

std::size_t OperationQueue::maxConcurrentOperationCount() const { return core_->limit(); }

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) { core_->setLimit(count); }

bool OperationQueue::isSuspended() const { return core_->isSuspended(); }

void OperationQueue::setSuspended(bool suspended) { core_->setSuspended(suspended); }

std::size_t OperationQueue::operationCount() const { return core_->count(); }

void OperationQueue::waitUntilAllOperationsAreFinished() { core_->waitUntilEmpty(); }

}  // namespace tarn
