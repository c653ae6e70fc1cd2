#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Sending/ProgressRelay.hpp>

namespace tarn::detail {

void ProgressRelay::report(RequestProgress progress) {
  {
    const MutexLock lock(mutex_);
    if (finished_) return;
    latest_ = progress;
    if (queued_ || running_) return;
    queued_ = true;
  }
  enqueue();
}

void ProgressRelay::finish(Work completion) {
  {
    const MutexLock lock(mutex_);
    finished_ = true;
    completion_ = std::move(completion);
    if (running_) return;
    running_ = true;
  }
  conclude();
}

void ProgressRelay::enqueue() {
  async(queue_, [self = shared_from_this()] { self->run(); });
}

void ProgressRelay::run() {
  std::optional<RequestProgress> progress;
  {
    const MutexLock lock(mutex_);
    queued_ = false;
    if (running_ || finished_) return;
    running_ = true;
    progress = std::exchange(latest_, std::nullopt);
  }
  if (progress) call(*progress);
  bool isFinished = false;
  {
    const MutexLock lock(mutex_);
    isFinished = finished_;
    running_ = isFinished;
    queued_ = !isFinished && latest_;
    if (!isFinished && !queued_) return;
  }
  if (isFinished) return conclude();
  enqueue();  // a new item, so that the queue's other work has its turn
}

void ProgressRelay::conclude() {
  std::optional<RequestProgress> last;
  Work completion;
  {
    const MutexLock lock(mutex_);
    last = std::exchange(latest_, std::nullopt);
    completion = std::move(completion_);
  }
  if (last) call(*last);
  handler_ = {};
  completion();
}

void ProgressRelay::call(RequestProgress progress) noexcept {
  try {
    handler_(progress);
  } catch (...) {
    reportThrowing("A progress handler", Error::current());
  }
}

}  // namespace tarn::detail
