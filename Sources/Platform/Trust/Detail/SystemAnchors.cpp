#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Trust/Detail/SystemAnchors.hpp>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <cstdlib>

namespace tarn::detail {

namespace {

// Where the usual distributions keep their bundle; the first that can be read is taken.
constexpr std::array<const char*, 4> bundles{
    "/etc/ssl/certs/ca-certificates.crt",
    "/etc/pki/tls/certs/ca-bundle.crt",
    "/etc/ssl/ca-bundle.pem",
    "/etc/ssl/cert.pem",
};

X509_STORE* loadAnchors() noexcept {
  X509_STORE* store = X509_STORE_new();
  if (store == nullptr) return nullptr;
  // With a chain that leads to an anchor which is itself signed by somebody unknown, the anchor
  // decides.
  X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_TRUSTED_FIRST);
  if (const char* file = std::getenv("SSL_CERT_FILE"); file != nullptr && *file != '\0') {
    X509_STORE_load_file(store, file);
  } else {
    for (const char* bundle : bundles) {
      if (X509_STORE_load_file(store, bundle) == 1) break;
    }
  }
  ERR_clear_error();
  return store;
}

}  // namespace

X509_STORE* systemAnchors() noexcept {
  // Never freed: connections may still use it while the process ends.
  const NoForkScope scope;  // not while it is being made
  static X509_STORE* const store = loadAnchors();
  return store;
}

}  // namespace tarn::detail
