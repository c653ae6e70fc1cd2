#include <Platform/Trust/Detail/OpenSSLHandles.hpp>
#include <Platform/Trust/SecIdentity.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <new>

namespace tarn {
namespace {

using detail::ErrorQueueScope;
using detail::OwnedBio;
using detail::OwnedCertificate;
using detail::OwnedKey;
using detail::PrivateKeyHandle;
using Case = SecIdentityError::Case;

void freeCertificates(STACK_OF(X509) * certificates) { sk_X509_pop_free(certificates, X509_free); }

struct Passphrase {
  const std::string& text;
  bool wasAsked = false;
};

// Every read from PEM needs one: without it OpenSSL asks on the terminal.
int tellPassphrase(char* buffer, int capacity, int, void* argument) noexcept {
  auto& passphrase = *static_cast<Passphrase*>(argument);
  passphrase.wasAsked = true;
  const auto& text = passphrase.text;
  if (text.size() > static_cast<std::size_t>(capacity)) return -1;
  std::ranges::copy(text, buffer);
  return static_cast<int>(text.size());
}

/// Why reading failed, from OpenSSL's error queue, which is emptied.
struct Reasons {
  Reasons() {
    while (const auto error = ERR_get_error()) {
      const int reason = ERR_GET_REASON(error);
      switch (ERR_GET_LIB(error)) {
        case ERR_LIB_PKCS12:
          passphrase = passphrase || reason == PKCS12_R_MAC_VERIFY_FAILURE ||
                       reason == PKCS12_R_PKCS12_CIPHERFINAL_ERROR;
          break;
        case ERR_LIB_EVP:
          cipher = cipher || reason == ERR_R_UNSUPPORTED || reason == EVP_R_UNKNOWN_PBE_ALGORITHM;
          break;
        case ERR_LIB_PEM:
          cipher = cipher || reason == PEM_R_UNSUPPORTED_ENCRYPTION;
          break;
        default:
          break;
      }
    }
  }

  bool cipher = false;
  bool passphrase = false;
};

[[noreturn]] void failForCipher() {
  throw SecIdentityError(Case::unreadableKey,
                         "The private key is encrypted by a method that is not supported.");
}

[[noreturn]] void failForPassphrase(const std::string& given) {
  throw SecIdentityError(
      Case::wrongPassphrase,
      given.empty() ? "The private key is encrypted, and no passphrase was given."
                    : "The passphrase does not open the private key, or the key is damaged.");
}

/// Reads from the bytes, which have to outlive it.
OwnedBio reader(const Data& data, Case kind) {
  if (data.size() > INT_MAX) throw SecIdentityError(kind, "There are too many bytes.");
  // It takes no null for no bytes.
  const void* bytes = data.empty() ? "" : static_cast<const void*>(data.bytes());
  OwnedBio bio(BIO_new_mem_buf(bytes, static_cast<int>(data.size())));
  if (!bio) throw std::bad_alloc();
  return bio;
}

std::vector<SecCertificate> readCertificates(const Data& pem) {
  const auto input = reader(pem, Case::unreadableCertificate);
  const std::string none;
  Passphrase passphrase{none};
  std::vector<SecCertificate> certificates;
  while (const OwnedCertificate next{
      PEM_read_bio_X509(input.get(), nullptr, tellPassphrase, &passphrase)}) {
    certificates.push_back(detail::certificate(next.get()));
  }
  const auto error = ERR_peek_last_error();
  const bool isAtEnd =
      ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
  if (!isAtEnd) {
    throw SecIdentityError(
        Case::unreadableCertificate,
        "Certificate " + std::to_string(certificates.size() + 1) + " of the text can't be read.");
  }
  if (certificates.empty()) {
    throw SecIdentityError(Case::unreadableCertificate, "The text holds no certificate.");
  }
  return certificates;
}

OwnedKey readKey(const Data& pem, const std::string& passphraseText) {
  const auto input = reader(pem, Case::unreadableKey);
  Passphrase passphrase{passphraseText};
  OwnedKey key(PEM_read_bio_PrivateKey(input.get(), nullptr, tellPassphrase, &passphrase));
  if (key) return key;
  if (Reasons().cipher) failForCipher();
  if (passphrase.wasAsked) failForPassphrase(passphraseText);
  throw SecIdentityError(Case::unreadableKey, "The text holds no private key that can be read.");
}

void requireMatch(const SecCertificate& leaf, const OwnedKey& key) {
  if (X509_check_private_key(leaf.handle().certificate.get(), key.get()) == 1) return;
  throw SecIdentityError(Case::keyDoesNotMatch,
                         "The private key does not belong to the first certificate.");
}

std::shared_ptr<const PrivateKeyHandle> shared(OwnedKey key) {
  return std::make_shared<PrivateKeyHandle>(PrivateKeyHandle{std::move(key)});
}

}  // namespace

SecIdentity SecIdentity::fromPEM(const Data& certificates, const Data& privateKey,
                                 const std::string& passphrase) {
  const ErrorQueueScope scope;
  auto chain = readCertificates(certificates);
  ERR_clear_error();
  auto key = readKey(privateKey, passphrase);
  requireMatch(chain.front(), key);
  return {std::move(chain), shared(std::move(key))};
}

SecIdentity SecIdentity::fromPKCS12(const Data& contents, const std::string& passphrase) {
  const ErrorQueueScope scope;
  const auto input = reader(contents, Case::unreadableCertificate);
  const detail::Owned<PKCS12, PKCS12_free> file(d2i_PKCS12_bio(input.get(), nullptr));
  if (!file) throw SecIdentityError(Case::unreadableCertificate, "The bytes are no PKCS #12 file.");
  if (PKCS12_mac_present(file.get()) != 1) {
    throw SecIdentityError(Case::unreadableCertificate,
                           "The PKCS #12 file has no checksum to tell it whole.");
  }

  EVP_PKEY* rawKey = nullptr;
  X509* rawLeaf = nullptr;
  STACK_OF(X509)* rawOthers = nullptr;
  const bool isRead =
      PKCS12_parse(file.get(), passphrase.c_str(), &rawKey, &rawLeaf, &rawOthers) == 1;
  OwnedKey key(rawKey);
  const OwnedCertificate leaf(rawLeaf);
  const detail::Owned<STACK_OF(X509), freeCertificates> others(rawOthers);
  if (!isRead) {
    const Reasons reasons;
    if (reasons.cipher) failForCipher();
    if (reasons.passphrase) failForPassphrase(passphrase);
    throw SecIdentityError(Case::unreadableCertificate, "The PKCS #12 file can't be read.");
  }
  if (!key) throw SecIdentityError(Case::unreadableKey, "The file holds no private key.");
  if (!leaf) {
    throw SecIdentityError(Case::keyDoesNotMatch,
                           "The file holds no certificate that the private key belongs to.");
  }
  std::vector<SecCertificate> chain{detail::certificate(leaf.get())};
  for (int index = 0; index < sk_X509_num(others.get()); ++index) {
    chain.push_back(detail::certificate(sk_X509_value(others.get(), index)));
  }
  return {std::move(chain), shared(std::move(key))};
}

}  // namespace tarn
