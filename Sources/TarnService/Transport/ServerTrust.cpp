#include <Platform/Types/URLError.hpp>
#include <Tambour/File.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Transport/ServerTrust.hpp>

#include <optional>

namespace tarn::detail {
namespace {

std::optional<SecCertificate> readCertificate(const URL& file) {
  try {
    return SecCertificate::createWithData(File(file).asData());
  } catch (const URLError&) {
    return std::nullopt;
  }
}

}  // namespace

bool isTrustedWith(const std::vector<URL>& certificateFiles, SecTrust& trust) {
  constexpr auto location = SourceLocation::in("validate(session:didReceive:completionHandler:)");
  for (const auto& file : certificateFiles) {
    const auto certificate = readCertificate(file);
    if (!certificate) continue;
    // One at a time, each in place of the one before: kept, the last file is the one that counts.
    if (!trust.setAnchorCertificates({*certificate})) {
      logger().error("Failed loading debug certificate " + file.description(), {}, {}, location);
    }
    if (!trust.setAnchorCertificatesOnly(false)) {
      logger().error("Failed SecTrustSetAnchorCertificatesOnly", {}, {}, location);
    }
  }
  return trust.evaluate() == SecTrustResultType::unspecified;
}

}  // namespace tarn::detail
