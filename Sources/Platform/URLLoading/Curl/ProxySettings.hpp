#pragma once

#include <string>

namespace tarn::detail {

/// The proxies that the environment asks for; empty text stands for none.
struct ProxySettings {
  std::string http;
  std::string https;
  std::string exceptions;  ///< hosts to reach directly, separated by commas

  /// From http_proxy, https_proxy, all_proxy and no_proxy, or their upper-case forms. HTTP_PROXY is
  /// left out: in a CGI program it is what the remote side sent as header field `Proxy`.
  static ProxySettings fromEnvironment();
};

}  // namespace tarn::detail
