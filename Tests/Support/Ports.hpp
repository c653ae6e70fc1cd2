#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::test {

/// A port of 127.0.0.1 that refuses connections for as long as this lives: bound, so nobody else
/// gets it, not listening.
class RefusedPort {
 public:
  RefusedPort();
  ~RefusedPort();
  RefusedPort(const RefusedPort&) = delete;
  RefusedPort& operator=(const RefusedPort&) = delete;

  std::uint16_t port() const { return port_; }
  std::string url(std::string_view path = "/") const;

 private:
  int socket_;
  std::uint16_t port_;
};

/// A port of 127.0.0.1 on which connecting neither succeeds nor fails: its queue of waiting
/// connections is full.
class UnansweredPort {
 public:
  UnansweredPort();
  ~UnansweredPort();
  UnansweredPort(const UnansweredPort&) = delete;
  UnansweredPort& operator=(const UnansweredPort&) = delete;

  std::uint16_t port() const { return port_; }
  std::string url(std::string_view path = "/") const;

 private:
  int socket_;
  std::uint16_t port_;
  std::vector<int> fillers_;
};

}  // namespace tarn::test
