#include <Platform/Trust/Certificates.hpp>
#include <Platform/Trust/SecCertificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <string>

namespace tarn::test {
namespace {

class SecCertificateTests : public testing::Test {
 protected:
  // The DER form of a self-signed certificate, as the arguments of `openssl req` describe it.
  std::string made(const std::string& arguments) const {
    outputOf(
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -keyout " +
        directory.file("key.pem") + " -outform DER -out " + directory.file("der") + " " +
        arguments + " 2>&1");
    return readFile(directory.file("der"));
  }

  const TemporaryDirectory directory;
  TestAuthority authority;
  const std::string der = TestAuthority::der(authority.caFile());
};

TEST_F(SecCertificateTests, KeepsItsDERForm) {
  const auto certificate = SecCertificate::createWithData(Data(der));
  ASSERT_TRUE(certificate);
  EXPECT_EQ(certificate->data(), Data(der));
}

TEST_F(SecCertificateTests, IsEqualToItselfReadAgainAndToNoOther) {
  const auto root = certificatesOf(authority.caFile()).front();
  EXPECT_EQ(root, certificatesOf(authority.caFile()).front());
  EXPECT_FALSE(root == certificatesOf(authority.intermediateFile()).front());
  // The same name with another key.
  EXPECT_FALSE(root == certificatesOf(TestAuthority().caFile()).front());
}

TEST_F(SecCertificateTests, BytesThatAreNotOneCertificateGiveNone) {
  const struct {
    const char* name;
    std::string bytes;
  } rows[] = {
      {"none", ""},
      {"text", "no certificate"},
      {"PEM", readFile(authority.caFile())},
      {"cut after the first byte", der.substr(0, 1)},
      {"cut in the middle", der.substr(0, der.size() / 2)},
      {"cut before the last byte", der.substr(0, der.size() - 1)},
      {"one byte too many", der + '\0'},
      {"two", der + der},
      {"another sequence", "\x30\x03\x02\x01\x05"},
      {"a length beyond the bytes", "\x30\x84\x7f\xff\xff\xff" + der},
      {"many zero bytes", std::string(8 << 20, '\0')},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(SecCertificate::createWithData(Data(row.bytes)));
    EXPECT_EQ(ERR_peek_error(), 0u) << "left behind for the next handshake to stumble upon";
  }
}

TEST_F(SecCertificateTests, IsSummedUpByItsFirstNameForPeople) {
  const struct {
    const char* name;
    const char* arguments;
    const char* summary;
  } rows[] = {
      {"common name", "-subj '/O=Maker/CN=Device 7' -addext subjectAltName=DNS:a.example",
       "Device 7"},
      {"not ASCII", "-utf8 -subj '/CN=Bücher'", "Bücher"},
      {"organisation", "-subj '/C=DE/O=Maker' -addext subjectAltName=DNS:a.example", "Maker"},
      {"host", "-subj / -addext subjectAltName=DNS:a.example,DNS:b.example", "a.example"},
      {"address", "-subj / -addext subjectAltName=IP:192.0.2.7", "192.0.2.7"},
      {"IPv6 address", "-subj / -addext subjectAltName=IP:2001:db8::7", "2001:db8::7"},
      {"mail address", "-subj / -addext subjectAltName=email:a@b.example", "a@b.example"},
      {"nothing", "-subj /C=DE", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto certificate = SecCertificate::createWithData(Data(made(row.arguments)));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->subjectSummary(), row.summary);
  }
}

}  // namespace
}  // namespace tarn::test
