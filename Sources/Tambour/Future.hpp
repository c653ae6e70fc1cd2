#pragma once

#include <Tambour/FutureError.hpp>
#include <Tambour/FutureState.hpp>

#include <concepts>
#include <functional>
#include <optional>
#include <type_traits>
#include <typeindex>
#include <utility>

namespace tarn {

template <class T>
class Future;
template <class T>
class Promise;

namespace detail {

template <class T>
class FutureAwaiter;
template <class T>
class FutureCoroutine;

/// What a handler of a future's value answers, and what the future of that answer holds.
template <class F, class T>
struct ResultOfHandler : std::invoke_result<F&, const T&> {};
template <class F>
struct ResultOfHandler<F, void> : std::invoke_result<F&> {};
template <class Result>
struct Flattened : std::type_identity<Result> {};
template <class T>
struct Flattened<Future<T>> : std::type_identity<T> {};

template <class T, class F>
void settle(Promise<T>& promise, F&& produce);

}  // namespace detail

/// A value that comes later, or the error that comes in its place.
///
/// A cheap copyable handle: copies name the same future. It is settled once and then stays as it
/// is. Callable from any thread; handlers run asynchronously on the queue that they are given, or
/// on DispatchQueue::global(), and are let go when they have run. Whoever waits gets a copy of the
/// value, handlers see the value itself.
///
/// FutureCoroutine.hpp makes it a thing that coroutines await and answer.
template <class T>
class Future {
  static_assert(std::is_void_v<T> || (std::is_object_v<T> && std::copy_constructible<T>),
                "A future's value is shared by all who wait for it: it has to be copyable.");

 public:
  using Value = T;
  using promise_type = detail::FutureCoroutine<T>;

  /// Pending until it is marked. Where nobody may ever do so, see Promise.
  Future() : state_(std::make_shared<detail::FutureState<T>>()) {}

  // Only copies: a moved-from handle would be empty.
  Future(const Future&) noexcept = default;
  Future& operator=(const Future&) noexcept = default;
  ~Future() = default;

  /// Settles the future with a value. False where it is settled already: that one counts.
  bool markCompletion(detail::FutureValue<T> value) const requires(!std::is_void_v<T>) {
    return state_->complete(std::move(value));
  }
  bool markCompletion() const requires std::is_void_v<T> { return state_->complete({}); }
  /// Settles the future with an error. False where it is settled already.
  bool markFailure(Error error) const { return state_->fail(std::move(error)); }

  bool isPending() const noexcept { return state_->outcome() == Outcome::pending; }
  bool isCompleted() const noexcept { return state_->outcome() == Outcome::completed; }
  bool isFailed() const noexcept { return state_->outcome() == Outcome::failed; }
  /// The error of a failed future, nothing of any other.
  std::optional<Error> error() const { return isFailed() ? state_->error() : std::nullopt; }

  /// Blocks until the future is settled; answers the value or throws the error. A blocked shared
  /// thread is made up for by another. On the serial queue that the future is settled on, the main
  /// queue included, it would wait for ever.
  T get() const {
    state_->wait(std::nullopt);
    return valueOrThrow();
  }
  /// As get(), for at most `limit` of real time, then throws FutureError::timedOut. The future goes
  /// on.
  T get(TimeInterval limit) const {
    if (!state_->wait(limit)) throw FutureError::timedOut();
    return valueOrThrow();
  }

  /// Calls `handler` with the value, if there comes one. Handlers of one serial queue run in the
  /// order in which they were added, also after settling. What one throws is logged.
  template <class F>
  const Future& onCompletion(std::optional<DispatchQueue> queue, F&& handler) const {
    requireHandler<F>();
    state_->addHandler(
        std::move(queue),
        [handler = std::forward<F>(handler)](const Core& core) mutable {
          call(handler, stateOf(core));
        },
        Outcome::completed);
    return *this;
  }
  template <class F>
  const Future& onCompletion(F&& handler) const {
    return onCompletion(std::nullopt, std::forward<F>(handler));
  }
  /// As onCompletion(), for the error.
  template <std::invocable<const Error&> F>
  const Future& onFailure(std::optional<DispatchQueue> queue, F&& handler) const {
    state_->addHandler(
        std::move(queue),
        [handler = std::forward<F>(handler)](const Core& core) mutable { handler(*core->error()); },
        Outcome::failed);
    return *this;
  }
  template <std::invocable<const Error&> F>
  const Future& onFailure(F&& handler) const {
    return onFailure(std::nullopt, std::forward<F>(handler));
  }

  /// The future of what `f` makes of the value: a value, nothing, or a future that is waited for in
  /// its turn. What `f` throws is the failure of the new future, as is the error of this one.
  /// Cancelling the new future cancels this one, then the one that `f` answered.
  template <class F>
  auto then(std::optional<DispatchQueue> queue, F&& f) const {
    requireHandler<F>();
    using Result = std::decay_t<typename detail::ResultOfHandler<std::decay_t<F>, T>::type>;
    Promise<typename detail::Flattened<Result>::type> promise;
    const auto derived = promise.future();
    derived.onCancel(state_->canceller());
    state_->addHandler(std::move(queue), [promise = std::move(promise),
                                          f = std::forward<F>(f)](const Core& core) mutable {
      if (core->error()) return void(promise.future().markFailure(*core->error()));
      detail::settle(promise, [&]() -> decltype(auto) { return call(f, stateOf(core)); });
    });
    return derived;
  }
  template <class F>
  auto then(F&& f) const {
    return then(std::nullopt, std::forward<F>(f));
  }
  /// The future of this value, or of what `f` makes of the error in its place: as then().
  template <std::invocable<const Error&> F>
  Future recover(std::optional<DispatchQueue> queue, F&& f) const {
    Promise<T> promise;
    const auto derived = promise.future();
    derived.onCancel(state_->canceller());
    state_->addHandler(std::move(queue), [promise = std::move(promise),
                                          f = std::forward<F>(f)](const Core& core) mutable {
      if (!core->error()) return detail::settle(promise, [&] { return valueOf(stateOf(core)); });
      detail::settle(promise, [&]() -> decltype(auto) { return f(*core->error()); });
    });
    return derived;
  }
  template <std::invocable<const Error&> F>
  Future recover(F&& f) const {
    return recover(std::nullopt, std::forward<F>(f));
  }

  /// Asks the producer to stop, for all who wait. It settles the future then, perhaps with a value
  /// that was on its way; a future whose producer can't be stopped fails at once with
  /// FutureError::cancelled. No effect once settled.
  void cancel() const noexcept { state_->cancel(); }
  /// For producers: what cancel() is to do, on its caller's thread, in place of what was set
  /// before; at once, if the future has been cancelled. It is let go when the future is settled.
  /// What it throws is the future's failure.
  void onCancel(Work hook) const { state_->onCancel(std::move(hook)); }

  /// Adds a handler for progress values of type `P`: those that are reported from now on, as long
  /// as the future is pending. Handlers are called in their order, on the queue that the producer
  /// reports on. What one throws is logged.
  template <class P, std::invocable<const P&> F>
  const Future& addProgressHandler(F&& handler) const {
    state_->addProgressHandler(typeid(P),
                               [handler = std::forward<F>(handler)](const void* progress) mutable {
                                 handler(*static_cast<const P*>(progress));
                               });
    return *this;
  }
  /// For producers: calls every handler of the type, one report after another.
  template <class P>
  void reportProgress(const P& progress) const {
    state_->reportProgress(typeid(P), &progress);
  }

  /// What a coroutine awaits to go on, on that queue; `co_await future` itself goes on on
  /// DispatchQueue::global().
  detail::FutureAwaiter<T> on(DispatchQueue queue) const;
  detail::FutureAwaiter<T> operator co_await() const;

  friend bool operator==(const Future&, const Future&) noexcept = default;

 private:
  using Outcome = detail::FutureCore::Outcome;
  using Core = std::shared_ptr<detail::FutureCore>;
  using State = detail::FutureState<T>;

  friend class detail::FutureAwaiter<T>;
  template <class U, class F>
  friend void detail::settle(Promise<U>& promise, F&& produce);

  static const State& stateOf(const Core& core) { return static_cast<const State&>(*core); }
  static T valueOf(const State& state) {
    if constexpr (!std::is_void_v<T>) return *state.value;
  }
  T valueOrThrow() const {
    if (isFailed()) state_->error()->raise();
    return valueOf(*state_);
  }

  template <class F>
  static consteval void requireHandler() {
    static_assert(
        requires { typename detail::ResultOfHandler<std::decay_t<F>, T>::type; },
        "The handler is callable with the future's value, or without arguments where "
        "the future is a `Future<void>`.");
  }
  template <class F>
  static decltype(auto) call(F& handler, const State& state) {
    if constexpr (std::is_void_v<T>) {
      return handler();
    } else {
      return handler(*state.value);
    }
  }

  /// Settles the promise as this future is settled.
  void pass(Promise<T> promise) const {
    promise.future().onCancel(state_->canceller());
    state_->addHandler(std::nullopt, [promise = std::move(promise)](const Core& core) mutable {
      if (core->error()) return void(promise.future().markFailure(*core->error()));
      detail::settle(promise, [&] { return valueOf(stateOf(core)); });
    });
  }

  std::shared_ptr<State> state_;
};

/// The producer's half of a future: fails it with FutureError::broken when it goes while the future
/// is pending, so that nobody waits for ever. Held by whatever is to settle the future, such as a
/// callback that may be dropped without being called.
template <class T>
class Promise {
 public:
  explicit Promise(Future<T> future = {}) : future_(std::move(future)) {}
  Promise(Promise&& other) noexcept : future_(std::exchange(other.future_, std::nullopt)) {}
  Promise& operator=(Promise&&) = delete;
  ~Promise() {
    if (future_ && future_->isPending()) future_->markFailure(FutureError::broken());
  }

  /// The future, to be marked or handed out. Not after a move.
  const Future<T>& future() const noexcept { return *future_; }

 private:
  std::optional<Future<T>> future_;
};

/// Settles the promise with what `produce` answers or throws; where that is a future, as it is
/// settled.
template <class T, class F>
void detail::settle(Promise<T>& promise, F&& produce) {
  const Future<T> future = promise.future();
  std::optional<Error> failure;
  try {
    using Result = std::decay_t<std::invoke_result_t<F>>;
    if constexpr (!std::same_as<typename Flattened<Result>::type, Result>) {
      produce().pass(std::move(promise));
    } else if constexpr (std::is_void_v<Result>) {
      produce();
      future.markCompletion();
    } else {
      future.markCompletion(produce());
    }
  } catch (...) {
    failure = Error::current();
  }
  if (failure) future.markFailure(*failure);
}

}  // namespace tarn
