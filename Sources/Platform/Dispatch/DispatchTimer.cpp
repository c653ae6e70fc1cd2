#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/DispatchTimer.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/FatalError.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace tarn {
namespace detail {

class TimerCore : public std::enable_shared_from_this<TimerCore> {
 public:
  using Handler = std::shared_ptr<const std::function<void()>>;

  explicit TimerCore(const DispatchQueue& queue) : queue_(queue) {}

  void setEventHandler(Handler handler) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (!cancelled_) eventHandler_.swap(handler);
  }

  void setCancelHandler(Handler handler) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (!cancelled_) cancelHandler_.swap(handler);
  }

  void schedule(DispatchTime deadline, std::optional<TimeInterval> repeating)
      TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    disarm();
    next_ = deadline;
    interval_ = repeating;
    missed_ = false;
    arm();
  }

  void resume() TARN_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    if (suspensions_ == 0) {
      lock.unlock();
      fatalError("DispatchTimer::resume() without a matching suspend()");
    }
    if (--suspensions_ != 0) return;
    if (std::exchange(missed_, false)) postFire();
    arm();
  }

  void suspend() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    ++suspensions_;
    disarm();
  }

  void cancel() TARN_EXCLUDES(mutex_) {
    Handler event;  // released without the lock
    Handler cancel;
    {
      const MutexLock lock(mutex_);
      if (std::exchange(cancelled_, true)) return;
      disarm();
      event.swap(eventHandler_);
      cancel.swap(cancelHandler_);
    }
    if (cancel != nullptr && *cancel) queue_.async([cancel] { (*cancel)(); });
  }

  bool isCancelled() const TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return cancelled_;
  }

 private:
  /// Has the timekeeper call for the next fire, or fires at once what is overdue.
  void arm() TARN_REQUIRES(mutex_) {
    if (cancelled_ || suspensions_ != 0) return;
    const DispatchTime now = DispatchTime::now();
    if (next_ <= now) {
      postFire();
      advancePast(now);
    }
    if (next_ == DispatchTime::distantFuture()) return;
    ++armings_;
    *armed_ = Timekeeper::shared().schedule(
        next_, [self = shared_from_this(), arming = armings_] { self->expired(arming); });
  }

  void disarm() TARN_REQUIRES(mutex_) {
    ++armings_;
    if (*armed_) Timekeeper::shared().cancel(**armed_);
    armed_->reset();
  }

  /// Called by the timekeeper, or by who advances a manual clock.
  void expired(std::uint64_t arming) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    // Disarmed after the timekeeper had taken it up.
    if (arming != armings_) return;
    armed_->reset();
    arm();
  }

  /// Moves on to the first point of the schedule after `now`, so that delays do not add up.
  void advancePast(DispatchTime now) TARN_REQUIRES(mutex_) {
    if (!interval_) {
      next_ = DispatchTime::distantFuture();
      return;
    }
    constexpr TimeInterval shortest = std::chrono::milliseconds(1);
    const DispatchTime second = next_ + std::max(*interval_, shortest);
    if (second > now) {
      next_ = second;
      return;
    }
    const std::int64_t interval = second.nanoseconds() - next_.nanoseconds();
    const std::int64_t missed = (now.nanoseconds() - next_.nanoseconds()) / interval;
    next_ = DispatchTime(next_.nanoseconds() + (missed + 1) * interval);
  }

  void postFire() TARN_REQUIRES(mutex_) {
    if (std::exchange(*posted_, true)) return;
    queue_.async([self = shared_from_this()] { self->fire(); });
  }

  /// Runs on the queue.
  void fire() TARN_EXCLUDES(mutex_) {
    Handler handler;
    {
      const MutexLock lock(mutex_);
      *posted_ = false;
      if (suspensions_ != 0) {
        missed_ = true;
        return;
      }
      handler = eventHandler_;  // none once cancelled
    }
    if (handler != nullptr && *handler) (*handler)();
  }

  const DispatchQueue queue_;
  mutable Mutex mutex_;
  Handler eventHandler_ TARN_GUARDED_BY(mutex_);
  Handler cancelHandler_ TARN_GUARDED_BY(mutex_);
  DispatchTime next_ TARN_GUARDED_BY(mutex_) = DispatchTime::distantFuture();
  std::optional<TimeInterval> interval_ TARN_GUARDED_BY(mutex_);
  PerProcess<std::optional<Timekeeper::Key>> armed_ TARN_GUARDED_BY(mutex_);
  std::uint64_t armings_ TARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t suspensions_ TARN_GUARDED_BY(mutex_) = 1;
  PerProcess<bool> posted_ TARN_GUARDED_BY(mutex_);  // a fire waits on the queue
  bool missed_ TARN_GUARDED_BY(mutex_) = false;      // it came up while suspended
  bool cancelled_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace detail

namespace {

detail::TimerCore::Handler share(std::function<void()> handler) {
  return std::make_shared<const std::function<void()>>(std::move(handler));
}

}  // namespace

DispatchTimer::DispatchTimer(const DispatchQueue& queue)
    : core_(std::make_shared<detail::TimerCore>(queue)) {}

DispatchTimer::~DispatchTimer() { core_->cancel(); }

void DispatchTimer::setEventHandler(std::function<void()> handler) {
  core_->setEventHandler(share(std::move(handler)));
}

void DispatchTimer::setCancelHandler(std::function<void()> handler) {
  core_->setCancelHandler(share(std::move(handler)));
}

void DispatchTimer::schedule(DispatchTime deadline, std::optional<TimeInterval> repeating) {
  core_->schedule(deadline, repeating);
}

void DispatchTimer::resume() { core_->resume(); }

void DispatchTimer::suspend() { core_->suspend(); }

void DispatchTimer::cancel() { core_->cancel(); }

bool DispatchTimer::isCancelled() const { return core_->isCancelled(); }

}  // namespace tarn
