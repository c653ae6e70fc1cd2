#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/TypeName.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Sending/Detail/TimerHandler.hpp>
#include <TarnService/Sending/HTTPPolling.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <atomic>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace tarn::detail {
namespace {

/// Notices, once, that nothing drains the main queue, on which timed polls are delivered. One
/// for all types that are polled at the same time.
class MainQueueWatch {
 public:
  /// Called after each poll.
  void check(const std::string& typeName) {
    if (!findsItUndrained()) return;
    logger().fault("Timed polls of " + typeName +
                   " are not delivered: nothing has drained the main queue for a minute. Call "
                   "MainQueue::run(), or MainQueue::drain() from an event loop.");
  }

 private:
  static constexpr TimeInterval patience = std::chrono::minutes(1);

  bool findsItUndrained() {
    const MutexLock lock(mutex_);
    if (isOver_) return false;
    if (!isDrained_) {
      begin();
      return false;
    }
    isOver_ = *isDrained_;
    if (isOver_ || DispatchTime::now() - begun_ < patience) return false;
    isOver_ = true;
    return true;
  }

  void begin() TARN_REQUIRES(mutex_) {
    begun_ = DispatchTime::now();
    isDrained_ = std::make_shared<std::atomic<bool>>(false);
    DispatchQueue::main().async([isDrained = isDrained_] { *isDrained = true; });
  }

  Mutex mutex_;
  DispatchTime begun_ TARN_GUARDED_BY(mutex_) = DispatchTime::distantFuture();
  std::shared_ptr<std::atomic<bool>> isDrained_ TARN_GUARDED_BY(mutex_);
  bool isOver_ TARN_GUARDED_BY(mutex_) = false;
};

/// What the registry holds of one polled type.
class HandlerRef {
 public:
  HandlerRef(const std::string& name, std::shared_ptr<TimerHandler> timer)
      : dispatchQueue_(queueLabel(name + ".HTTPPollingQueue")), timer_(std::move(timer)) {}

  TimerHandler& timer() const noexcept { return *timer_; }
  std::weak_ptr<TimerHandler> weakTimer() const noexcept { return timer_; }

  void add(const AnyPollingHandler& handler) {
    if (handler) dispatchQueue_.sync([&] { anyHandlers_.push_back(handler); });
  }
  std::vector<AnyPollingHandler> handlers() const {
    return dispatchQueue_.sync([&] { return anyHandlers_; });
  }

 private:
  const DispatchQueue dispatchQueue_;
  const std::shared_ptr<TimerHandler> timer_;
  std::vector<AnyPollingHandler> anyHandlers_;  // on the queue
};

/// Keyed by the type itself: the names of types within functions are not unique. Empty in a child
/// of fork(), which has none of the timers.
class Registry {
 public:
  /// Lives as long as the process: timers may be at work while it exits.
  static Registry& shared() {
    const NoForkScope scope;  // not while it is being made
    static auto& registry = *new Registry;
    return registry;
  }

  std::shared_ptr<HandlerRef> find(const std::type_info& type) const {
    const MutexLock lock(mutex_);
    const auto entry = entries_->find(type);
    return entry == entries_->end() ? nullptr : entry->second;
  }

  /// The entry of the type, made by `make`, no code of an application, where there is none.
  template <class Make>
  std::shared_ptr<HandlerRef> findOrMake(const std::type_info& type, Make make) {
    const MutexLock lock(mutex_);
    if (entries_->empty()) *watch_ = std::make_shared<MainQueueWatch>();
    auto& entry = (*entries_)[type];
    if (!entry) entry = make(*watch_);
    return entry;
  }

  std::shared_ptr<HandlerRef> take(const std::type_info& type) {
    const MutexLock lock(mutex_);
    const auto node = entries_->extract(type);
    return node ? node.mapped() : nullptr;
  }

 private:
  mutable Mutex mutex_;
  using Entries = std::unordered_map<std::type_index, std::shared_ptr<HandlerRef>>;
  mutable PerProcess<Entries> entries_ TARN_GUARDED_BY(mutex_);
  PerProcess<std::shared_ptr<MainQueueWatch>> watch_ TARN_GUARDED_BY(mutex_);
};

}  // namespace

bool addPollingHandler(const std::type_info& type, const AnyPollingHandler& handler) {
  const auto polled = Registry::shared().find(type);
  if (polled) polled->add(handler);
  return polled != nullptr;
}

void startPolling(const std::type_info& type, TimeInterval rate, std::function<bool()> tick,
                  const AnyPollingHandler& handler) {
  bool isNew = false;
  const auto polled = Registry::shared().findOrMake(type, [&](const auto& watch) {
    isNew = true;
    auto block = [watch, name = unqualifiedTypeName(type), tick = std::move(tick)] {
      if (tick()) watch->check(name);
    };
    auto entry = std::make_shared<HandlerRef>(qualifiedTypeName(type),
                                              TimerHandler::start(rate, std::move(block)));
    entry->add(handler);
    return entry;
  });
  if (!isNew) polled->add(handler);
}

void stopPolling(const std::type_info& type) {
  // Taken out first: of several that stop at once, one stops the timer, and none a later one.
  if (const auto polled = Registry::shared().take(type)) return polled->timer().stop();
  logger().fault("Not currently polling " + unqualifiedTypeName(type), {}, {},
                 SourceLocation::in("stopPolling()"));
}

bool isTimerRunning(const std::type_info& type) {
  const auto polled = Registry::shared().find(type);
  return polled && polled->timer().state() == TimerHandler::State::resumed;
}

void callPollingHandlers(const std::type_info& type,
                         const std::function<void(const void* handler)>& call) {
  const auto polled = Registry::shared().find(type);
  if (!polled) return;
  for (const auto& handler : polled->handlers()) {
    // The handler before may have stopped it, and so may another thread.
    if (Registry::shared().find(type) != polled) return;
    callLogged("A polling handler", [&] { call(handler.get()); });
  }
}

void logNotPolled(const std::type_info& type) {
  logger().fault("Polling handler should already be provided " + unqualifiedTypeName(type), {}, {},
                 SourceLocation::in("_addPollingHandler(_:)"));
}

PollingPause::PollingPause(const std::type_info& type) {
  const auto polled = Registry::shared().find(type);
  if (!polled) return;
  polled->timer().suspend();
  timer_ = polled->weakTimer();
}

void PollingPause::end() {
  if (const auto timer = std::exchange(timer_, {}).lock()) timer->resume();
}

}  // namespace tarn::detail
