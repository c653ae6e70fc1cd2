#pragma once

#include <Platform/Dispatch/UniqueFunction.hpp>

#include <atomic>
#include <memory>
#include <type_traits>
#include <utility>

namespace tarn {
namespace detail {

void reportSecondCompletion() noexcept;

template <class R>
struct SendOperations;

}  // namespace detail

/// The callback of one send: a cheap copyable handle on any callable, move-only ones too.
///
/// Runs once; a second call is logged at fault level and dropped. What the callable holds is let go
/// once it has run.
template <class Response>
class Completion {
 public:
  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, Completion> &&
           std::is_invocable_v<std::decay_t<F>&, Response>)
      // NOLINTNEXTLINE(google-explicit-constructor): a send takes a lambda as it is
      Completion(F&& function)
      : state_(std::make_shared<State>(std::forward<F>(function))) {}

  void operator()(Response response) const {
    if (!claim()) return detail::reportSecondCompletion();
    run(std::move(response));
  }

 private:
  template <class R>
  friend struct detail::SendOperations;

  struct State {
    template <class F>
    explicit State(F&& callable) : function(std::forward<F>(callable)) {}

    std::atomic<bool> claimed = false;
    UniqueFunction<void(Response&&)> function;
  };

  // The pipeline takes the one call when it begins to answer, and makes it later on the caller's
  // queue.
  bool claim() const { return !state_->claimed.exchange(true); }
  void run(Response&& response) const {
    auto function = std::move(state_->function);
    function(std::move(response));
  }

  std::shared_ptr<State> state_;
};

}  // namespace tarn
