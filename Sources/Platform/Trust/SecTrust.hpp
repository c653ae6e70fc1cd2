#pragma once

#include <Platform/Trust/SecCertificate.hpp>

#include <memory>
#include <string>
#include <vector>

namespace tarn {

/// What an evaluation of trust comes to.
enum class SecTrustResultType {
  invalid = 0,
  proceed = 1,
  deny = 3,
  /// The chain ends in an anchor and nothing speaks against it.
  unspecified = 4,
  /// Not trusted as it stands: expired, not yet valid, another host, no known anchor.
  recoverableTrustFailure = 5,
  /// Never to be trusted: a broken signature, a malformed or revoked certificate.
  fatalTrustFailure = 6,
  otherError = 7,
};

/// A server's certificates and the question whether they are to be trusted for its host.
///
/// Has identity: what is set here holds for this trust alone. Callable from any thread.
class SecTrust {
 public:
  /// A trust of its own, as for a connection to `host`: the leaf comes first, what may help to find
  /// an anchor after it.
  static std::shared_ptr<SecTrust> create(std::vector<SecCertificate> chain, std::string host);

  virtual ~SecTrust() = default;
  SecTrust(const SecTrust&) = delete;
  SecTrust& operator=(const SecTrust&) = delete;

  /// As the server sent them, the leaf first.
  virtual std::vector<SecCertificate> certificates() const = 0;

  /// Replaces the custom anchors, which need not be roots. From then on the system's count no
  /// longer, unless setAnchorCertificatesOnly(false) is called after it. False where memory ran
  /// out: nothing has changed then.
  [[nodiscard]] virtual bool setAnchorCertificates(std::vector<SecCertificate> certificates) = 0;
  /// Whether the custom anchors stand alone, or the system's are trusted beside them. False as
  /// above.
  [[nodiscard]] virtual bool setAnchorCertificatesOnly(bool only) = 0;

  /// Looks at dates, signatures, purposes, the strength of keys, the host's name and the way to an
  /// anchor, now. Asks nobody, so a revocation goes unnoticed.
  virtual SecTrustResultType evaluate() = 0;

 protected:
  SecTrust() = default;
};

}  // namespace tarn
