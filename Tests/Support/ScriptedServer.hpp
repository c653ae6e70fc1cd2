#pragma once
#include <Support/Script.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::test {

/// How long the tests wait for something that must happen; generous because sanitizers and loaded
/// machines are slow.
inline constexpr std::chrono::milliseconds patience{15000};

/// One request as it arrived.
struct ReceivedRequest {
  std::string method;
  std::string target;    // as sent, query included
  std::string version;   // "HTTP/1.1"
  HeaderList headers;    // order and letter case as sent
  std::string body;      // chunked coding removed
  std::string rawHead;   // every byte up to and including the blank line
  int connection = 0;    // ordinal of the connection, from 0
  bool complete = true;  // false: the client went away, or the body has not been read
  std::chrono::steady_clock::time_point receivedAt;

  /// The target without its query.
  std::string path() const;
  /// The first field of this name, without regard to case.
  std::optional<std::string> header(std::string_view name) const;
  /// All fields of this name, without regard to case.
  std::vector<std::string> headerValues(std::string_view name) const;
};

/// One connection as the server saw it.
struct ConnectionRecord {
  bool open = true;
  bool closedByClient = false;  // FIN or RST arrived
  bool resetByClient = false;
  bool handshakeDone = false;     // TLS only
  std::string handshakeError;     // TLS only; empty without one
  std::string tlsVersion;         // "TLSv1.3"
  bool sessionResumed = false;    // TLS only
  std::string clientCertificate;  // subject's common name; empty without a certificate
  int requests = 0;
  std::uint64_t bytesReceived = 0;  // of HTTP, not of TLS
  std::uint64_t bytesSent = 0;
};

enum class ClientCertificate { none, request, require };
enum class TLSVersion { any, tls10, tls11, tls12, tls13 };

/// TLS of a scripted server.
struct TLSOptions {
  std::string certFile;  // PEM, chain included
  std::string keyFile;
  ClientCertificate clientCertificate = ClientCertificate::none;
  std::string clientCaFile;  // who may have signed client certificates
  TLSVersion minimum = TLSVersion::any;
  TLSVersion maximum = TLSVersion::any;
};

/// An HTTP/1.1 server on 127.0.0.1 that does what a test tells it, faults included, and records
/// what it was sent.
///
/// Every member may be called from any thread. Handlers run on the server's one thread: they must
/// not block nor call back into a wait of the server. An unknown path answers 404. Destruction
/// closes everything and joins.
class ScriptedServer {
 public:
  using Handler = std::function<Script(const ReceivedRequest&)>;
  enum class When { bodyRead, headRead };

  /// Plain HTTP. `recordRequests` false only counts, for runs of very many requests.
  explicit ScriptedServer(bool recordRequests = true);
  /// HTTPS. Throws std::runtime_error when the certificate or key cannot be used.
  explicit ScriptedServer(const TLSOptions& tls);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  /// What a request for `path` (without query) gets; replaces the earlier route.
  void route(std::string path, Script script);
  /// As `route`, but the n-th request gets the n-th script; the last one stays.
  void routeSequence(std::string path, std::vector<Script> scripts);
  /// What a request without a route gets.
  void setHandler(Handler handler, When when = When::bodyRead);
  /// What happens on each new connection before anything is read: under TLS, before the handshake.
  void onConnect(Script script);

  std::uint16_t port() const;
  /// "http(s)://127.0.0.1:PORT/path"
  std::string url(std::string_view path = "/") const;
  /// "http(s)://localhost:PORT/path"
  std::string localhostUrl(std::string_view path = "/") const;

  std::vector<ReceivedRequest> requests() const;
  /// Throws std::out_of_range when fewer have arrived.
  ReceivedRequest request(std::size_t index) const;
  std::size_t requestCount() const;
  std::vector<ConnectionRecord> connections() const;
  std::size_t connectionCount() const;
  std::size_t openConnections() const;
  /// The most that were open at one time.
  std::size_t peakConnections() const;
  std::size_t stalledConnections() const;

  // Each waits until at least `count` have been seen in all; false when `limit` passed first.
  [[nodiscard]] bool waitForRequests(std::size_t count,
                                     std::chrono::milliseconds limit = patience) const;
  [[nodiscard]] bool waitForConnections(std::size_t count,
                                        std::chrono::milliseconds limit = patience) const;
  /// Connections of which the client's FIN or RST has arrived.
  [[nodiscard]] bool waitForConnectionsClosed(std::size_t count,
                                              std::chrono::milliseconds limit = patience) const;
  /// Scripts that stand in `stall` now.
  [[nodiscard]] bool waitForStalls(std::size_t count,
                                   std::chrono::milliseconds limit = patience) const;
  /// Waits until at most `count` connections are open.
  [[nodiscard]] bool waitForOpenConnections(std::size_t count,
                                            std::chrono::milliseconds limit = patience) const;
  /// Waits until `condition` of the connection's record holds.
  [[nodiscard]] bool waitForConnection(
      std::size_t ordinal, const std::function<bool(const ConnectionRecord&)>& condition,
      std::chrono::milliseconds limit = patience) const;

  /// Waits until at least `count` scripts stand in `stall`, and lets every one go on. Throws
  /// std::runtime_error when they do not come to it: what a client has read tells only that the
  /// step before is done.
  void releaseStalls(std::size_t count = 1);
  /// Closes (FIN) every open connection, whatever it is doing; they are closed when this returns.
  void closeConnections();
  /// Stops listening: further connections are refused. Open ones go on.
  void stopListening();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tarn::test
