#include <Platform/Types/FatalError.hpp>
#include <Tambour/FutureError.hpp>
#include <Tambour/FutureState.hpp>

namespace tarn::detail {

void FutureCore::publish(std::optional<Error> failure) {
  // Whoever is told may drop the last handle before this returns.
  const auto self = shared_from_this();
  std::optional<DispatchGroup> waiters;
  // What applications have left here goes without the lock.
  Work hook;
  ProgressHandlers progressHandlers;
  error_ = std::move(failure);
  {
    const MutexLock lock(mutex_);
    outcome_.store(error_ ? Outcome::failed : Outcome::completed, std::memory_order_release);
    *dispatching_ = true;
    waiters = std::exchange(waiters_, std::nullopt);
    hook = std::move(onCancel_);
    progressHandlers.swap(_progressHandlers);
  }
  if (waiters) waiters->leave();
  dispatchHandlers();
}

bool FutureCore::fail(Error error) {
  if (!claim()) return false;
  publish(std::move(error));
  return true;
}

void FutureCore::addHandler(std::optional<DispatchQueue> queue, Handler handler,
                            std::optional<Outcome> only) {
  SettledHandler added{std::move(queue), std::move(handler), only};
  {
    const MutexLock lock(mutex_);
    // One that comes while others are on their way to their queues goes behind them.
    if (outcome() == Outcome::pending || *dispatching_) {
      handlers_->push_back(std::move(added));
      return;
    }
  }
  dispatch(std::move(added));
}

void FutureCore::dispatchHandlers() {
  for (;;) {
    std::vector<SettledHandler> handlers;
    {
      const MutexLock lock(mutex_);
      handlers.swap(*handlers_);
      *dispatching_ = !handlers.empty();
    }
    if (handlers.empty()) return;
    for (auto& handler : handlers) dispatch(std::move(handler));
  }
}

void FutureCore::dispatch(SettledHandler handler) {
  if (handler.only && *handler.only != outcome()) return;
  async(handler.queue,
        [self = shared_from_this(), run = std::move(handler.handler)]() mutable { run(self); });
}

bool FutureCore::wait(std::optional<TimeInterval> limit) {
  std::optional<DispatchGroup> settled;
  {
    const MutexLock lock(mutex_);
    if (outcome() != Outcome::pending) return true;
    if (!waiters_) waiters_.emplace().enter();
    settled = waiters_;
  }
  if (limit) return settled->wait(*limit);
  settled->wait();
  return true;
}

void FutureCore::cancel() noexcept {
  Work hook;
  {
    const MutexLock lock(mutex_);
    if (outcome() != Outcome::pending || cancelled_) return;
    cancelled_ = true;
    hook = std::move(onCancel_);
  }
  if (hook) {
    runHook(std::move(hook));
  } else {
    fail(FutureError::cancelled());
  }
}

void FutureCore::onCancel(Work hook) {
  {
    const MutexLock lock(mutex_);
    if (outcome() != Outcome::pending) return;
    if (!cancelled_) {
      std::swap(onCancel_, hook);  // the former one goes without the lock
      return;
    }
  }
  runHook(std::move(hook));
}

void FutureCore::runHook(Work hook) noexcept {
  std::optional<Error> failure;
  try {
    hook();
  } catch (...) {
    failure = Error::current();
  }
  if (failure) fail(*failure);
}

Work FutureCore::canceller() {
  return [core = weak_from_this()] {
    if (const auto alive = core.lock()) alive->cancel();
  };
}

void FutureCore::addProgressHandler(std::type_index type, ProgressHandler handler) {
  auto added =
      std::make_shared<TypedProgressHandler>(TypedProgressHandler{type, std::move(handler)});
  const MutexLock lock(mutex_);
  if (outcome() == Outcome::pending) _progressHandlers.push_back(std::move(added));
}

void FutureCore::reportProgress(std::type_index type, const void* progress) {
  ProgressHandlers handlers;
  {
    const MutexLock lock(mutex_);
    handlers = _progressHandlers;
  }
  for (const auto& handler : handlers) {
    if (handler->type != type) continue;
    try {
      handler->handler(progress);
    } catch (...) {
      reportUncaughtError(Error::current(), "a progress handler");
    }
  }
}

}  // namespace tarn::detail
