#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Orders.hpp"
#include "Workload.hpp"

namespace bench {

/// A workload's URL (`http://HOST:PORT/PATH`) and header fields in parts, for libraries that take
/// them so.
struct Target {
  explicit Target(const Workload& workload) {
    const auto& url = workload.url;
    constexpr std::size_t hostStart = std::string_view("http://").size();
    const auto colon = url.find(':', hostStart);
    const auto slash = url.find('/', hostStart);
    if (!url.starts_with("http://") || colon > slash || slash == std::string::npos) {
      throw std::invalid_argument("not http://HOST:PORT/PATH: " + url);
    }
    host = url.substr(hostStart, colon - hostStart);
    port = static_cast<std::uint16_t>(std::stoul(url.substr(colon + 1)));
    path = url.substr(slash);
    for (const auto& header : workload.headers) {
      const auto end = header.find(": ");
      if (end == std::string::npos) throw std::invalid_argument("not \"Name: value\": " + header);
      fields.emplace_back(header.substr(0, end), header.substr(end + 2));
    }
  }

  std::string authority() const { return host + ":" + std::to_string(port); }

  std::string host;
  std::uint16_t port = 0;
  std::string path;
  std::vector<std::pair<std::string, std::string>> fields;
};

/// Whether a client of plain HTTP/1.1 can do the workload.
inline bool isPlain(const Workload& workload) { return workload.name != "http2"; }

/// What the body of a `json` workload is for: the struct, by the way of nlohmann.
inline void decodeOrders(const std::string& body) {
  if (!isServedPage(decodeWithNlohmann(body))) fail("the orders are not those that were served");
}

}  // namespace bench
