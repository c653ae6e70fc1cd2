#pragma once

#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/URLSessionConfiguration.hpp>

#include <string>

namespace tarn::detail {

/// The proxies of a session; empty text stands for none.
struct ProxySettings {
  std::string http;
  std::string https;
  std::string exceptions;  ///< hosts to reach directly, separated by commas or blanks

  /// The address of the proxy by way of which requests to an origin go; empty for none. The
  /// exceptions are names that stand for their subdomains too, addresses, ranges of addresses
  /// ("10.0.0.0/8"), and "*".
  std::string proxyFor(const Origin& origin) const;

  /// From http_proxy, https_proxy, all_proxy and no_proxy, or their upper-case forms. HTTP_PROXY is
  /// left out: in a CGI program it is what the remote side sent as header field `Proxy`.
  static ProxySettings fromEnvironment();
  /// Those of the configuration, otherwise of the environment. None where a socket is named, which
  /// leads to the server itself. Throws InvalidConfigurationError for what is no proxy's address.
  static ProxySettings of(const URLSessionConfiguration& configuration);
};

}  // namespace tarn::detail
