#include <Platform/Trust/Detail/OpenSSLHandles.hpp>
#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/Trust/SecCertificate.hpp>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>
#include <array>
#include <new>

namespace tarn {
namespace detail {

ErrorQueueScope::ErrorQueueScope() noexcept {
  initializeTLSLibrary();
  ERR_clear_error();
}

ErrorQueueScope::~ErrorQueueScope() { ERR_clear_error(); }

SecCertificate certificate(X509* shared) {
  auto handle = std::make_shared<X509Handle>();
  X509_up_ref(shared);
  handle->certificate.reset(shared);
  return SecCertificate(std::move(handle));
}

}  // namespace detail

namespace {

using detail::ErrorQueueScope;

struct FreeText {
  void operator()(unsigned char* text) const noexcept { OPENSSL_free(text); }
};
using OwnedText = std::unique_ptr<unsigned char, FreeText>;

std::string utf8(const ASN1_STRING* string) {
  unsigned char* text = nullptr;
  const int size = ASN1_STRING_to_UTF8(&text, string);
  const OwnedText owned(text);
  if (size < 0) return {};
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)};
}

std::string subjectEntry(const X509* certificate, int kind) {
  const X509_NAME* subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, kind, -1);
  if (index < 0) return {};
  return utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
}

std::string addressText(const ASN1_OCTET_STRING* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = ASN1_STRING_length(address) == 4 ? AF_INET : AF_INET6;
  const bool isComplete = family == AF_INET || ASN1_STRING_length(address) == 16;
  if (!isComplete ||
      !::inet_ntop(family, ASN1_STRING_get0_data(address), text.data(), text.size())) {
    return {};
  }
  return text.data();
}

std::string nameText(const GENERAL_NAME* name) {
  int kind = 0;
  const void* value = GENERAL_NAME_get0_value(name, &kind);
  switch (kind) {
    case GEN_DNS:
    case GEN_EMAIL:
    case GEN_URI:
      return utf8(static_cast<const ASN1_IA5STRING*>(value));
    case GEN_IPADD:
      return addressText(static_cast<const ASN1_OCTET_STRING*>(value));
    default:
      return {};
  }
}

std::string firstAlternativeName(const X509* certificate) {
  const detail::Owned<GENERAL_NAMES, GENERAL_NAMES_free> names(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  for (int index = 0; names && index < sk_GENERAL_NAME_num(names.get()); ++index) {
    if (auto text = nameText(sk_GENERAL_NAME_value(names.get(), index)); !text.empty()) return text;
  }
  return {};
}

}  // namespace

std::optional<SecCertificate> SecCertificate::createWithData(const Data& data) {
  if (data.empty()) return std::nullopt;
  const ErrorQueueScope scope;
  const unsigned char* next = data.bytes();
  auto handle = std::make_shared<detail::X509Handle>();
  handle->certificate.reset(d2i_X509(nullptr, &next, static_cast<long>(data.size())));
  if (!handle->certificate || next != data.end()) return std::nullopt;
  return SecCertificate(std::move(handle));
}

Data SecCertificate::data() const {
  const ErrorQueueScope scope;
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(handle_->certificate.get(), &bytes);
  const OwnedText owned(bytes);
  if (size < 0) throw std::bad_alloc();
  return {bytes, static_cast<std::size_t>(size)};
}

std::string SecCertificate::subjectSummary() const {
  const ErrorQueueScope scope;
  const X509* certificate = handle_->certificate.get();
  for (const int kind : {NID_commonName, NID_organizationName}) {
    if (auto text = subjectEntry(certificate, kind); !text.empty()) return text;
  }
  return firstAlternativeName(certificate);
}

bool operator==(const SecCertificate& left, const SecCertificate& right) noexcept {
  const detail::NoForkScope scope;  // the certificate's hash may be made only now, under its lock
  return X509_cmp(left.handle_->certificate.get(), right.handle_->certificate.get()) == 0;
}

}  // namespace tarn
