#include <Platform/URLLoading/Curl/Redirects.hpp>
#include <Platform/URLLoading/Curl/SessionOptions.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <sys/un.h>

namespace tarn::detail {

namespace {

bool isHost(std::string_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
  });
}

bool isPort(std::string_view text) noexcept {
  int port = 0;
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), port);
  return fault == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

bool isHostAndPort(std::string_view text) noexcept {
  const auto colon = text.find(':');
  return colon != std::string_view::npos && isHost(text.substr(0, colon)) &&
         isPort(text.substr(colon + 1));
}

bool isAddress(int family, const std::string& text) noexcept {
  std::array<unsigned char, sizeof(in6_addr)> bytes;
  return inet_pton(family, text.c_str(), bytes.data()) == 1;
}

std::string resolverLine(const std::string& host, const std::vector<std::string>& addresses) {
  if (!isHostAndPort(host)) {
    throw InvalidConfigurationError("a resolver override is not for \"host:port\": " + host);
  }
  if (addresses.empty()) {
    throw InvalidConfigurationError("a resolver override has no address: " + host);
  }
  std::string line = host;
  char separator = ':';
  for (const auto& address : addresses) {
    line += std::exchange(separator, ',');
    if (isAddress(AF_INET, address)) {
      line += address;
    } else if (isAddress(AF_INET6, address)) {
      line.append("[").append(address).append("]");
    } else {
      throw InvalidConfigurationError("a resolver override has what is no address: " + host);
    }
  }
  return line;
}

}  // namespace

void checkConfiguration(const URLSessionConfiguration& configuration) {
  URLRequest(URL::empty()).setAllHTTPHeaderFields(configuration.httpAdditionalHeaders);
  if (const auto& path = configuration.unixDomainSocketPath) {
    if (path->empty() || path->size() >= sizeof(sockaddr_un::sun_path) ||
        path->find('\0') != std::string::npos) {
      throw InvalidConfigurationError("the path of the Unix domain socket is empty or too long");
    }
  }
  if (configuration.maximumResponseBytes.value_or(0) < 0) {
    throw InvalidConfigurationError("the most bytes of a response are less than none");
  }
}

HeaderLines resolverLines(
    const std::map<std::string, std::vector<std::string>>& resolverOverrides) {
  HeaderLines lines;
  for (const auto& [host, addresses] : resolverOverrides) {
    append(lines, resolverLine(host, addresses).c_str());
  }
  return lines;
}

URLRequest withSessionFields(URLRequest request, const URLRequest::HeaderFields& sessionFields,
                             bool elsewhere) {
  for (const auto& [name, value] : sessionFields) {
    if (request.value(name) || (elsewhere && belongsToOrigin(name))) continue;
    request.setValue(value, name);
  }
  return request;
}

}  // namespace tarn::detail
