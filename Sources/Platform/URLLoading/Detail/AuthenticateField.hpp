#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::detail {

/// One way in which an answer lets its client prove who it is.
struct AuthenticateChallenge {
  std::string scheme;                                           ///< in lower case
  std::vector<std::pair<std::string, std::string>> parameters;  ///< names in lower case, unquoted

  /// The first of this name.
  std::optional<std::string_view> parameter(std::string_view name) const noexcept;
};

/// The challenges of a WWW-Authenticate or Proxy-Authenticate value, several fields joined by
/// commas (RFC 9110, 11.6.1). Reads as far as it makes sense.
std::vector<AuthenticateChallenge> parseAuthenticateField(std::string_view text);

}  // namespace tarn::detail
