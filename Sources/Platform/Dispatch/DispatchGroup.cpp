#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Types/FatalError.hpp>

#include <cstddef>
#include <utility>
#include <vector>

namespace tarn {
namespace detail {

class GroupCore {
 public:
  void enter() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    ++count_;
  }

  void leave() TARN_EXCLUDES(mutex_) {
    std::vector<Notification> notifications;
    {
      MutexLock lock(mutex_);
      if (count_ == 0) {
        lock.unlock();
        fatalError("DispatchGroup::leave() without a matching enter()");
      }
      if (--count_ != 0) return;
      waiters_->callAll();
      notifications.swap(*notifications_);
    }
    for (Notification& notification : notifications) {
      notification.queue.async(std::move(notification.work));
    }
  }

  bool wait(RealTime deadline) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return count_ == 0 || waiters_->wait(mutex_, deadline);
  }

  void notify(const DispatchQueue& queue, Work work) TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      if (count_ != 0) {
        notifications_->push_back({queue, std::move(work)});
        return;
      }
    }
    queue.async(std::move(work));
  }

 private:
  struct Notification {
    DispatchQueue queue;
    Work work;
  };

  Mutex mutex_;
  std::size_t count_ TARN_GUARDED_BY(mutex_) = 0;
  PerProcess<WaitList> waiters_ TARN_GUARDED_BY(mutex_);
  PerProcess<std::vector<Notification>> notifications_ TARN_GUARDED_BY(mutex_);
};

}  // namespace detail

DispatchGroup::DispatchGroup() : core_(std::make_shared<detail::GroupCore>()) {}

void DispatchGroup::enter() const { core_->enter(); }

void DispatchGroup::leave() const { core_->leave(); }

void DispatchGroup::wait() const { core_->wait(detail::RealTime::max()); }

bool DispatchGroup::wait(TimeInterval limit) const {
  return core_->wait(detail::realTimeAfter(limit));
}

void DispatchGroup::notify(const DispatchQueue& queue, Work work) const {
  core_->notify(queue, std::move(work));
}

}  // namespace tarn
