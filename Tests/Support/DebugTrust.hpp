#pragma once

#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>
#include <TarnService/Settings.hpp>

#include <string>

namespace tarn::test {

/// The certificate of a PEM file is among TarnService::debugCertificateURLs, as the only one, for
/// as long as this exists.
class DebugTrust {
 public:
  explicit DebugTrust(const std::string& pemFile) {
    const std::string anchor = directory_.file("anchor.der");
    writeFile(anchor, TestAuthority::der(pemFile));
    TarnService::debugCertificateURLs = {URL::fileURL(anchor)};
  }
  ~DebugTrust() { TarnService::debugCertificateURLs.reset(); }
  DebugTrust(const DebugTrust&) = delete;
  DebugTrust& operator=(const DebugTrust&) = delete;

 private:
  const TemporaryDirectory directory_;
};

}  // namespace tarn::test
