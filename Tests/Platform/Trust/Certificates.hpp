#pragma once
#include <Platform/Trust/SecCertificate.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>

#include <string>
#include <vector>

namespace tarn::test {

/// The certificates of a PEM file.
inline std::vector<SecCertificate> certificatesOf(const std::string& pemFile) {
  const TemporaryDirectory directory;
  const std::string text = readFile(pemFile);
  std::vector<SecCertificate> certificates;
  for (std::size_t start = 0; start != text.npos;) {
    const std::size_t next = text.find("-----BEGIN CERTIFICATE", start + 1);
    const std::string one = directory.file("certificate.pem");
    writeFile(one, text.substr(start, next == text.npos ? next : next - start));
    certificates.push_back(SecCertificate::createWithData(Data(TestAuthority::der(one))).value());
    start = next;
  }
  return certificates;
}

}  // namespace tarn::test
