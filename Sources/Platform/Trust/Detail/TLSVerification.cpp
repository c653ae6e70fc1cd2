#include <Platform/Trust/Detail/HostPolicy.hpp>
#include <Platform/Trust/Detail/OpenSSLHandles.hpp>
#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/Trust/Detail/TrustEvaluation.hpp>
#include <Platform/Types/URLError.hpp>

#include <openssl/async.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <atomic>
#include <new>
#include <utility>

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
  const auto* record = sharedRecord(ssl);
  if (record == nullptr) return;
  if (where == SSL_CB_HANDSHAKE_DONE) {
    // From now on the connection is not only the transfer's that opened it, and can't stand still.
    (*record)->questioner = nullptr;
    (*record)->established = true;
    SSL_clear_mode(const_cast<SSL*>(ssl), SSL_MODE_ASYNC);
  }
  if (where == SSL_CB_READ_ALERT && (alert & 0xFF) == SSL_AD_CLOSE_NOTIFY) {
    (*record)->endedProperly = true;
  }
}

/// False: there is no answer, and the handshake has to fail.
bool ask(TLSRecord& record, TLSQuestion question) noexcept {
  if (record.questioner == nullptr) return false;
  record.question = question;
  record.questioner->questionPosed(record);
  // libcurl may turn to the handshake before there is an answer.
  while (record.question != TLSQuestion::none && ASYNC_get_current_job() != nullptr) {
    record.paused = true;
    ASYNC_pause_job();
    record.paused = false;
  }
  record.refusedToAsk = record.question != TLSQuestion::none;
  return !record.refusedToAsk && record.questioner != nullptr;
}

std::vector<SecCertificate> chainOf(X509_STORE_CTX* context) {
  std::vector<SecCertificate> chain;
  const STACK_OF(X509)* sent = X509_STORE_CTX_get0_untrusted(context);
  for (int index = 0; index < sk_X509_num(sent); ++index) {
    chain.push_back(certificate(sk_X509_value(sent, index)));
  }
  if (chain.empty()) chain.push_back(certificate(X509_STORE_CTX_get0_cert(context)));
  return chain;
}

void meetServer(X509_STORE_CTX* context, TLSRecord& record) {
  const auto* ssl =
      static_cast<SSL*>(X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
  // The name that went out is the one that was dialled; for an address none goes out.
  const char* name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
  if (name != nullptr) record.host = name;
  auto chain = chainOf(context);
  // A server may have the handshake of a connection in use repeated; it must not be another then.
  if (chain == record.chain) return;
  record.chain = std::move(chain);
  record.verified = false;
}

// Runs on a small stack, so that no more is done here than taking the chain: the judgement is the
// questioner's to have made.
int verifyCertificate(X509_STORE_CTX* context, void* argument) noexcept {
  auto& record = *static_cast<TLSRecord*>(argument);
  try {
    meetServer(context, record);
  } catch (const std::bad_alloc&) {
    X509_STORE_CTX_set_error(context, X509_V_ERR_OUT_OF_MEM);
    return 0;
  }
  const bool decided = record.verified || ask(record, TLSQuestion::serverTrust);
  // libcurl looks at this again.
  X509_STORE_CTX_set_error(context,
                           decided ? record.certificateError : X509_V_ERR_APPLICATION_VERIFICATION);
  // What is left in OpenSSL's error queue would be taken for a fault of the protocol.
  ERR_clear_error();
  return decided && record.certificateError == X509_V_OK ? 1 : 0;
}

std::vector<Data> namesOf(const STACK_OF(X509_NAME) * names) {
  std::vector<Data> encoded;
  for (int index = 0; index < sk_X509_NAME_num(names); ++index) {
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
    if (X509_NAME_get0_der(sk_X509_NAME_value(names, index), &bytes, &size) == 1) {
      encoded.emplace_back(bytes, size);
    }
  }
  return encoded;
}

bool use(SSL* ssl, const SecIdentity& identity) noexcept {
  const auto& chain = identity.certificates();
  bool used = SSL_use_certificate(ssl, chain.front().handle().certificate.get()) == 1 &&
              SSL_use_PrivateKey(ssl, identity.privateKey().key.get()) == 1 &&
              SSL_clear_chain_certs(ssl) == 1;
  for (std::size_t index = 1; used && index < chain.size(); ++index) {
    used = SSL_add1_chain_cert(ssl, chain[index].handle().certificate.get()) == 1;
  }
  return used;
}

int certificateWanted(SSL* ssl, void* argument) noexcept {
  auto& record = *static_cast<TLSRecord*>(argument);
  record.clientCertificateRequested = true;
  if (!record.clientDecided && record.questioner != nullptr) {
    try {
      record.authorities = namesOf(SSL_get0_peer_CA_list(ssl));
    } catch (const std::bad_alloc&) {
      return 0;
    }
    if (!ask(record, TLSQuestion::clientCertificate)) return 0;
  }
  return !record.identity || use(ssl, *record.identity) ? 1 : 0;
}

std::atomic<bool> handshakesPause{true};

}  // namespace

void TLSRecord::decide(int fault) noexcept {
  certificateErrorText = X509_verify_cert_error_string(fault);
  certificateError = fault;
  verified = true;
  question = TLSQuestion::none;
}

void TLSRecord::judgeServer() {
  const ErrorQueueScope scope;
  decide(certificateFault(chain, host, systemAnchors()));
}

void TLSRecord::trustServer() noexcept {
  const ErrorQueueScope scope;
  const bool named = isIssuedFor(chain.front().handle().certificate.get(), host);
  decide(named ? X509_V_OK : X509_V_ERR_HOSTNAME_MISMATCH);
}

void TLSRecord::refuseServer() {
  judgeServer();
  if (certificateError == X509_V_OK) decide(X509_V_ERR_CERT_REJECTED);
}

void TLSRecord::present(std::optional<SecIdentity> certificate) {
  identity = std::move(certificate);
  clientDecided = true;
  question = TLSQuestion::none;
}

void TLSRecord::giveUp() noexcept {
  questioner = nullptr;
  question = TLSQuestion::none;
}

void TLSRecord::answerAs(const TLSRecord& other) {
  if (other.isProxy != isProxy || other.chain != chain) return;
  if (question == TLSQuestion::serverTrust && other.verified) decide(other.certificateError);
  if (question == TLSQuestion::clientCertificate && other.clientDecided) present(other.identity);
}

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
  if (recordIndex() < 0) return false;
  auto* shared = new (std::nothrow) SharedRecord(record);
  if (shared == nullptr) return false;
  if (SSL_CTX_set_ex_data(context, recordIndex(), shared) != 1) {
    delete shared;
    return false;
  }
  SSL_CTX_set_cert_verify_callback(context, verifyCertificate, record.get());
  SSL_CTX_set_cert_cb(context, certificateWanted, record.get());
  SSL_CTX_set_info_callback(context, stateChanged);
  if (handshakesPause && ASYNC_is_capable() == 1) SSL_CTX_set_mode(context, SSL_MODE_ASYNC);
  // Who asks for a version as old as these means it: nothing of theirs is allowed at a higher
  // level. Keys and digests of certificates are judged apart from it.
  const long oldest = SSL_CTX_get_min_proto_version(context);
  if (oldest == TLS1_VERSION || oldest == TLS1_1_VERSION) SSL_CTX_set_security_level(context, 0);
  return true;
}

void setHandshakesPause(bool pause) noexcept { handshakesPause = pause; }

std::shared_ptr<const TLSRecord> recordOfConnection(const void* ssl) noexcept {
  const auto* record = sharedRecord(static_cast<const SSL*>(ssl));
  return record != nullptr ? *record : nullptr;
}

}  // namespace tarn::detail
