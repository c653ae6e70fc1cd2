#pragma once

#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/Error.hpp>
#include <Tambour/OptionalQueue.hpp>

#include <atomic>
#include <memory>
#include <optional>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <variant>
#include <vector>

namespace tarn::detail {

/// What the handles on one future share, but for the value: whether it is settled, who is to be
/// told, and how its producer is stopped. No code of an application runs while its lock is held.
class FutureCore : public std::enable_shared_from_this<FutureCore> {
 public:
  enum class Outcome : unsigned char { pending, completed, failed };
  using Handler = UniqueFunction<void(const std::shared_ptr<FutureCore>&)>;
  using ProgressHandler = UniqueFunction<void(const void*)>;

  FutureCore() = default;
  virtual ~FutureCore() = default;
  FutureCore(const FutureCore&) = delete;
  FutureCore& operator=(const FutureCore&) = delete;

  Outcome outcome() const noexcept { return outcome_.load(std::memory_order_acquire); }
  /// The error of a failed future. To be asked once it is settled.
  const std::optional<Error>& error() const noexcept { return error_; }

  /// Gives the caller the one right to settle the future, which it does with publish().
  bool claim() noexcept { return !claimed_.exchange(true); }
  /// Settles the claimed future, completed where there is no failure.
  void publish(std::optional<Error> failure = std::nullopt) TARN_EXCLUDES(mutex_);
  bool fail(Error error);

  /// Runs the handler once on the queue, asynchronously, when the future has one of the outcomes;
  /// drops it when it has the other. Handlers of one queue run in the order of their coming.
  void addHandler(std::optional<DispatchQueue> queue, Handler handler,
                  std::optional<Outcome> only = std::nullopt) TARN_EXCLUDES(mutex_);
  /// Blocks until the future is settled; false when the time ran out first.
  bool wait(std::optional<TimeInterval> limit) TARN_EXCLUDES(mutex_);

  void cancel() noexcept TARN_EXCLUDES(mutex_);
  void onCancel(Work hook) TARN_EXCLUDES(mutex_);
  /// What cancels this future, without keeping it alive.
  Work canceller();

  void addProgressHandler(std::type_index type, ProgressHandler handler) TARN_EXCLUDES(mutex_);
  void reportProgress(std::type_index type, const void* progress) TARN_EXCLUDES(mutex_);

 private:
  struct SettledHandler {
    std::optional<DispatchQueue> queue;
    Handler handler;
    std::optional<Outcome> only;
  };
  struct TypedProgressHandler {
    std::type_index type;
    ProgressHandler handler;
  };
  using ProgressHandlers = std::vector<std::shared_ptr<TypedProgressHandler>>;

  void dispatchHandlers() TARN_EXCLUDES(mutex_);
  void dispatch(SettledHandler handler);
  void runHook(Work hook) noexcept;

  std::atomic<bool> claimed_ = false;
  std::atomic<Outcome> outcome_ = Outcome::pending;
  std::optional<Error> error_;  // written before the outcome, never after

  Mutex mutex_;
  PerProcess<std::vector<SettledHandler>> handlers_ TARN_GUARDED_BY(mutex_);
  ProgressHandlers _progressHandlers TARN_GUARDED_BY(mutex_);
  Work onCancel_ TARN_GUARDED_BY(mutex_);
  std::optional<DispatchGroup> waiters_ TARN_GUARDED_BY(mutex_);
  PerProcess<bool> dispatching_ TARN_GUARDED_BY(mutex_);
  bool cancelled_ TARN_GUARDED_BY(mutex_) = false;
};

template <class T>
using FutureValue = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

template <class T>
struct FutureState final : FutureCore {
  std::optional<FutureValue<T>> value;  // written before the outcome, never after

  bool complete(FutureValue<T>&& result) {
    if (!claim()) return false;
    std::optional<Error> failure;
    try {
      value.emplace(std::move(result));
    } catch (...) {
      failure = Error::current();
    }
    publish(std::move(failure));
    return true;
  }
};

}  // namespace tarn::detail
