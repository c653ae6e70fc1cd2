#pragma once

#include <Platform/Types/AnyValue.hpp>

#include <atomic>
#include <concepts>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace tarn {

/// What every error class of this library derives from: an exception with a message, a domain and a
/// code.
class CodedError : public std::exception {
 public:
  CodedError() noexcept = default;
  CodedError(const CodedError&) noexcept;
  CodedError& operator=(const CodedError&) noexcept;
  ~CodedError() override;

  virtual std::string message() const = 0;
  /// By default the qualified name of the dynamic type: "TarnService.HTTPResponseError".
  virtual std::string domain() const;
  virtual std::int64_t code() const noexcept = 0;
  /// By default the message under "NSLocalizedDescription".
  virtual std::map<std::string, AnyValue> userInfo() const;

  /// The message; the text lives until this object is assigned to or destroyed. Callable from any
  /// thread.
  const char* what() const noexcept final;

 private:
  mutable std::atomic<const std::string*> what_ = nullptr;  // made by the first what()
};

/// A cheap copyable handle on one thrown error; keeps the whole object, whatever its class, and is
/// never empty.
///
/// Copies share the object. Callable from any thread.
class Error {
 public:
  /// Keeps a copy of `error` of its own class. For an object that was caught by a base class, use
  /// `current()`: classes that only serve as bases do not compile here.
  template <class E, class V = std::remove_cvref_t<E>>
  requires(std::derived_from<V, std::exception> && !std::same_as<V, std::exception> &&
           !std::is_abstract_v<V>) Error(E&& error)  // NOLINT(google-explicit-constructor): an
                                                     // error is passed wherever a handle is taken
      : state_(std::make_shared<const Value<V>>(std::forward<E>(error))) {}

  // Only copies: a moved-from handle would be empty.
  Error(const Error&) noexcept = default;
  Error& operator=(const Error&) noexcept = default;
  ~Error() = default;

  /// The exception being handled, the object itself and not a copy. Outside of a catch block, and
  /// for thrown values that are no std::exception, an error with the message "unknown exception".
  /// Leave the catch block before another thread gets the handle: ThreadSanitizer does not see the
  /// count inside the C++ runtime that orders the end of the block and the last use elsewhere.
  static Error current() noexcept;

  /// `what()` where the error is no `CodedError`.
  std::string message() const;
  /// The qualified name of the dynamic type, unless the error says otherwise; for std::system_error
  /// the name of its category.
  std::string domain() const;
  /// 1 where the error has none; for std::system_error its value.
  std::int64_t code() const noexcept;
  std::string localizedDescription() const { return message(); }
  std::map<std::string, AnyValue> userInfo() const;

  /// The error, where it is a `T` or derived from it; null otherwise. Lives as long as this or a
  /// copy of it.
  template <class T>
  const T* as() const noexcept {
    return dynamic_cast<const T*>(state_->exception);
  }

  /// Throws the original.
  [[noreturn]] void raise() const {
    state_->raise();
    std::terminate();  // never reached
  }

 private:
  struct State {
    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    virtual ~State() = default;
    virtual void raise() const = 0;

    const std::exception* exception = nullptr;
  };
  template <class V>
  struct Value final : State {
    template <class E>
    explicit Value(E&& error) : value(std::forward<E>(error)) {
      this->exception = &value;
    }
    void raise() const override { throw value; }

    V value;
  };
  struct Thrown;

  explicit Error(std::shared_ptr<const State> state) noexcept : state_(std::move(state)) {}

  std::shared_ptr<const State> state_;
};

}  // namespace tarn
