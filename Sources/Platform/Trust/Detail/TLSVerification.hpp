#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tarn::detail {

/// What the TLS handshake of one connection showed. Written by the handshake, on the thread that
/// drives it.
struct TLSRecord {
  std::string host;  ///< whom the certificate has to name, where the handshake itself tells no name
  bool verified = false;             ///< the server's certificate was looked at
  int certificateError = 0;          ///< X509_V_OK or the first fault found
  std::string certificateErrorText;  ///< OpenSSL's words for it
  bool clientCertificateRequested = false;
  bool endedProperly = false;  ///< the server said that nothing more comes (close_notify)

  /// The URLError code for a certificate that was refused.
  std::int32_t errorCode() const noexcept;
};

/// Sets the TLS library up, before anyone else in this process does where that can be.
void initializeTLSLibrary() noexcept;

/// Makes an SSL_CTX judge servers by the system's anchors and by their host name, and keep `record`
/// up to date; the context shares its ownership. False where memory ran out: the connection must
/// not be made then.
///
/// This is the one place where a server is trusted or not: a decision left to the application
/// belongs in here.
bool configureTLSContext(void* sslContext, const std::shared_ptr<TLSRecord>& record) noexcept;

/// The record of the connection that an SSL belongs to; null where it was not set up here.
std::shared_ptr<const TLSRecord> recordOfConnection(const void* ssl) noexcept;

}  // namespace tarn::detail
