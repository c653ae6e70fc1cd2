#pragma once

#include <Platform/Trust/SecCertificate.hpp>
#include <Platform/Trust/SecIdentity.hpp>
#include <Platform/Types/Data.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn::detail {

struct TLSRecord;

/// What a handshake has to know before it goes on.
enum class TLSQuestion { none, serverTrust, clientCertificate };

/// Whom a handshake asks.
class TLSQuestioner {
 public:
  /// `record.question` has been opened. Called amid the handshake, on a stack of few kilobytes: it
  /// may be answered here where no more than memory is needed, and else is to be noted.
  virtual void questionPosed(TLSRecord& record) noexcept = 0;

 protected:
  ~TLSQuestioner() = default;
};

/// One TLS connection: what its handshake showed and what was decided on it. On the thread that
/// drives the connection only.
struct TLSRecord {
  /// Whom the certificate has to name; where the handshake itself tells a name, that one.
  std::string host;
  bool isProxy = false;  ///< the server is a proxy on the way to the one that is wanted

  /// Null once the handshake is over: nobody is asked any more, and a server on whom nothing has
  /// been decided is refused.
  TLSQuestioner* questioner = nullptr;
  TLSQuestion question = TLSQuestion::none;  ///< open
  /// The handshake stands still inside the TLS library. The connection must not be closed now.
  bool paused = false;
  /// It could not stand still, and failed with the question open.
  bool refusedToAsk = false;

  std::vector<SecCertificate> chain;      ///< as the server sent it, the leaf first
  bool verified = false;                  ///< it was decided whether to trust the chain
  int certificateError = 0;               ///< X509_V_OK, or why not
  const char* certificateErrorText = "";  ///< OpenSSL's words for it

  bool clientCertificateRequested = false;
  std::vector<Data> authorities;  ///< from which a certificate is asked for, DER-encoded names
  bool clientDecided = false;     ///< it was decided which certificate to present
  std::optional<SecIdentity> identity;  ///< none for none

  bool established = false;    ///< the handshake is over
  bool endedProperly = false;  ///< the server said that nothing more comes (close_notify)

  // The answers. Each closes the question; a handshake that stands still takes notice when libcurl
  // turns to it the next time.
  /// By the system's anchors and the host's name.
  void judgeServer();
  /// Whoever signed the certificate, as long as it names the host.
  void trustServer() noexcept;
  void refuseServer();
  void present(std::optional<SecIdentity> certificate);
  /// No answer comes any more: the handshake has to fail.
  void giveUp() noexcept;
  /// Answers the open question as `other` was answered, where that was about the same server.
  void answerAs(const TLSRecord& other);

  /// The URLError code for a certificate that was refused.
  std::int32_t errorCode() const noexcept;

 private:
  void decide(int fault) noexcept;
};

/// Sets the TLS library up, before anyone else in this process does where that can be.
void initializeTLSLibrary() noexcept;

/// Makes an SSL_CTX ask the record's questioner whether to trust the server and for a certificate
/// of the client, and keep the record up to date; the context shares its ownership. False where
/// memory ran out: the connection must not be made then.
///
/// A handshake stands still until it is answered, and the thread that drives it goes on meanwhile.
/// Where the system can't do that it fails instead, and is to be made again with the answer.
bool configureTLSContext(void* sslContext, const std::shared_ptr<TLSRecord>& record) noexcept;

/// For tests: false makes the handshakes of later connections fail instead of standing still.
void setHandshakesPause(bool pause) noexcept;

/// The record of the connection that an SSL belongs to; null where it was not set up here.
std::shared_ptr<const TLSRecord> recordOfConnection(const void* ssl) noexcept;

}  // namespace tarn::detail
