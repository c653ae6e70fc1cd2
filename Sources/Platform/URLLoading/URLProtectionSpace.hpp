#pragma once

#include <Platform/Trust/SecTrust.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// What a challenge is about: who asks, and for what.
struct URLProtectionSpace {
  enum class AuthenticationMethod {
    serverTrust,        ///< whether the server is who it says
    clientCertificate,  ///< TLS asks for a certificate of the client
    httpBasic,          ///< a name and password (RFC 7617)
    httpDigest,         ///< a name and password, which do not cross the wire (RFC 7616)
  };

  std::string host = {};
  int port = 0;
  AuthenticationMethod authenticationMethod = AuthenticationMethod::serverTrust;
  /// Whether the proxy asks, not the server.
  bool isProxy = false;
  /// The part of the server that a name and password are for; absent for TLS.
  std::optional<std::string> realm = std::nullopt;
  /// The server's certificates; null unless the challenge is about them.
  std::shared_ptr<SecTrust> serverTrust = nullptr;
  /// The authorities from which the server takes client certificates, DER-encoded names; empty
  /// where it did not say.
  std::vector<Data> distinguishedNames = {};
};

}  // namespace tarn
