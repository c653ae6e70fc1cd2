#pragma once

#include <Platform/Trust/SecCertificate.hpp>
#include <Platform/Types/Error.hpp>

#include <memory>
#include <string>
#include <vector>

namespace tarn {

namespace detail {
struct PrivateKeyHandle;
}

/// A certificate or key that can't be read, with the reason in its message; never with a part of
/// the key or the passphrase.
class SecIdentityError final : public CodedError {
 public:
  enum class Case { unreadableCertificate, unreadableKey, wrongPassphrase, keyDoesNotMatch };

  SecIdentityError(Case kind, std::string message) : case_(kind), message_(std::move(message)) {}

  Case kind() const noexcept { return case_; }
  std::string message() const override { return message_; }
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(case_); }

 private:
  Case case_;
  std::string message_;
};

/// Who a client is: a certificate with its private key, and the certificates between it and an
/// authority. A cheap copyable value; callable from any thread.
class SecIdentity {
 public:
  /// From PEM texts (RFC 7468): the leaf first, the rest of its chain after it; a key in any of the
  /// usual forms, encrypted or not. Throws SecIdentityError.
  static SecIdentity fromPEM(const Data& certificates, const Data& privateKey,
                             const std::string& passphrase = {});
  /// From a PKCS #12 file's contents (RFC 7292), which must have a checksum (MAC). Ciphers that
  /// OpenSSL counts as legacy, such as RC2, are not read. Throws SecIdentityError.
  static SecIdentity fromPKCS12(const Data& contents, const std::string& passphrase);

  const SecCertificate& certificate() const noexcept { return certificates_.front(); }
  /// The leaf first.
  const std::vector<SecCertificate>& certificates() const noexcept { return certificates_; }

  // For this library.
  const detail::PrivateKeyHandle& privateKey() const noexcept { return *privateKey_; }

 private:
  SecIdentity(std::vector<SecCertificate> certificates,
              std::shared_ptr<const detail::PrivateKeyHandle> privateKey)
      : certificates_(std::move(certificates)), privateKey_(std::move(privateKey)) {}

  std::vector<SecCertificate> certificates_;
  std::shared_ptr<const detail::PrivateKeyHandle> privateKey_;
};

}  // namespace tarn
