#include <Platform/Trust/Certificates.hpp>
#include <Platform/Trust/SecIdentity.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <functional>
#include <optional>
#include <string>

namespace tarn::test {
namespace {

using Case = SecIdentityError::Case;

const std::string passphrase = "open sesame";

class SecIdentityTests : public testing::Test {
 protected:
  // What the openssl command writes to OUT, with CERT, KEY, RSACERT, RSAKEY and PASS standing for
  // the files and passphrase of this test.
  std::string made(std::string command) const {
    const std::pair<std::string, std::string> words[] = {{"RSACERT", rsa.certFile},
                                                         {"RSAKEY", rsa.keyFile},
                                                         {"CERT", leaf.certFile},
                                                         {"KEY", leaf.keyFile},
                                                         {"PASS", "'pass:" + passphrase + "'"},
                                                         {"OUT", directory.file("out")}};
    for (const auto& [word, meaning] : words) {
      for (auto at = command.find(word); at != command.npos; at = command.find(word, at)) {
        command.replace(at, word.size(), meaning);
        at += meaning.size();
      }
    }
    outputOf("(" + command + ") 2>&1");
    return readFile(directory.file("out"));
  }
  std::optional<Case> fault(const std::function<SecIdentity()>& make) {
    std::optional<Case> found;
    try {
      make();
    } catch (const SecIdentityError& error) {
      found = error.kind();
      reason = error.message();
      EXPECT_FALSE(error.message().empty());
      EXPECT_EQ(error.message().find(passphrase), std::string::npos);
      EXPECT_EQ(error.message().find("PRIVATE"), std::string::npos);
    }
    EXPECT_EQ(ERR_peek_error(), 0u) << "left behind for the next handshake to stumble upon";
    return found;
  }
  std::optional<Case> pemFault(const std::string& chainText, const std::string& keyText,
                               const std::string& given = {}) {
    return fault([&] { return SecIdentity::fromPEM(Data(chainText), Data(keyText), given); });
  }
  std::optional<Case> pkcs12Fault(const std::string& contents,
                                  const std::string& given = passphrase) {
    return fault([&] { return SecIdentity::fromPKCS12(Data(contents), given); });
  }

  const TemporaryDirectory directory;
  TestAuthority authority;
  LeafOptions byIntermediate = LeafOptions::intermediate();
  const CertificateFiles leaf = authority.issue(byIntermediate);
  const CertificateFiles rsa = authority.issue({.key = LeafOptions::Key::rsa1024});
  const std::string certificates = readFile(leaf.certFile);
  const std::string key = readFile(leaf.keyFile);
  std::string reason;  // of the last fault
};

constexpr auto unsupported = "The private key is encrypted by a method that is not supported.";

TEST_F(SecIdentityTests, APEMIdentityHasItsWholeChain) {
  const auto identity = SecIdentity::fromPEM(Data(certificates), Data(key));
  EXPECT_EQ(identity.certificates(), certificatesOf(leaf.certFile));
  ASSERT_EQ(identity.certificates().size(), 2u);
  EXPECT_EQ(identity.certificate(), identity.certificates().front());
}

TEST_F(SecIdentityTests, EveryUsualFormOfAKeyIsRead) {
  const struct {
    const char* name;
    const char* command;
    bool isRSA;
  } rows[] = {
      {"PKCS #8", "cp KEY OUT", false},
      {"PKCS #8, RSA", "cp RSAKEY OUT", true},
      {"PKCS #1", "openssl rsa -traditional -in RSAKEY -out OUT", true},
      {"EC", "openssl ec -in KEY -out OUT", false},
      {"EC after its parameters", "openssl ecparam -name prime256v1 >OUT; openssl ec -in KEY >>OUT",
       false},
      {"after the certificates", "cat CERT KEY >OUT", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string& chain = row.isRSA ? readFile(rsa.certFile) : certificates;
    EXPECT_EQ(pemFault(chain, made(row.command)), std::nullopt);
    EXPECT_EQ(pemFault(chain, made(row.command), "of no use"), std::nullopt);
  }
}

TEST_F(SecIdentityTests, AnEncryptedKeyOpensWithItsPassphraseOnly) {
  const struct {
    const char* name;
    const char* command;
    bool isRSA;
  } rows[] = {
      {"PKCS #8, AES", "openssl pkcs8 -topk8 -v2 aes-256-cbc -in KEY -passout PASS -out OUT",
       false},
      {"PKCS #8, 3DES", "openssl pkcs8 -topk8 -v1 PBE-SHA1-3DES -in KEY -passout PASS -out OUT",
       false},
      {"EC, AES", "openssl ec -aes128 -in KEY -passout PASS -out OUT", false},
      {"PKCS #1, 3DES", "openssl rsa -traditional -des3 -in RSAKEY -passout PASS -out OUT", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string& chain = row.isRSA ? readFile(rsa.certFile) : certificates;
    const std::string encrypted = made(row.command);
    EXPECT_EQ(pemFault(chain, encrypted, passphrase), std::nullopt);
    EXPECT_EQ(pemFault(chain, encrypted, "another"), Case::wrongPassphrase);
    EXPECT_EQ(pemFault(chain, encrypted), Case::wrongPassphrase);
    EXPECT_EQ(pemFault(chain, encrypted, std::string(100'000, 'x')), Case::wrongPassphrase);
  }
}

TEST_F(SecIdentityTests, ACipherThatIsNoLongerSupportedIsSaidToBe) {
  const std::string old = made(
      "openssl pkcs8 -topk8 -v1 PBE-SHA1-RC2-40 -provider legacy -provider default "
      "-in KEY -passout PASS -out OUT");
  EXPECT_EQ(pemFault(certificates, old, passphrase), Case::unreadableKey);
  EXPECT_EQ(reason, unsupported);
  const std::string file =
      made("openssl pkcs12 -export -legacy -in CERT -inkey KEY -passout PASS -out OUT");
  EXPECT_EQ(pkcs12Fault(file), Case::unreadableKey);
  EXPECT_EQ(reason, unsupported);
}

TEST_F(SecIdentityTests, WhatIsNoPEMOfItsKindIsRefused) {
  const std::string half = certificates.substr(0, certificates.size() / 4);
  const std::string broken = "-----BEGIN CERTIFICATE-----\n!!!!\n-----END CERTIFICATE-----\n";
  const struct {
    const char* name;
    std::string certificates;
    std::string key;
    Case expected;
  } rows[] = {
      {"no certificate", "", key, Case::unreadableCertificate},
      {"garbage for certificates", "certificate", key, Case::unreadableCertificate},
      {"a key for certificates", key, key, Case::unreadableCertificate},
      {"a cut certificate", half, key, Case::unreadableCertificate},
      {"a cut second certificate", certificates + half, key, Case::unreadableCertificate},
      {"a broken second certificate", certificates + broken, key, Case::unreadableCertificate},
      {"DER", TestAuthority::der(leaf.certFile), key, Case::unreadableCertificate},
      {"much garbage", std::string(8 << 20, 'A'), key, Case::unreadableCertificate},
      {"no key", certificates, "", Case::unreadableKey},
      {"garbage for a key", certificates, "key", Case::unreadableKey},
      {"a certificate for a key", certificates, certificates, Case::unreadableKey},
      {"a cut key", certificates, key.substr(0, key.size() / 2), Case::unreadableKey},
      {"much garbage for a key", certificates, std::string(8 << 20, 'A'), Case::unreadableKey},
      {"a public key", certificates, made("openssl pkey -in KEY -pubout -out OUT"),
       Case::unreadableKey},
      {"the key of another", certificates, readFile(authority.issue().keyFile),
       Case::keyDoesNotMatch},
      {"a key of another kind", certificates, readFile(rsa.keyFile), Case::keyDoesNotMatch},
      {"the chain in the wrong order", readFile(authority.intermediateFile()) + certificates, key,
       Case::keyDoesNotMatch},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(pemFault(row.certificates, row.key), row.expected);
  }
}

// OpenSSL would ask on the terminal, or on stderr where there is none.
TEST_F(SecIdentityTests, NobodyIsAskedForAPassphrase) {
  const std::string encryptedKey = made("openssl ec -aes128 -in KEY -passout PASS -out OUT");
  std::string encryptedCertificate = certificates;
  encryptedCertificate.insert(encryptedCertificate.find('\n') + 1,
                              "Proc-Type: 4,ENCRYPTED\n"
                              "DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F\n\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(pemFault(certificates, encryptedKey), Case::wrongPassphrase);
  EXPECT_EQ(pemFault(encryptedCertificate, key), Case::unreadableCertificate);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(SecIdentityTests, APKCS12FileOpensWithItsPassphraseOnly) {
  const struct {
    const char* name;
    const char* options;
  } rows[] = {
      {"today's ciphers", ""},
      {"3DES", "-certpbe PBE-SHA1-3DES -keypbe PBE-SHA1-3DES -macalg sha1"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string file =
        made("openssl pkcs12 -export -in CERT -inkey KEY -passout PASS -out OUT " +
             std::string(row.options));
    const auto identity = SecIdentity::fromPKCS12(Data(file), passphrase);
    EXPECT_EQ(identity.certificates(), certificatesOf(leaf.certFile));
    EXPECT_EQ(pkcs12Fault(file, "another"), Case::wrongPassphrase);
    EXPECT_EQ(pkcs12Fault(file, ""), Case::wrongPassphrase);
  }
}

TEST_F(SecIdentityTests, APKCS12FileMayHaveAnEmptyPassphrase) {
  const auto file = made("openssl pkcs12 -export -in CERT -inkey KEY -passout pass: -out OUT");
  EXPECT_EQ(pkcs12Fault(file, ""), std::nullopt);
  EXPECT_EQ(pkcs12Fault(file, passphrase), Case::wrongPassphrase);
}

TEST_F(SecIdentityTests, WhatIsNoPKCS12IdentityIsRefused) {
  const auto file = made("openssl pkcs12 -export -in CERT -inkey KEY -passout PASS -out OUT");
  const struct {
    const char* name;
    std::string contents;
    Case expected;
  } rows[] = {
      {"nothing", "", Case::unreadableCertificate},
      {"garbage", "no file", Case::unreadableCertificate},
      {"PEM", certificates, Case::unreadableCertificate},
      {"cut", file.substr(0, file.size() / 2), Case::unreadableCertificate},
      {"a length beyond the bytes", "\x30\x84\x7f\xff\xff\xff" + file, Case::unreadableCertificate},
      {"much garbage", std::string(8 << 20, '\0'), Case::unreadableCertificate},
      {"without a key", made("openssl pkcs12 -export -nokeys -in CERT -passout PASS -out OUT"),
       Case::unreadableKey},
      {"without a certificate",
       made("openssl pkcs12 -export -nocerts -inkey KEY -passout PASS -out OUT"),
       Case::keyDoesNotMatch},
      {"without a checksum",
       made("openssl pkcs12 -export -nomac -in CERT -inkey KEY -passout PASS -out OUT"),
       Case::unreadableCertificate},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(pkcs12Fault(row.contents), row.expected);
  }
}

}  // namespace
}  // namespace tarn::test
