#include <Platform/Trust/Detail/HostPolicy.hpp>
#include <Platform/Trust/Detail/SystemAnchors.hpp>
#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/Types/URLError.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <new>
#include <string_view>

namespace tarn::detail {

namespace {

using SharedRecord = std::shared_ptr<TLSRecord>;

void freeRecord(void*, void* data, CRYPTO_EX_DATA*, int, long, void*) {
  delete static_cast<SharedRecord*>(data);
}

int recordIndex() noexcept {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, freeRecord);
  return index;
}

const SharedRecord* sharedRecord(const SSL* ssl) noexcept {
  return static_cast<const SharedRecord*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), recordIndex()));
}

void stateChanged(const SSL* ssl, int where, int alert) noexcept {
  if (where != SSL_CB_READ_ALERT || (alert & 0xFF) != SSL_AD_CLOSE_NOTIFY) return;
  if (const auto* record = sharedRecord(ssl)) (*record)->endedProperly = true;
}

// The name that went out in the handshake is the one that was dialled; for an address none goes
// out.
std::string expectedHost(const SSL* ssl, const TLSRecord& record) {
  const char* name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
  return name != nullptr ? name : record.host;
}

int verifyCertificate(X509_STORE_CTX* context, void* argument) noexcept {
  auto& record = *static_cast<TLSRecord*>(argument);
  try {
    const auto* ssl = static_cast<SSL*>(
        X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const bool named = requireHost(context, expectedHost(ssl, record));
    if (!named) X509_STORE_CTX_set_error(context, X509_V_ERR_HOSTNAME_MISMATCH);
    const bool trusted = named && X509_verify_cert(context) == 1;
    record.verified = true;
    record.certificateError = trusted ? X509_V_OK : X509_STORE_CTX_get_error(context);
    record.certificateErrorText = X509_verify_cert_error_string(record.certificateError);
    // What is left in OpenSSL's error queue would be taken for a fault of the protocol.
    ERR_clear_error();
    return trusted ? 1 : 0;
  } catch (const std::bad_alloc&) {
    X509_STORE_CTX_set_error(context, X509_V_ERR_OUT_OF_MEM);
    return 0;
  }
}

int certificateWanted(SSL*, void* argument) noexcept {
  static_cast<TLSRecord*>(argument)->clientCertificateRequested = true;
  return 1;  // goes on without one
}

}  // namespace

std::int32_t TLSRecord::errorCode() const noexcept {
  switch (certificateError) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return URLError::serverCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return URLError::serverCertificateNotYetValid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return URLError::serverCertificateHasUnknownRoot;
    default:
      return URLError::serverCertificateUntrusted;
  }
}

void initializeTLSLibrary() noexcept {
  // Without a clean-up at exit, unless the application has asked for it: the first request may be
  // on its way to the network on another thread while main() returns, and the library must not be
  // taken from under it.
  OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

bool configureTLSContext(void* sslContext, const std::shared_ptr<TLSRecord>& record) noexcept {
  auto* context = static_cast<SSL_CTX*>(sslContext);
  X509_STORE* anchors = systemAnchors();
  if (anchors == nullptr || recordIndex() < 0) return false;
  auto* shared = new (std::nothrow) SharedRecord(record);
  if (shared == nullptr) return false;
  if (SSL_CTX_set_ex_data(context, recordIndex(), shared) != 1) {
    delete shared;
    return false;
  }
  // Takes precedence over the store that libcurl may put in later.
  SSL_CTX_set1_verify_cert_store(context, anchors);
  SSL_CTX_set_cert_verify_callback(context, verifyCertificate, record.get());
  SSL_CTX_set_cert_cb(context, certificateWanted, record.get());
  SSL_CTX_set_info_callback(context, stateChanged);
  return true;
}

std::shared_ptr<const TLSRecord> recordOfConnection(const void* ssl) noexcept {
  const auto* record = sharedRecord(static_cast<const SSL*>(ssl));
  return record != nullptr ? *record : nullptr;
}

}  // namespace tarn::detail
