#pragma once

#include <Platform/Dispatch/UniqueFunction.hpp>

#include <atomic>
#include <memory>
#include <type_traits>
#include <utility>

namespace tarn {
namespace detail {

void reportSecondCompletion() noexcept;

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
      Completion(
          F&& function)  // NOLINT(google-explicit-constructor): a send takes a lambda as it is
      : state_(std::make_shared<State>(std::forward<F>(function))) {}

  void operator()(Response response) const {
    if (!claim()) return detail::reportSecondCompletion();
    run(std::move(response));
  }

  /// Takes the one call for oneself, to be made by run() later; false where it is taken.
  bool claim() const { return !state_->claimed.exchange(true); }
  /// Makes the call that claim() took.
  void run(Response response) const {
    auto function = std::move(state_->function);
    function(std::move(response));
  }

 private:
  struct State {
    template <class F>
    explicit State(F&& function) : function(std::forward<F>(function)) {}

    std::atomic<bool> claimed = false;
    UniqueFunction<void(Response)> function;
  };

  std::shared_ptr<State> state_;
};

}  // namespace tarn
