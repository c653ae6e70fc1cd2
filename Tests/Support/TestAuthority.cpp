#include <Support/TestAuthority.hpp>

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <atomic>
#include <ctime>
#include <stdexcept>
#include <string>
#include <utility>

namespace tarn::test {
namespace {

template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};
using CertificatePtr = std::unique_ptr<X509, Release<X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using BioPtr = std::unique_ptr<BIO, Release<BIO_free_all>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;

[[noreturn]] void fail(const char* what) {
  std::array<char, 256> reason{};
  ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
  throw std::runtime_error(std::string("test authority: ") + what + ": " + reason.data());
}

void check(bool success, const char* what) {
  if (!success) fail(what);
}

struct Identity {
  CertificatePtr certificate;
  KeyPtr key;
};

KeyPtr makeKey(LeafOptions::Key kind) {
  KeyPtr key(kind == LeafOptions::Key::ec256 ? EVP_EC_gen("P-256")
                                             : EVP_RSA_gen(static_cast<std::size_t>(1024)));
  check(key != nullptr, "making a key");
  return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
  check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension");
}

CertificatePtr blankCertificate(const std::string& commonName, EVP_PKEY* key,
                                std::chrono::seconds notBefore, std::chrono::seconds notAfter) {
  CertificatePtr certificate(X509_new());
  check(certificate != nullptr, "making a certificate");
  X509* x509 = certificate.get();
  const std::unique_ptr<BIGNUM, Release<BN_free>> serial(BN_new());
  // Random: two runs, or two authorities of one run, must not issue the same number under one name.
  check(serial && BN_rand(serial.get(), 120, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
            BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x509)) &&
            X509_set_version(x509, X509_VERSION_3) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(x509), static_cast<long>(notBefore.count())) &&
            X509_gmtime_adj(X509_getm_notAfter(x509), static_cast<long>(notAfter.count())) &&
            X509_NAME_add_entry_by_NID(X509_get_subject_name(x509), NID_commonName, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.c_str()),
                                       -1, -1, 0) == 1 &&
            X509_set_pubkey(x509, key) == 1,
        "filling a certificate");
  return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
  check(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
            X509_sign(certificate, issuerKey, EVP_sha256()) > 0,
        "signing a certificate");
}

/// `issuer` null: signs itself.
Identity makeAuthority(const std::string& name, const Identity* issuer,
                       std::chrono::seconds notAfter = std::chrono::hours(720)) {
  Identity identity;
  identity.key = makeKey(LeafOptions::Key::ec256);
  identity.certificate =
      blankCertificate(name, identity.key.get(), std::chrono::hours(-24), notAfter);
  X509* own = identity.certificate.get();
  X509* signer = issuer ? issuer->certificate.get() : own;
  addExtension(own, signer, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(own, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(own, signer, NID_subject_key_identifier, "hash");
  if (issuer) addExtension(own, signer, NID_authority_key_identifier, "keyid");
  sign(own, signer, issuer ? issuer->key.get() : identity.key.get());
  return identity;
}

std::string alternativeNames(const LeafOptions& options) {
  std::string names;
  for (const std::string& name : options.dnsNames) names += ",DNS:" + name;
  for (const std::string& address : options.addresses) names += ",IP:" + address;
  return names.empty() ? names : names.substr(1);
}

void corruptSignature(X509* certificate) {
  const ASN1_BIT_STRING* signature = nullptr;
  X509_get0_signature(&signature, nullptr, certificate);
  // The last byte is part of a number inside the signature: the certificate stays well-formed.
  const_cast<ASN1_BIT_STRING*>(signature)->data[signature->length - 1] ^= 1;
}

Identity makeLeaf(const LeafOptions& options, const Identity* issuer) {
  Identity leaf;
  leaf.key = makeKey(options.key);
  leaf.certificate =
      blankCertificate(options.commonName, leaf.key.get(), options.notBefore, options.notAfter);
  X509* own = leaf.certificate.get();
  X509* signer = issuer ? issuer->certificate.get() : own;
  addExtension(own, signer, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(own, signer, NID_ext_key_usage,
               options.purpose == LeafOptions::Purpose::server ? "serverAuth" : "clientAuth");
  if (const std::string names = alternativeNames(options); !names.empty()) {
    addExtension(own, signer, NID_subject_alt_name, names);
  }
  sign(own, signer, issuer ? issuer->key.get() : leaf.key.get());
  if (options.corruptSignature) corruptSignature(own);
  return leaf;
}

std::string takeText(BIO* bio) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio, &text);
  return {text, static_cast<std::size_t>(size)};
}

std::string pem(const Identity& identity) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  check(bio && PEM_write_bio_X509(bio.get(), identity.certificate.get()) == 1,
        "writing a certificate");
  return takeText(bio.get());
}

std::string keyPem(const Identity& identity) {
  const BioPtr bio(BIO_new(BIO_s_mem()));
  check(bio && PEM_write_bio_PrivateKey(bio.get(), identity.key.get(), nullptr, nullptr, 0, nullptr,
                                        nullptr) == 1,
        "writing a key");
  return takeText(bio.get());
}

// A name that no other authority of the process has: OpenSSL looks for issuers by their names.
std::string ownName(const std::string& name) {
  static std::atomic<int> made = 0;
  return name + " " + std::to_string(++made);
}

}  // namespace

LeafOptions LeafOptions::expired() {
  LeafOptions options;
  options.notBefore = std::chrono::hours(-48);
  options.notAfter = std::chrono::hours(-24);
  return options;
}

LeafOptions LeafOptions::notYetValid() {
  LeafOptions options;
  options.notBefore = std::chrono::hours(24);
  options.notAfter = std::chrono::hours(48);
  return options;
}

LeafOptions LeafOptions::wrongHost() {
  LeafOptions options;
  options.commonName = "elsewhere.example";
  options.dnsNames = {"elsewhere.example"};
  options.addresses = {"192.0.2.1"};
  return options;
}

LeafOptions LeafOptions::commonNameOnly() {
  LeafOptions options;
  options.dnsNames = {};
  options.addresses = {};
  return options;
}

LeafOptions LeafOptions::selfSigned() {
  LeafOptions options;
  options.signer = Signer::itself;
  return options;
}

LeafOptions LeafOptions::unknownRoot() {
  LeafOptions options;
  options.signer = Signer::unknownRoot;
  return options;
}

LeafOptions LeafOptions::intermediate(bool includeChain) {
  LeafOptions options;
  options.signer = Signer::intermediate;
  options.includeChain = includeChain;
  return options;
}

LeafOptions LeafOptions::client(std::string name) {
  LeafOptions options;
  options.commonName = std::move(name);
  options.dnsNames = {};
  options.addresses = {};
  options.purpose = Purpose::client;
  return options;
}

class TestAuthority::Impl {
 public:
  const Identity* signer(LeafOptions::Signer wish) const {
    switch (wish) {
      case LeafOptions::Signer::root:
        return &root;
      case LeafOptions::Signer::intermediate:
        return &intermediate;
      case LeafOptions::Signer::expiredIntermediate:
        return &expiredIntermediate;
      case LeafOptions::Signer::unknownRoot:
        return &unknownRoot;
      case LeafOptions::Signer::plainLeaf:
        return &plainLeaf;
      case LeafOptions::Signer::itself:
        return nullptr;
    }
    return nullptr;
  }

  Identity root = makeAuthority(ownName("Test Root"), nullptr);
  Identity intermediate = makeAuthority("Test Intermediate", &root);
  Identity expiredIntermediate =
      makeAuthority("Expired Intermediate", &root, std::chrono::hours(-1));
  Identity unknownRoot = makeAuthority(ownName("Unknown Root"), nullptr);
  Identity plainLeaf = makeLeaf({.commonName = "plain.example"}, &root);
  int issued = 0;
};

TestAuthority::TestAuthority() : impl_(std::make_unique<Impl>()) {
  writeFile(caFile(), pem(impl_->root));
  writeFile(intermediateFile(), pem(impl_->intermediate));
  writeFile(unknownCaFile(), pem(impl_->unknownRoot));
}

TestAuthority::~TestAuthority() = default;

std::string TestAuthority::caFile() const { return directory_.file("root.pem"); }
std::string TestAuthority::intermediateFile() const { return directory_.file("intermediate.pem"); }
std::string TestAuthority::unknownCaFile() const { return directory_.file("unknown-root.pem"); }

CertificateFiles TestAuthority::issue(const LeafOptions& options) {
  const Identity* issuer = impl_->signer(options.signer);
  const Identity leaf = makeLeaf(options, issuer);
  const bool isRoot = issuer == nullptr || issuer == &impl_->root || issuer == &impl_->unknownRoot;
  const std::string name = "leaf" + std::to_string(++impl_->issued);
  CertificateFiles files{directory_.file(name + ".pem"), directory_.file(name + "-key.pem")};
  const std::string chain = options.includeChain && !isRoot ? pem(*issuer) : "";
  writeFile(files.certFile, pem(leaf) + chain);
  writeFile(files.keyFile, keyPem(leaf));
  return files;
}

std::string TestAuthority::der(const std::string& pemFile) {
  const std::string text = readFile(pemFile);
  const BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const CertificatePtr certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)
                                       : nullptr);
  check(certificate != nullptr, "reading a certificate");
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate.get(), &bytes);
  check(size > 0, "encoding a certificate");
  std::string result(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
  OPENSSL_free(bytes);
  return result;
}

}  // namespace tarn::test
