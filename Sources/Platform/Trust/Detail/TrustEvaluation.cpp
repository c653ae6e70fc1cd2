#include <Platform/Trust/Detail/HostPolicy.hpp>
#include <Platform/Trust/Detail/OpenSSLHandles.hpp>
#include <Platform/Trust/Detail/TrustEvaluation.hpp>

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace tarn::detail {

namespace {

using OwnedContext = Owned<X509_STORE_CTX, X509_STORE_CTX_free>;

void freeStack(STACK_OF(X509) * stack) { sk_X509_free(stack); }
using OwnedStack = Owned<STACK_OF(X509), freeStack>;

/// How strong keys and digests must be: what a handshake asks for.
int securityLevel() {
  static const int level = [] {
    const Owned<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_client_method()));
    return context ? SSL_CTX_get_security_level(context.get()) : 2;
  }();
  return level;
}

}  // namespace

int certificateFault(const std::vector<SecCertificate>& chain, const std::string& host,
                     X509_STORE* anchors) {
  const OwnedContext context(X509_STORE_CTX_new());
  const OwnedStack others(sk_X509_new_null());
  if (anchors == nullptr || !context || !others) return X509_V_ERR_OUT_OF_MEM;
  if (chain.empty()) return X509_V_ERR_INVALID_CALL;
  for (const auto& certificate : chain) {
    if (sk_X509_push(others.get(), certificate.handle().certificate.get()) == 0) {
      return X509_V_ERR_OUT_OF_MEM;
    }
  }
  X509* leaf = chain.front().handle().certificate.get();
  if (X509_STORE_CTX_init(context.get(), anchors, leaf, others.get()) != 1 ||
      X509_STORE_CTX_set_default(context.get(), "ssl_server") != 1) {
    return X509_V_ERR_OUT_OF_MEM;
  }
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(context.get()), securityLevel());
  if (!requireHost(context.get(), host)) return X509_V_ERR_HOSTNAME_MISMATCH;
  if (X509_verify_cert(context.get()) == 1) return X509_V_OK;
  const int fault = X509_STORE_CTX_get_error(context.get());
  return fault == X509_V_OK ? X509_V_ERR_UNSPECIFIED : fault;
}

}  // namespace tarn::detail
