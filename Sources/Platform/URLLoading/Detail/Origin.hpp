#pragma once

#include <Platform/Types/URL.hpp>

#include <optional>
#include <string>

namespace tarn::detail {

/// Scheme, host and port of an HTTP address.
struct Origin {
  bool secure = false;
  std::string host;  ///< in lower case
  int port = 0;

  /// Nothing unless the address is http or https and names a host.
  static std::optional<Origin> of(const URL& url);

  friend bool operator==(const Origin&, const Origin&) = default;
};

/// The path and query of an HTTP address as they are on the wire.
std::string requestTarget(const URL& url);
/// The same, added to a text.
void appendRequestTarget(std::string& text, const URL& url);

struct OriginHash {
  std::size_t operator()(const Origin& origin) const noexcept {
    return std::hash<std::string>()(origin.host) ^
           (static_cast<std::size_t>(origin.port) << 1 | (origin.secure ? 1U : 0U));
  }
};

}  // namespace tarn::detail
