#pragma once
#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tarn::test {

/// Takes connections, asks each what its protocol says, and then passes bytes both ways to one port
/// of 127.0.0.1, wherever the client wanted to go.
class Relay {
 public:
  /// tunnel: CONNECT of HTTP/1.1.
  enum class Protocol { none, tunnel, socks4, socks5 };

  /// On a port of 127.0.0.1. Throws std::runtime_error when it cannot be opened.
  Relay(Protocol protocol, std::uint16_t target);
  /// On a Unix domain socket.
  Relay(const std::string& path, std::uint16_t target);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  std::uint16_t port() const { return port_; }
  /// "scheme://127.0.0.1:PORT"
  std::string url(std::string_view scheme) const;
  /// Where the clients wanted to go: "host:port", in order of arrival; empty without a protocol.
  std::vector<std::string> wanted() const;
  /// What clients were sent in all.
  std::size_t bytesToClients() const { return bytesToClients_; }
  /// From now on clients are sent nothing more.
  void fallSilent() { silent_ = true; }

 private:
  void start();
  void accept();
  void serve(int client);
  std::string negotiate(int client) const;

  const Protocol protocol_;
  const std::uint16_t target_;
  const int listener_;
  std::uint16_t port_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> wanted_;
  std::atomic<bool> ending_{false};
  std::atomic<bool> silent_{false};
  std::atomic<std::size_t> bytesToClients_{0};
  std::vector<int> sockets_;  // closed at the end
  std::list<std::thread> connections_;
  std::thread acceptor_;
};

}  // namespace tarn::test
