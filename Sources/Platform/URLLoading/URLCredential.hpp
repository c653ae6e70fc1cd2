#pragma once

#include <Platform/Trust/SecIdentity.hpp>
#include <Platform/Trust/SecTrust.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tarn {

/// An answer to a challenge: trust in a server, a client's certificate, or a name and password. A
/// value.
class URLCredential {
 public:
  /// Trusts the server of a challenge; its name is checked all the same.
  explicit URLCredential(std::shared_ptr<SecTrust> trust) : value_(std::move(trust)) {}
  explicit URLCredential(SecIdentity identity) : value_(std::move(identity)) {}
  /// Kept for later challenges of the same session from the same server and realm once a server has
  /// taken it.
  URLCredential(std::string user, std::string password)
      : value_(Login{std::move(user), std::move(password)}) {}

  /// Null unless made from a trust.
  std::shared_ptr<SecTrust> serverTrust() const {
    const auto* trust = std::get_if<std::shared_ptr<SecTrust>>(&value_);
    return trust ? *trust : nullptr;
  }
  /// The following are absent unless made from them.
  const SecIdentity* identity() const noexcept { return std::get_if<SecIdentity>(&value_); }
  const std::string* user() const noexcept {
    const auto* login = std::get_if<Login>(&value_);
    return login ? &login->user : nullptr;
  }
  const std::string* password() const noexcept {
    const auto* login = std::get_if<Login>(&value_);
    return login ? &login->password : nullptr;
  }

 private:
  struct Login {
    std::string user;
    std::string password;
  };

  std::variant<std::shared_ptr<SecTrust>, SecIdentity, Login> value_;
};

}  // namespace tarn
