#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace tarn {

template <class Signature>
class UniqueFunction;

/// A callable that is moved, never copied, so that it can own what it works on.
///
/// Callables of up to 48 bytes that move without throwing are kept inside; others take one
/// allocation. Calling an empty or moved-from function throws std::bad_function_call.
template <class R, class... A>
class UniqueFunction<R(A...)> {
 public:
  UniqueFunction() noexcept = default;

  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, UniqueFunction> &&
           std::is_invocable_r_v<R, std::decay_t<F>&, A...>)
      UniqueFunction(F&& function) {  // NOLINT(google-explicit-constructor): callables convert, as
                                      // with std::function
    using Function = std::decay_t<F>;
    if constexpr (fits<Function>) {
      ::new (static_cast<void*>(storage_)) Function(std::forward<F>(function));
      operations_ = &InPlace<Function>::operations;
    } else {
      ::new (static_cast<void*>(storage_)) Function*(new Function(std::forward<F>(function)));
      operations_ = &OnHeap<Function>::operations;
    }
  }

  UniqueFunction(UniqueFunction&& other) noexcept { take(other); }

  UniqueFunction& operator=(UniqueFunction&& other) noexcept {
    if (this != &other) {
      reset();
      take(other);
    }
    return *this;
  }

  UniqueFunction(const UniqueFunction&) = delete;
  UniqueFunction& operator=(const UniqueFunction&) = delete;
  ~UniqueFunction() { reset(); }

  explicit operator bool() const noexcept { return operations_ != nullptr; }

  R operator()(A... arguments) {
    if (operations_ == nullptr) throw std::bad_function_call();
    return operations_->call(storage_, std::forward<A>(arguments)...);
  }

 private:
  struct Operations {
    R (*call)(void* at, A&&... arguments);
    void (*relocate)(void* from, void* to) noexcept;
    void (*destroy)(void* at) noexcept;
  };

  template <class F>
  static constexpr bool fits =
      sizeof(F) <= 48 &&
      alignof(F) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<F>;

  template <class F>
  static R invoke(F& function, A&&... arguments) {
    if constexpr (std::is_void_v<R>) {
      std::invoke(function, std::forward<A>(arguments)...);
    } else {
      return std::invoke(function, std::forward<A>(arguments)...);
    }
  }

  template <class F>
  struct InPlace {
    static F& at(void* place) noexcept { return *std::launder(static_cast<F*>(place)); }
    static R call(void* place, A&&... arguments) {
      return invoke(at(place), std::forward<A>(arguments)...);
    }
    static void relocate(void* from, void* to) noexcept {
      ::new (to) F(std::move(at(from)));
      at(from).~F();
    }
    static void destroy(void* place) noexcept { at(place).~F(); }
    static constexpr Operations operations{&call, &relocate, &destroy};
  };

  template <class F>
  struct OnHeap {
    static F*& at(void* place) noexcept { return *std::launder(static_cast<F**>(place)); }
    static R call(void* place, A&&... arguments) {
      return invoke(*at(place), std::forward<A>(arguments)...);
    }
    static void relocate(void* from, void* to) noexcept { ::new (to) F*(at(from)); }
    static void destroy(void* place) noexcept { delete at(place); }
    static constexpr Operations operations{&call, &relocate, &destroy};
  };

  void take(UniqueFunction& other) noexcept {
    if (other.operations_ == nullptr) return;
    other.operations_->relocate(other.storage_, storage_);
    operations_ = std::exchange(other.operations_, nullptr);
  }

  void reset() noexcept {
    if (operations_ != nullptr) std::exchange(operations_, nullptr)->destroy(storage_);
  }

  alignas(std::max_align_t) std::byte storage_[48];
  const Operations* operations_ = nullptr;
};

/// One piece of work for a queue.
using Work = UniqueFunction<void()>;

}  // namespace tarn
