#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct ssl_ctx_st;
struct ssl_st;

namespace tarn::test {

/// How a client's TLS side is set up.
struct RawTLSOptions {
  std::string caFile;
  std::string host = "localhost";
  std::string certFile;  // the client's own certificate, PEM
  std::string keyFile;
  std::string protocols;          // offered by ALPN, in wire form: "\x02h2"
  bool offerOldVersions = false;  // TLS 1.0 and up
};

/// A blocking TCP or TLS client of 127.0.0.1 that sends and reads bytes as they are, to look at a
/// server without the library in between. Every read is bounded by `patience`.
class RawClient {
 public:
  /// How a read ended that met neither its end mark nor its count.
  enum class End { none, closed, reset, truncated, timedOut, failed };

  /// Throws std::runtime_error when the connection is not made.
  explicit RawClient(std::uint16_t port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// The error number of a connection attempt that gives up after `limitMilliseconds` (ETIMEDOUT);
  /// 0 on success.
  static int tryConnect(std::uint16_t port, int limitMilliseconds);

  /// False when the handshake failed. The verification result and the protocol are known after it
  /// in any case.
  bool handshake(const RawTLSOptions& options);
  /// X509_V_OK or the error of the server's chain, as OpenSSL sees it.
  long verifyResult() const;
  /// What ALPN agreed on.
  std::string protocol() const;

  /// False when the server has closed the connection.
  bool send(std::string_view bytes);
  /// GET with Host and nothing else.
  bool get(std::string_view target);
  /// Up to and including `mark`; whatever came when the connection ends first.
  std::string readUntil(std::string_view mark);
  std::string read(std::size_t count);
  std::string readToEnd();
  /// One whole answer with Content-Length (none: no body), as text.
  std::string readResponse();
  End end() const { return end_; }
  /// Bytes are there to read, right now.
  bool hasInput() const;

  void finishSending();
  void close();
  /// Closes with RST.
  void reset();

 private:
  bool fill();

  int socket_;
  ssl_ctx_st* context_ = nullptr;
  ssl_st* ssl_ = nullptr;
  std::string buffer_;
  End end_ = End::none;
};

}  // namespace tarn::test
