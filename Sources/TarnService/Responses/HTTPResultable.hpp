#pragma once

#include <Platform/Types/Error.hpp>

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace tarn {

/// The result of a response: success with a body that may be absent, or failure with an error.
template <class BodyType>
class HTTPResult {
 public:
  using Body = BodyType;

  static HTTPResult success(std::optional<Body> body) { return HTTPResult(std::move(body)); }
  static HTTPResult failure(Error error) { return HTTPResult(std::move(error)); }

  bool isSuccessful() const noexcept {
    return std::holds_alternative<std::optional<Body>>(result_);
  }
  /// The body of a success; nothing for a failure and for a success without one.
  const std::optional<Body>& body() const& noexcept {
    static const std::optional<Body> none;
    const auto* body = std::get_if<std::optional<Body>>(&result_);
    return body ? *body : none;
  }
  std::optional<Body> body() && {
    auto* body = std::get_if<std::optional<Body>>(&result_);
    return body ? std::move(*body) : std::nullopt;
  }
  /// The error of a failure.
  std::optional<Error> error() const {
    const auto* error = std::get_if<Error>(&result_);
    return error ? std::optional(*error) : std::nullopt;
  }
  std::string_view debugDescription() const noexcept {
    return isSuccessful() ? ".success" : ".failure";
  }

  /// Calls `onSuccess` with the optional body or `onFailure` with the error, and answers what that
  /// answers.
  template <class OnSuccess, class OnFailure>
  decltype(auto) match(OnSuccess&& onSuccess, OnFailure&& onFailure) const {
    if (const auto* error = std::get_if<Error>(&result_)) return onFailure(*error);
    return onSuccess(std::get<std::optional<Body>>(result_));
  }

 private:
  explicit HTTPResult(std::optional<Body> body) : result_(std::move(body)) {}
  explicit HTTPResult(Error error) : result_(std::move(error)) {}

  std::variant<std::optional<Body>, Error> result_;
};

/// What a response record's result has to offer; HTTPResult is one.
template <class T>
concept HTTPResultable = requires(const T& result) {
  typename T::Body;
  { result.isSuccessful() } -> std::convertible_to<bool>;
  { result.body() } -> std::convertible_to<std::optional<typename T::Body>>;
  { result.error() } -> std::convertible_to<std::optional<Error>>;
};

}  // namespace tarn
