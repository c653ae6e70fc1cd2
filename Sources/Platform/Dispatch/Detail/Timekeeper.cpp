#include <Platform/Dispatch/Detail/Thread.hpp>
#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/Detail/WorkerPool.hpp>
#include <Platform/Types/FatalError.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <sys/timerfd.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace tarn::detail {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds tickInterval{1};

static_assert(std::is_same_v<steady_clock::duration, std::chrono::nanoseconds>);

RealTime realTime(DispatchTime time) noexcept {
  return RealTime(std::chrono::nanoseconds(time.nanoseconds()));
}

}  // namespace

constinit std::atomic<Timekeeper*> Timekeeper::instance_ = nullptr;

Timekeeper& Timekeeper::makeShared() {
  static constinit Mutex making;
  const MutexLock lock(making);
  Timekeeper* timekeeper = instance_.load(std::memory_order_relaxed);
  if (timekeeper == nullptr) {
    timekeeper = new Timekeeper;
    callInChild(&beginInChild);
    instance_.store(timekeeper, std::memory_order_release);
  }
  return *timekeeper;
}

// The one of the parent has its thread, its timer and what it was to call. The hand of a clock that
// stands still is kept.
void Timekeeper::beginInChild() noexcept {
  Timekeeper& former = shared();
  if (former.timerFd_ >= 0) close(former.timerFd_);
  auto* const timekeeper = new Timekeeper;
  timekeeper->manualNow_.store(former.manualNow_.load());
  timekeeper->manual_.store(former.manual_.load());
  instance_.store(timekeeper, std::memory_order_release);
}

// When first needed, which in a child of fork() that only calls exec is never.
void Timekeeper::start() {
  bool hasThread = true;
  {
    const MutexLock lock(mutex_);
    if (started_.load()) return;
    timerFd_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    if (timerFd_ >= 0) hasThread = startThread("tarn.timer", &threadMain, this);
    started_.store(true);
  }
  if (timerFd_ < 0) fatalError("The system grants no timer to keep the time with");
  if (!hasThread) fatalError("The system grants no thread to keep the time on");
}

DispatchTime Timekeeper::now() const noexcept {
  if (manual_.load(std::memory_order_acquire)) return DispatchTime(manualNow_.load());
  return DispatchTime(steady_clock::now().time_since_epoch().count());
}

Timekeeper::Key Timekeeper::schedule(DispatchTime deadline, Work callback) {
  if (!started_.load()) start();
  const MutexLock lock(mutex_);
  const Key key{deadline, ++lastSequence_};
  scheduled_.emplace(key, std::move(callback));
  wakeBy(nextWakeUp());
  return key;
}

void Timekeeper::cancel(const Key& key) {
  Work callback;  // released without the lock
  const MutexLock lock(mutex_);
  const auto place = scheduled_.find(key);
  if (place == scheduled_.end()) return;
  callback = std::move(place->second);
  scheduled_.erase(place);
}

void Timekeeper::startWatching() {
  if (!started_.load()) start();
  const MutexLock lock(mutex_);
  if (watching_.exchange(true)) return;
  tick_ = steady_clock::now() + tickInterval;
  wakeBy(tick_);
}

// Where work comes and goes within one tick again and again, the one that is set stays and finds
// out by itself that there is nothing to watch: setting the timer costs more than all else that a
// hop takes.
void Timekeeper::relaxOrWait() {
  const RealTime now = steady_clock::now();
  if (now - relaxed_.exchange(now, std::memory_order_relaxed) >= tickInterval) stopWatching();
}

void Timekeeper::stopWatching() {
  const MutexLock lock(mutex_);
  // Off first and looked again then: who submits afterwards finds it off and starts it anew.
  watching_.store(false);
  if (WorkerPool::shared().needsTick()) {
    watching_.store(true);
    return;
  }
  tick_ = RealTime::max();
  setTimer(nextWakeUp());
}

void Timekeeper::threadMain(void* timekeeper) noexcept {
  static_cast<Timekeeper*>(timekeeper)->run();
}

void Timekeeper::run() noexcept {
  for (;;) {
    std::uint64_t expirations = 0;
    if (read(timerFd_, &expirations, sizeof expirations) < 0 && errno != EINTR) {
      fatalError("The system's timer fails");
    }
    std::vector<Work> due;
    bool ticks = false;
    {
      const MutexLock lock(mutex_);
      timerSetTo_ = RealTime::max();
      due = takeDue();
      const RealTime now = steady_clock::now();
      ticks = tick_ <= now;
      if (ticks) tick_ = now + tickInterval;
    }
    for (Work& callback : due) callback();
    if (ticks && !WorkerPool::shared().tick()) stopWatching();
    const MutexLock lock(mutex_);
    wakeBy(nextWakeUp());
  }
}

RealTime Timekeeper::nextWakeUp() const {
  if (scheduled_.empty()) return tick_;
  const DispatchTime deadline = scheduled_.begin()->first.deadline;
  if (!manual_.load()) return std::min(tick_, realTime(deadline));
  // A hand that stands still meets no deadline, but it may have been moved past one while that was
  // being scheduled.
  return deadline <= now() ? steady_clock::now() : tick_;
}

void Timekeeper::setTimer(RealTime time) {
  if (time == timerSetTo_) return;
  timerSetTo_ = time;
  itimerspec setting{};
  if (time != RealTime::max()) {
    // Zero would mean never.
    const auto nanoseconds = std::max<std::int64_t>(time.time_since_epoch().count(), 1);
    setting.it_value.tv_sec = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
  }
  timerfd_settime(timerFd_, TFD_TIMER_ABSTIME, &setting, nullptr);
}

void Timekeeper::wakeBy(RealTime time) {
  if (time < timerSetTo_) setTimer(time);
}

std::vector<Work> Timekeeper::takeDue() {
  std::vector<Work> due;
  const DispatchTime present = now();
  while (!scheduled_.empty() && scheduled_.begin()->first.deadline <= present) {
    due.push_back(std::move(scheduled_.begin()->second));
    scheduled_.erase(scheduled_.begin());
  }
  return due;
}

bool Timekeeper::beginManual() {
  const MutexLock lock(mutex_);
  if (manual_.load()) return false;
  manualNow_.store(now().nanoseconds());
  delays_.clear();
  manual_.store(true, std::memory_order_release);
  return true;
}

void Timekeeper::endManual() {
  if (!started_.load()) start();
  const MutexLock lock(mutex_);
  manual_.store(false);
  wakeBy(nextWakeUp());
}

void Timekeeper::advance(TimeInterval interval) {
  std::vector<Work> due;
  {
    const MutexLock lock(mutex_);
    const DispatchTime present(manualNow_.load());
    manualNow_.store(std::max(present, present + interval).nanoseconds());
    due = takeDue();
  }
  for (Work& callback : due) callback();
}

void Timekeeper::recordDelay(TimeInterval delay) {
  if (!manual_.load()) return;
  const MutexLock lock(mutex_);
  delays_.push_back(delay);
  delayWaiters_.callAll();
}

std::vector<TimeInterval> Timekeeper::recordedDelays() {
  const MutexLock lock(mutex_);
  return delays_;
}

bool Timekeeper::waitForRecordedDelays(std::size_t count, RealTime deadline) {
  const MutexLock lock(mutex_);
  while (delays_.size() < count) {
    if (!delayWaiters_.wait(mutex_, deadline)) return delays_.size() >= count;
  }
  return true;
}

}  // namespace tarn::detail
