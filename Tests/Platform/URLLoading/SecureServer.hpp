#pragma once
#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/TestAuthority.hpp>

namespace tarn::test {

/// An HTTPS server that answers "hello", with a certificate of the authority.
struct SecureServer : ScriptedServer {
  explicit SecureServer(const LeafOptions& leaf = {}, const TLSOptions& options = {})
      : ScriptedServer(certified(options, trustedAuthority().issue(leaf))) {
    route("/", Script().respond(200, {}, "hello"));
  }

 private:
  static TLSOptions certified(TLSOptions options, const CertificateFiles& files) {
    options.certFile = files.certFile;
    options.keyFile = files.keyFile;
    return options;
  }
};

template <class Options>
Options with(void (*change)(Options&)) {
  Options options;
  change(options);
  return options;
}

inline TLSOptions versions(TLSVersion minimum, TLSVersion maximum) {
  TLSOptions options;
  options.minimum = minimum;
  options.maximum = maximum;
  return options;
}

inline TLSOptions asking(ClientCertificate certificate, TLSOptions options = {}) {
  options.clientCertificate = certificate;
  options.clientCaFile = trustedAuthority().caFile();
  return options;
}

/// How handshakes ask, within the scope: by waiting for the answer, or by being repeated with it.
class HandshakeWay {
 public:
  explicit HandshakeWay(bool pause) { detail::setHandshakesPause(pause); }
  ~HandshakeWay() { detail::setHandshakesPause(true); }
  HandshakeWay(const HandshakeWay&) = delete;
  HandshakeWay& operator=(const HandshakeWay&) = delete;
};

}  // namespace tarn::test
