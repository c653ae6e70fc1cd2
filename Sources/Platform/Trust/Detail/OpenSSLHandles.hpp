#pragma once

#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Trust/SecCertificate.hpp>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace tarn::detail {

template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const noexcept {
    const NoForkScope scope;
    release(object);
  }
};

template <class T, auto release>
using Owned = std::unique_ptr<T, Release<release>>;

using OwnedCertificate = Owned<X509, X509_free>;
using OwnedKey = Owned<EVP_PKEY, EVP_PKEY_free>;
using OwnedBio = Owned<BIO, BIO_free_all>;

struct X509Handle {
  OwnedCertificate certificate;
};

struct PrivateKeyHandle {
  OwnedKey key;
};

/// Shares the ownership of a certificate that OpenSSL has read already.
SecCertificate certificate(X509* shared);

/// For a scope that calls OpenSSL: neither sees the faults that others have left in the thread's
/// error queue nor leaves any of its own. No fork meanwhile: what OpenSSL shares between threads
/// has locks of its own.
class ErrorQueueScope {
 public:
  ErrorQueueScope() noexcept;
  ~ErrorQueueScope();
  ErrorQueueScope(const ErrorQueueScope&) = delete;
  ErrorQueueScope& operator=(const ErrorQueueScope&) = delete;

 private:
  const NoForkScope noFork_;
};

}  // namespace tarn::detail
