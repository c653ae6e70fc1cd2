#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Trust/Detail/OpenSSLHandles.hpp>
#include <Platform/Trust/Detail/TrustEvaluation.hpp>
#include <Platform/Trust/SecTrust.hpp>

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <new>
#include <utility>

namespace tarn {
namespace {

using SharedStore = std::shared_ptr<X509_STORE>;

/// Null where memory ran out.
SharedStore storeOf(const std::vector<SecCertificate>& anchors) {
  const detail::ErrorQueueScope scope;
  SharedStore store(X509_STORE_new(), detail::Release<X509_STORE_free>());
  if (!store) return nullptr;
  // As the system's: an anchor need not be a root, nor an authority.
  X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_TRUSTED_FIRST);
  for (const auto& anchor : anchors) {
    if (X509_STORE_add_cert(store.get(), anchor.handle().certificate.get()) != 1) return nullptr;
  }
  return store;
}

SecTrustResultType resultOf(int fault) {
  switch (fault) {
    case X509_V_OK:
      return SecTrustResultType::unspecified;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_CERT_REVOKED:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
      return SecTrustResultType::fatalTrustFailure;
    case X509_V_ERR_OUT_OF_MEM:
    case X509_V_ERR_UNSPECIFIED:
    case X509_V_ERR_INVALID_CALL:
      return SecTrustResultType::otherError;
    default:
      return SecTrustResultType::recoverableTrustFailure;
  }
}

class CertificateTrust final : public SecTrust {
 public:
  CertificateTrust(std::vector<SecCertificate> chain, std::string host)
      : chain_(std::move(chain)), host_(std::move(host)), anchors_(storeOf({})) {
    if (!anchors_) throw std::bad_alloc();
  }

  std::vector<SecCertificate> certificates() const override { return chain_; }

  bool setAnchorCertificates(std::vector<SecCertificate> certificates) override {
    auto anchors = storeOf(certificates);
    if (!anchors) return false;
    const MutexLock lock(mutex_);
    anchors_.swap(anchors);
    anchorsOnly_ = true;
    return true;
  }

  bool setAnchorCertificatesOnly(bool only) override {
    const MutexLock lock(mutex_);
    anchorsOnly_ = only;
    return true;
  }

  SecTrustResultType evaluate() override {
    const auto [anchors, anchorsOnly] = settings();
    const detail::ErrorQueueScope scope;
    const auto byCustom = resultOf(detail::certificateFault(chain_, host_, anchors.get()));
    if (byCustom == SecTrustResultType::unspecified || anchorsOnly) return byCustom;
    // A store of its own: what is added to the system's would stay there for every connection.
    const auto bySystem =
        resultOf(detail::certificateFault(chain_, host_, detail::systemAnchors()));
    if (bySystem == SecTrustResultType::unspecified) return bySystem;
    // Without its anchor a chain with a broken signature seems to lack no more than that: the worse
    // of both tells.
    return std::max(byCustom, bySystem);
  }

 private:
  std::pair<SharedStore, bool> settings() const {
    const MutexLock lock(mutex_);
    return {anchors_, anchorsOnly_};
  }

  const std::vector<SecCertificate> chain_;
  const std::string host_;
  mutable Mutex mutex_;
  SharedStore anchors_ TARN_GUARDED_BY(mutex_);
  bool anchorsOnly_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace

std::shared_ptr<SecTrust> SecTrust::create(std::vector<SecCertificate> chain, std::string host) {
  return std::make_shared<CertificateTrust>(std::move(chain), std::move(host));
}

}  // namespace tarn
