#pragma once

#include <Platform/URLLoading/Curl/CredentialStore.hpp>
#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Curl/HandlePool.hpp>
#include <Platform/URLLoading/Curl/HostQueues.hpp>
#include <Platform/URLLoading/Curl/ProxySettings.hpp>
#include <Platform/URLLoading/Curl/SessionOptions.hpp>
#include <Platform/URLLoading/Detail/ResponseCache.hpp>
#include <Platform/URLLoading/URLSessionConfiguration.hpp>

#include <curl/curl.h>

#include <memory>
#include <vector>

namespace tarn::detail {

class Transfer;

/// The part of a session that lives on the loop thread: its connections, its cookies, its queues.
///
/// One libcurl multi handle a session: connections, and with them what was once trusted, are never
/// shared between sessions.
class SessionCore final : public std::enable_shared_from_this<SessionCore>,
                          public SocketOwner,
                          private Timer {
 public:
  /// Throws InvalidRequestError or InvalidConfigurationError for a configuration that can't work.
  SessionCore(Engine& engine, const URLSessionConfiguration& configuration);
  ~SessionCore() override;

  Engine& engine() noexcept { return engine_; }

  // All below: on the loop thread only.

  /// Gives the transfer a connection slot now, or when its turn comes.
  void admit(Transfer& transfer);
  /// Hands `easy` to libcurl. Throws std::bad_alloc.
  void attach(const Transfer& transfer, CURL* easy);
  /// Takes `easy` back from libcurl.
  void detach(const Transfer& transfer, CURL* easy) noexcept;
  /// What the transfers to one origin share.
  const std::shared_ptr<HostQueue>& queueOf(Origin origin) { return queues_.of(std::move(origin)); }
  /// Gives a connection slot back.
  void release(const std::shared_ptr<HostQueue>& queue);
  /// Has whoever may start at this origin started, in this round.
  void admitNext(const std::shared_ptr<HostQueue>& queue);
  /// What an answer shows of the origin: over HTTP/2 one connection carries many transfers.
  void setMultiplexed(const std::shared_ptr<HostQueue>& queue, bool multiplexed);

  /// Notes whether the handshake of a transfer waits for the delegate. So do then the transfers
  /// that libcurl lets wait for the connection.
  void setAsking(const Transfer& transfer, bool asking);
  /// When a handshake with the origin last waited for the delegate; long ago for never.
  Clock::time_point lastAsked(const HostQueue& queue) const noexcept;
  /// Has libcurl turn at once to all that is due. Not from within libcurl.
  void driveNow() noexcept;

  /// Ends the session's connections. No transfer may be left.
  void close() noexcept;

  // Called by the engine.
  void socketReady(int socket, std::uint32_t events) noexcept override;
  void serve() noexcept;

  // Called by Transfer for a new connection of it and by libcurl for one that ends.
  void socketOpened(int socket, const Transfer& transfer);
  static int socketClosed(void* self, curl_socket_t socket) noexcept;

  HandlePool& handles() noexcept { return handles_; }
  CredentialStore& credentials() noexcept { return credentials_; }
  ResponseCache& cache() noexcept { return cache_; }
  /// What the session's configuration asks of every transfer. Throws std::bad_alloc.
  void setOptions(CURL* easy, const Origin& origin) const;
  const ProxySettings& proxies() const noexcept { return proxies_; }
  const URLSessionConfiguration& configuration() const noexcept { return configuration_; }

 private:
  /// A connection without TLS; such a one is used by one transfer at a time.
  struct PlainSocket {
    int socket;
    const Transfer* user;
    bool kept = false;  // has been left by a transfer, in order to be used again
  };

  void open();
  void touch();
  void timerFired() noexcept override;
  void startWaiting() noexcept;
  void noteKeptConnection(const Transfer& transfer, CURL* easy) noexcept;
  void dropSurprisedSockets();
  void socketChanged(CURL* easy, curl_socket_t socket, int what);
  static int onSocket(CURL* easy, curl_socket_t socket, int what, void* self, void*) noexcept;
  static int onTimer(CURLM* multi, long milliseconds, void* self) noexcept;

  Engine& engine_;
  const URLSessionConfiguration configuration_;
  const int connectionsPerHost_;
  const ProxySettings proxies_;
  const HeaderLines resolverLines_;
  CURLM* multi_ = nullptr;
  CURLSH* cookies_ = nullptr;
  HandlePool handles_;  // they hold the cookies
  CredentialStore credentials_;
  ResponseCache cache_;
  HostQueues queues_;
  std::vector<PlainSocket> plainSockets_;
  Clock::time_point idleChecked_{};  // the round in which the idle ones were last seen to be quiet
  std::vector<const Transfer*> asking_;
  std::vector<std::shared_ptr<HostQueue>> movedOn_;  // where somebody may start now
  bool touched_ = false;
};

}  // namespace tarn::detail
