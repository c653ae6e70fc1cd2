#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>

namespace tarn {
namespace detail {

class SemaphoreCore {
 public:
  explicit SemaphoreCore(std::int64_t value) : value_(value) {}

  void signal() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    // While threads wait the value stays at zero or below: a signal that would lift it goes to the
    // first of them.
    if (value_ < 0 || waiters_->empty()) {
      ++value_;
    } else {
      waiters_->callFirst();
    }
  }

  bool wait(RealTime deadline) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (value_ > 0) {
      --value_;
      return true;
    }
    return waiters_->wait(mutex_, deadline);
  }

 private:
  Mutex mutex_;
  std::int64_t value_ TARN_GUARDED_BY(mutex_);
  PerProcess<WaitList> waiters_ TARN_GUARDED_BY(mutex_);
};

}  // namespace detail

DispatchSemaphore::DispatchSemaphore(std::int64_t value)
    : core_(std::make_shared<detail::SemaphoreCore>(value)) {}

void DispatchSemaphore::signal() const { core_->signal(); }

void DispatchSemaphore::wait() const { core_->wait(detail::RealTime::max()); }

bool DispatchSemaphore::wait(TimeInterval limit) const {
  return core_->wait(detail::realTimeAfter(limit));
}

bool DispatchSemaphore::wait(DispatchTime deadline) const {
  return wait(deadline - DispatchTime::now());
}

}  // namespace tarn
