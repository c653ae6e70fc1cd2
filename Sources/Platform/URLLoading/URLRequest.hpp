#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/Error.hpp>
#include <Platform/Types/TimeInterval.hpp>
#include <Platform/Types/URL.hpp>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

namespace detail {
class SharedHeaderFields;
}

/// A method or header field that may not go onto the wire.
class InvalidRequestError final : public CodedError {
 public:
  explicit InvalidRequestError(std::string message) : message_(std::move(message)) {}

  std::string message() const override { return message_; }
  std::int64_t code() const noexcept override { return 0; }

 private:
  std::string message_;
};

/// What a session task loads: an address, a method, header fields and a body.
///
/// A value; copies share the header fields and the body. It can't hold a method or header field
/// that would break out of its line on the wire: the setters refuse those with InvalidRequestError,
/// which names the field and never repeats its value.
class URLRequest {
 public:
  /// How the session's cache may take part in an answer to GET and HEAD; URLSessionConfiguration
  /// says what is kept.
  enum class CachePolicy {
    useProtocolCachePolicy,        ///< as request and answer say (RFC 9111)
    reloadIgnoringLocalCacheData,  ///< from the server; the answer is kept all the same
    returnCacheDataElseLoad,       ///< a kept answer of any age, else from the server
    returnCacheDataDontLoad,       ///< that, else URLError::resourceUnavailable
    reloadRevalidatingCacheData,   ///< a kept answer only where the server says that it still holds
  };
  using HeaderFields = std::map<std::string, std::string>;

  explicit URLRequest(URL url, CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy,
                      TimeInterval timeoutInterval = TimeInterval(60));

  const URL& url() const noexcept { return url_; }
  void setURL(URL url) { url_ = std::move(url); }

  CachePolicy cachePolicy() const noexcept { return cachePolicy_; }
  void setCachePolicy(CachePolicy policy) noexcept { cachePolicy_ = policy; }

  /// Seconds without any progress after which the load fails with URLError::timedOut. Default 60.
  TimeInterval timeoutInterval() const noexcept { return timeoutInterval_; }
  void setTimeoutInterval(TimeInterval interval) noexcept { timeoutInterval_ = interval; }

  /// Default "GET".
  const std::string& httpMethod() const noexcept { return httpMethod_; }
  /// Throws InvalidRequestError unless the method is a token (RFC 9110, 9.1).
  void setHTTPMethod(std::string method);

  /// Keys are kept exactly, case included.
  const HeaderFields& allHTTPHeaderFields() const noexcept;
  /// Throws InvalidRequestError for a name that is no token or a value that holds CR, LF or NUL
  /// (RFC 9110, 5.5).
  void setAllHTTPHeaderFields(HeaderFields fields);
  /// As setAllHTTPHeaderFields, for one field.
  void setValue(std::string value, std::string forHTTPHeaderField);
  /// The value of a field, whatever the case of its name.
  std::optional<std::string_view> value(std::string_view forHTTPHeaderField) const noexcept;

  const std::optional<Data>& httpBody() const noexcept { return httpBody_; }
  void setHTTPBody(std::optional<Data> body) { httpBody_ = std::move(body); }

  /// Whether the request may be sent a second time when a kept-alive connection turns out to be
  /// dead before any byte of the answer came. Default true, for every method: a server may then see
  /// a request twice.
  bool allowsResend() const noexcept { return allowsResend_; }
  void setAllowsResend(bool allows) noexcept { allowsResend_ = allows; }

 private:
  friend class detail::SharedHeaderFields;

  URL url_;
  CachePolicy cachePolicy_;
  bool allowsResend_ = true;
  TimeInterval timeoutInterval_;
  std::string httpMethod_ = "GET";
  std::shared_ptr<const HeaderFields> headerFields_;  // null for none
  std::optional<Data> httpBody_;
};

}  // namespace tarn
