#include <Platform/Dispatch/Detail/MainQueueCore.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Types/FatalError.hpp>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace detail {

MainQueueCore::MainQueueCore() : QueueCore("tarn.main", QualityOfService::userInteractive) {
  callInChild(&beginInChild);
}

const std::shared_ptr<MainQueueCore>& MainQueueCore::shared() {
  const NoForkScope scope;  // not while it is being made
  static const auto* const core =
      new std::shared_ptr<MainQueueCore>(std::make_shared<MainQueueCore>());
  return *core;
}

void MainQueueCore::beginInChild() noexcept {
  MainQueueCore& core = *shared();
  // The one thread there is has nothing parked here.
  core.parker_.renew();
  const MutexLock lock(core.mutex_);
  if (core.draining_ && !core.isCurrent()) {
    core.draining_ = false;
    core.stopped_ = false;
  }
  if (core.drainer_ != std::this_thread::get_id()) core.drainer_ = std::thread::id();
  if (core.eventFd_ < 0) return;
  // Nothing waits any more. The counter is the parent's too, so one of our own takes the number.
  const int fresh = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fresh < 0 || dup3(fresh, core.eventFd_, O_CLOEXEC) < 0) {
    close(core.eventFd_);
    core.eventFd_ = -1;
  }
  if (fresh >= 0) close(fresh);
}

void MainQueueCore::async(Work work) {
  {
    const MutexLock lock(mutex_);
    items_->push(std::move(work));
    if (items_->size() > 1) return;
    showReadable(true);
  }
  parker_->unpark();
}

void MainQueueCore::runThere(Work work) {
  bool isDrainer = false;
  {
    const MutexLock lock(mutex_);
    isDrainer = drainer_ == std::this_thread::get_id();
  }
  if (isDrainer) fatalError("sync on the main queue from the thread that drains it");
  Parker parker;
  std::exception_ptr error;
  async([&] {
    try {
      work();
    } catch (...) {
      error = std::current_exception();
    }
    parker.unpark();
  });
  {
    const BlockingScope blocking;
    parker.park();
  }
  if (error) std::rethrow_exception(std::move(error));
}

void MainQueueCore::beginDraining() {
  bool wasDraining = false;
  {
    const MutexLock lock(mutex_);
    wasDraining = std::exchange(draining_, true);
    if (!wasDraining) drainer_ = std::this_thread::get_id();
  }
  if (wasDraining) fatalError("The main queue is being drained already");
}

void MainQueueCore::endDraining() {
  const MutexLock lock(mutex_);
  draining_ = false;
}

bool MainQueueCore::run(RealTime deadline) {
  beginDraining();
  std::optional<bool> stopped;
  while (!stopped) {
    Work work;
    {
      const MutexLock lock(mutex_);
      if (std::exchange(stopped_, false)) {
        stopped = true;
      } else if (!items_->empty()) {
        work = pop();
      }
    }
    if (work) {
      runItem(work);
      if (deadline != RealTime::max() && std::chrono::steady_clock::now() >= deadline) {
        stopped = false;
      }
    } else if (!stopped && !parker_->parkUntil(deadline)) {
      stopped = false;
    }
  }
  endDraining();
  return *stopped;
}

void MainQueueCore::stop() {
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
  }
  parker_->unpark();
}

std::size_t MainQueueCore::drain() {
  if (isCurrent()) return 0;
  beginDraining();
  std::size_t waiting = 0;
  {
    const MutexLock lock(mutex_);
    waiting = items_->size();
  }
  std::size_t count = 0;
  for (; count < waiting; ++count) {
    Work work;
    {
      const MutexLock lock(mutex_);
      if (items_->empty()) break;  // the item before forked, and those that waited are the parent's
      work = pop();
    }
    runItem(work);
  }
  endDraining();
  return count;
}

int MainQueueCore::fileDescriptor() {
  const MutexLock lock(mutex_);
  if (eventFd_ < 0) {
    eventFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (eventFd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    if (!items_->empty()) showReadable(true);
  }
  return eventFd_;
}

Work MainQueueCore::pop() {
  Work work = items_->pop();
  if (items_->empty()) showReadable(false);
  return work;
}

void MainQueueCore::showReadable(bool readable) {
  if (eventFd_ < 0) return;
  std::uint64_t count = 1;
  // Neither can fail: the counter is 0 while no item waits and 1 otherwise.
  [[maybe_unused]] const ssize_t size =
      readable ? write(eventFd_, &count, sizeof count) : read(eventFd_, &count, sizeof count);
}

}  // namespace detail

void MainQueue::run() { detail::MainQueueCore::shared()->run(detail::RealTime::max()); }

bool MainQueue::run(TimeInterval limit) {
  return detail::MainQueueCore::shared()->run(detail::realTimeAfter(limit));
}

void MainQueue::stop() { detail::MainQueueCore::shared()->stop(); }

std::size_t MainQueue::drain() { return detail::MainQueueCore::shared()->drain(); }

int MainQueue::fileDescriptor() { return detail::MainQueueCore::shared()->fileDescriptor(); }

}  // namespace tarn
