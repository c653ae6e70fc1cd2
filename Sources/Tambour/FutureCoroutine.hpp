#pragma once

#include <Tambour/Future.hpp>

#include <atomic>
#include <coroutine>
#include <memory>
#include <optional>
#include <utility>

// Coroutines on futures: `co_await future` waits for one, and a function that answers a Future may
// be a coroutine.
//
// A coroutine starts at once, on its caller's thread, and goes on where each `co_await` says. Its
// future is settled when its variables are gone, and goes on without anybody who holds it. It takes
// its parameters by value, and lambdas with captures only where they outlive it.
//
// GCC 12 destroys twice what is made in the expression after `co_await` as an aggregate,
// `GetUser{{}, "ada"}`, or as a lambda with captures: give it a name in a statement before.

namespace tarn {
namespace detail {

/// Suspends a coroutine until the future is settled and goes on, on the queue; at once where the
/// future is settled and the coroutine is on that queue.
///
/// A coroutine that is destroyed while it is suspended here cancels the future, and is not resumed.
/// As with every coroutine, whoever destroys it sees to it that it is not resumed at the same
/// moment: by doing so on the serial queue that it goes on on.
template <class T>
class FutureAwaiter {
 public:
  FutureAwaiter(Future<T> future, DispatchQueue queue)
      : future_(std::move(future)), queue_(std::move(queue)) {}
  FutureAwaiter(const FutureAwaiter&) = delete;
  FutureAwaiter& operator=(const FutureAwaiter&) = delete;
  ~FutureAwaiter() {
    if (isOver_ && !isOver_->exchange(true)) future_.cancel();
  }

  bool await_ready() const noexcept { return !future_.isPending() && queue_.isCurrent(); }
  template <class P>
  void await_suspend(std::coroutine_handle<P> coroutine) {
    const auto state = future_.state_;
    if constexpr (requires { coroutine.promise().cancelsWith(state->canceller()); }) {
      coroutine.promise().cancelsWith(state->canceller());
    }
    isOver_ = std::make_shared<std::atomic<bool>>(false);
    // From here on the coroutine may go on elsewhere, and be gone with this awaiter.
    state->addHandler(queue_, [isOver = isOver_, coroutine](const auto&) {
      if (!isOver->exchange(true)) coroutine.resume();
    });
  }
  T await_resume() const { return future_.valueOrThrow(); }

 private:
  const Future<T> future_;
  const DispatchQueue queue_;
  std::shared_ptr<std::atomic<bool>> isOver_;  // shared with the handler that resumes
};

/// Where a coroutine leaves its value until it has ended.
template <class T>
struct CoroutineResult {
  std::optional<T> value;
  void return_value(T result) { value.emplace(std::move(result)); }
};
template <>
struct CoroutineResult<void> {
  void return_void() const noexcept {}
};

/// What the compiler asks of a coroutine that answers a Future.
template <class T>
class FutureCoroutine : public CoroutineResult<T> {
 public:
  // Cancelling what awaits nothing is noted for its next `co_await`.
  FutureCoroutine() {
    promise_.future().onCancel([] {});
  }

  Future<T> get_return_object() const { return promise_.future(); }
  std::suspend_never initial_suspend() const noexcept { return {}; }
  std::suspend_never final_suspend() noexcept {
    if (failure_) {
      promise_.future().markFailure(*failure_);
    } else if constexpr (std::is_void_v<T>) {
      promise_.future().markCompletion();
    } else {
      promise_.future().markCompletion(*std::move(this->value));
    }
    return {};
  }
  void unhandled_exception() noexcept { failure_ = Error::current(); }

  /// Cancelling the coroutine's future cancels what it awaits, which throws there.
  void cancelsWith(Work hook) const { promise_.future().onCancel(std::move(hook)); }

 private:
  Promise<T> promise_;
  std::optional<Error> failure_;
};

}  // namespace detail

template <class T>
detail::FutureAwaiter<T> Future<T>::on(DispatchQueue queue) const {
  return {*this, std::move(queue)};
}

template <class T>
detail::FutureAwaiter<T> Future<T>::operator co_await() const {
  return {*this, DispatchQueue::global()};
}

}  // namespace tarn
