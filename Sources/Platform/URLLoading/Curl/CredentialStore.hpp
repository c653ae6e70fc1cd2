#pragma once

#include <Platform/URLLoading/Curl/Origin.hpp>
#include <Platform/URLLoading/Detail/Authorization.hpp>
#include <Platform/URLLoading/URLProtectionSpace.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::detail {

/// What a name and password are for. The method belongs to it: one that was only ever shown as a
/// digest is not given away because an answer asks for basic.
struct LoginSpace {
  bool isProxy = false;
  Origin origin;
  URLProtectionSpace::AuthenticationMethod method{};
  std::optional<std::string> realm;

  friend bool operator==(const LoginSpace&, const LoginSpace&) = default;
};

/// The names and passwords that have let requests of one session through; in memory only.
///
/// On the loop thread only.
class CredentialStore {
 public:
  std::optional<Login> find(const LoginSpace& space) const {
    for (const auto& [known, login] : entries_) {
      if (known == space) return login;
    }
    return std::nullopt;
  }

  void keep(const LoginSpace& space, const Login& login) {
    std::erase_if(entries_, [&space](const auto& entry) { return entry.first == space; });
    entries_.emplace_back(space, login);
  }

  /// Forgets it if that is what is known.
  void forget(const LoginSpace& space, const Login& login) {
    std::erase(entries_, std::pair(space, login));
  }

 private:
  std::vector<std::pair<LoginSpace, Login>> entries_;
};

}  // namespace tarn::detail
