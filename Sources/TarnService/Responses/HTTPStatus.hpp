#pragma once

#include <Platform/URLLoading/HTTPURLResponse.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace tarn {

/// The HTTP status codes that the library knows by name (RFC 9110, 15); every other code is
/// `unknown`.
///
/// A value: `switch` over it works, and `HTTPStatus::notFound` reads as a constant.
class HTTPStatus {
 public:
  enum Case : int {
    continue_ = 100,
    switchingProtocols = 101,
    success = 200,
    created = 201,
    accepted = 202,
    nonAuthoritativeInfo = 203,
    noContent = 204,
    resetContent = 205,
    partialContent = 206,
    multipleChoices = 300,
    movedPermanently = 301,
    found = 302,
    seeOther = 303,
    notModified = 304,
    useProxy = 305,
    unused = 306,
    temporaryRedirect = 307,
    badRequest = 400,
    unauthorized = 401,
    paymentRequired = 402,
    forbidden = 403,
    notFound = 404,
    methodNotAllowed = 405,
    notAcceptable = 406,
    proxyAuthenticationRequired = 407,
    requestTimeout = 408,
    conflict = 409,
    gone = 410,
    lengthRequired = 411,
    preconditionFailed = 412,
    requestEntityTooLarge = 413,
    requestURITooLong = 414,
    unsupportedMediaType = 415,
    requestedRangeNotSatisfiable = 416,
    expectationFailed = 417,
    internalServerError = 500,
    notImplemented = 501,
    badGateway = 502,
    serviceUnavailable = 503,
    gatewayTimeout = 504,
    httpVersionNotSupported = 505,
    unknown = 1000,  // outside of HTTP's range, so that the case has a code of its own
  };

  // NOLINTNEXTLINE(google-explicit-constructor): a case is a status
  constexpr HTTPStatus(Case status) noexcept : case_(status) {}
  // NOLINTNEXTLINE(google-explicit-constructor): for switch
  constexpr operator Case() const noexcept { return case_; }

  /// The status whose code this is, or nothing; 1000 is `unknown`.
  static std::optional<HTTPStatus> fromRawValue(std::int64_t rawValue) noexcept;
  /// As fromRawValue, with `unknown` for codes outside of the table.
  static HTTPStatus of(std::int64_t code) noexcept;

  /// The code.
  constexpr std::int64_t rawValue() const noexcept { return case_; }
  /// The name of the case, the status's text form: "notFound". `continue_` reads "continue".
  std::string_view description() const noexcept;
  /// Whether a request accepts the status unless it decides for itself: exactly 200 to 206.
  bool isAcceptableByDefault() const noexcept;

 private:
  Case case_;
};

/// The status of an answer; `unknown` for codes outside of the table.
HTTPStatus status(const HTTPURLResponse& response) noexcept;

}  // namespace tarn

template <>
struct std::hash<tarn::HTTPStatus> {
  std::size_t operator()(const tarn::HTTPStatus& status) const noexcept {
    return std::hash<std::int64_t>()(status.rawValue());
  }
};
