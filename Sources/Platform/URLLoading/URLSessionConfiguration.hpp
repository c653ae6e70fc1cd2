#pragma once

#include <Platform/Types/Error.hpp>
#include <Platform/Types/TimeInterval.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn {

/// A configuration with which no session can work; names the setting, never a password in it.
class InvalidConfigurationError final : public CodedError {
 public:
  explicit InvalidConfigurationError(std::string message) : message_(std::move(message)) {}

  std::string message() const override { return message_; }
  std::int64_t code() const noexcept override { return 0; }

 private:
  std::string message_;
};

/// The oldest version of TLS that is spoken.
enum class TLSProtocolVersion { TLSv10, TLSv11, TLSv12, TLSv13 };

/// The proxies of a session, as addresses: "http://proxy.example:3128"; http, https, socks4,
/// socks4a, socks5 and socks5h are known. Empty for none.
struct URLSessionProxies {
  std::string http;   ///< for http requests
  std::string https;  ///< for https requests
  /// Hosts to reach directly; a domain stands for its subdomains too, "10.0.0.0/8" for a range of
  /// addresses, "*" for every host.
  std::vector<std::string> exceptions;
};

/// How a session behaves. Copied when the session is made; later changes have no effect on it.
struct URLSessionConfiguration {
  /// Cookies, credentials and caches private to the session, in memory only, gone with it.
  static URLSessionConfiguration ephemeral() { return {}; }

  /// Whether a task without a route to its host waits for one instead of failing. Default false.
  bool waitsForConnectivity = false;
  /// Seconds without progress before a task fails with URLError::timedOut; a request's own value
  /// wins where it is not the default one. Does not count while the task waits for a connection
  /// slot of its host or for a route, is suspended, or the delegate is behind. Default 60, which
  /// zero, less and NaN stand for too.
  TimeInterval timeoutIntervalForRequest{60};
  /// Seconds from the start of a task until it must be done, whatever its progress. Default 7 days,
  /// as above.
  TimeInterval timeoutIntervalForResource{7.0 * 24 * 60 * 60};
  /// For requests whose own policy is the default one.
  URLRequest::CachePolicy requestCachePolicy = URLRequest::CachePolicy::useProtocolCachePolicy;
  /// Connections to one origin at the same time; further tasks wait, first in, first out.
  /// Default 6; less than 1 counts as 1.
  int httpMaximumConnectionsPerHost = 6;

  /// Sent with every request that does not have a field of the same name itself. After a redirect
  /// to another origin those that hold secrets stay behind, as the request's own do. A field that
  /// may not go onto the wire is refused when the session is made: InvalidRequestError.
  URLRequest::HeaderFields httpAdditionalHeaders;
  /// Whether cookies of answers are kept and sent with later requests (RFC 6265). Default true.
  bool httpShouldSetCookies = true;
  /// Bytes of bodies, header fields and addresses, and 1 KiB for each answer, that the session's
  /// private cache may keep in memory (RFC 9111); 0 for no cache. One answer may take a tenth. Kept
  /// are answers to GET, their bodies whole and decoded; downloads to files, parts of a body and
  /// answers that vary by cookies are not. Default 4 MiB.
  std::size_t cacheMemoryCapacity = 4 * 1024 * 1024;

  TLSProtocolVersion tlsMinimumSupportedProtocolVersion = TLSProtocolVersion::TLSv12;
  /// Whether HTTP/2 is offered to https servers. Default true.
  bool allowsHTTP2 = true;
  /// Absent: those of the environment when the session is made (http_proxy, https_proxy,
  /// all_proxy, no_proxy). An address that is not that of a proxy is refused when the session is
  /// made, as are the faults of the settings below: InvalidConfigurationError.
  std::optional<URLSessionProxies> proxies;
  /// Connects every request to this socket instead of to the host of its URL or a proxy; the URL
  /// still counts for all else. At most 107 bytes.
  std::optional<std::string> unixDomainSocketPath;
  /// Addresses (IPv4 or IPv6) by "host:port", used instead of asking the name service.
  std::map<std::string, std::vector<std::string>> resolverOverrides;
  /// The most body bytes of an answer, counted after content decoding; a longer one fails with
  /// URLError::dataLengthExceedsMaximum. Absent: no limit.
  std::optional<std::int64_t> maximumResponseBytes;
};

}  // namespace tarn
