#include <Platform/Types/URL.hpp>
#include <Platform/URLLoading/Curl/ProxySettings.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
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
    if (host.empty() || host.find_first_of(", \t\r\n") != std::string::npos) {
      throw InvalidConfigurationError("an exception from the proxies is no host: " + host);
    }
    if (!list.empty()) list += ',';
    list += host;
  }
  return list;
}

// The bits of an address in text form, the first one first; empty for a name.
std::vector<bool> addressBits(std::string_view text) {
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  const std::string terminated(text);
  std::array<unsigned char, sizeof(in6_addr)> bytes;
  std::size_t size = 0;
  if (inet_pton(AF_INET, terminated.c_str(), bytes.data()) == 1) size = sizeof(in_addr);
  if (inet_pton(AF_INET6, terminated.c_str(), bytes.data()) == 1) size = sizeof(in6_addr);
  std::vector<bool> bits;
  for (std::size_t i = 0; i < size * 8; ++i) bits.push_back((bytes[i / 8] >> (7 - i % 8) & 1) != 0);
  return bits;
}

bool coversAddress(std::string_view exception, const std::vector<bool>& address) {
  const auto slash = exception.find('/');
  const auto network = addressBits(exception.substr(0, slash));
  if (network.size() != address.size()) return false;
  std::size_t length = network.size();
  if (slash != std::string_view::npos) {
    const char* const last = exception.data() + exception.size();
    const auto [end, fault] = std::from_chars(exception.data() + slash + 1, last, length);
    if (fault != std::errc() || end != last || length > network.size()) return false;
  }
  return std::equal(network.begin(), network.begin() + static_cast<std::ptrdiff_t>(length),
                    address.begin());
}

bool coversName(std::string_view exception, std::string_view host) {
  if (exception.ends_with('.')) exception.remove_suffix(1);
  if (host.ends_with('.')) host.remove_suffix(1);
  if (exception.starts_with('.')) exception.remove_prefix(1);
  if (exception.empty() || exception.size() > host.size()) return false;
  const auto above = host.size() - exception.size();
  return equalsIgnoringCase(host.substr(above), exception) &&
         (above == 0 || host[above - 1] == '.');
}

bool isException(std::string_view exceptions, const std::string& host) {
  const auto address = addressBits(host);
  while (!exceptions.empty()) {
    const auto end = std::min(exceptions.find_first_of(", \t"), exceptions.size());
    const auto exception = exceptions.substr(0, end);
    exceptions.remove_prefix(std::min(end + 1, exceptions.size()));
    if (exception == "*") return true;
    if (address.empty() ? coversName(exception, host) : coversAddress(exception, address)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string ProxySettings::proxyFor(const Origin& origin) const {
  const auto& proxy = origin.secure ? https : http;
  return proxy.empty() || isException(exceptions, origin.host) ? std::string() : proxy;
}

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
