#include <Platform/Types/URL.hpp>
#include <Platform/URLLoading/Curl/ProxySettings.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace tarn::detail {

namespace {

std::string firstOf(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return value;
  }
  return {};
}

bool isProxy(const std::string& address) {
  constexpr std::array<std::string_view, 6> schemes{"http",    "https",  "socks4",
                                                    "socks4a", "socks5", "socks5h"};
  const auto url = URL::parse(address);
  if (!url || !url->host() || url->query() || url->fragment()) return false;
  const auto path = url->path();
  return (path.empty() || path == "/") &&
         std::find(schemes.begin(), schemes.end(), url->scheme()) != schemes.end();
}

// Its address may hold a password, so it is not repeated.
std::string checkedProxy(const std::string& address, const char* requests) {
  if (address.empty() || isProxy(address)) return address;
  throw InvalidConfigurationError(std::string("the address of the proxy for ") + requests +
                                  " requests is not that of a proxy");
}

std::string joined(const std::vector<std::string>& exceptions) {
  std::string list;
  for (const auto& host : exceptions) {
    if (host == "*") return host;  // libcurl knows it by itself only
    if (host.empty() || host.find_first_of(", \t\r\n") != std::string::npos) {
      throw InvalidConfigurationError("an exception from the proxies is no host: " + host);
    }
    if (!list.empty()) list += ',';
    list += host;
  }
  return list;
}

}  // namespace

ProxySettings ProxySettings::of(const URLSessionConfiguration& configuration) {
  if (configuration.unixDomainSocketPath) return {};
  if (!configuration.proxies) return fromEnvironment();
  const auto& proxies = *configuration.proxies;
  return {
      .http = checkedProxy(proxies.http, "http"),
      .https = checkedProxy(proxies.https, "https"),
      .exceptions = joined(proxies.exceptions),
  };
}

ProxySettings ProxySettings::fromEnvironment() {
  return {
      .http = firstOf({"http_proxy", "all_proxy", "ALL_PROXY"}),
      .https = firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}),
      .exceptions = firstOf({"no_proxy", "NO_PROXY"}),
  };
}

}  // namespace tarn::detail
