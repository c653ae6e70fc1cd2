#pragma once

#include <Platform/URLLoading/Detail/AuthenticateField.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace tarn::detail {

/// Who somebody says to be.
struct Login {
  std::string user;
  std::string password;

  friend bool operator==(const Login&, const Login&) = default;
};

/// The strongest of the challenges that a name and password can answer; null for none. Digest
/// with SHA-256 comes before digest with MD5, and basic last.
const AuthenticateChallenge* strongestChallenge(
    const std::vector<AuthenticateChallenge>& challenges);

/// "Basic ..." (RFC 7617, 2).
std::string basicAuthorization(const Login& login);

/// "Digest ..." for a request of this method and target (RFC 7616, 3.4), the first one with the
/// nonce of the challenge. Only for a challenge that `strongestChallenge` answered. `clientNonce`
/// must not be used twice.
std::string digestAuthorization(const AuthenticateChallenge& challenge, const Login& login,
                                std::string_view method, std::string_view target,
                                std::string_view clientNonce);

}  // namespace tarn::detail
