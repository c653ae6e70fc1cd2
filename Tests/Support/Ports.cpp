#include <Support/LoopbackAddress.hpp>
#include <Support/Ports.hpp>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::test {
namespace {

[[noreturn]] void fail(const char* call) {
  throw std::runtime_error(std::string(call) + ": " + std::strerror(errno));
}

int boundSocket() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) fail("socket");
  const sockaddr_in address = loopback(0);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(socket);
    fail("bind");
  }
  return socket;
}

std::uint16_t portOf(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) fail("getsockname");
  return ntohs(address.sin_port);
}

std::string urlOf(std::uint16_t port, std::string_view path) {
  return "http://127.0.0.1:" + std::to_string(port) + std::string(path);
}

}  // namespace

RefusedPort::RefusedPort() : socket_(boundSocket()), port_(portOf(socket_)) {}
RefusedPort::~RefusedPort() { ::close(socket_); }
std::string RefusedPort::url(std::string_view path) const { return urlOf(port_, path); }

UnansweredPort::UnansweredPort() : socket_(boundSocket()), port_(portOf(socket_)) {
  if (::listen(socket_, 0) != 0) fail("listen");
  // The kernel keeps one connection more than asked for; the first that stays unanswered proves the
  // queue full.
  constexpr int attempts = 8;
  constexpr int answerMilliseconds = 200;
  const sockaddr_in address = loopback(port_);
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (filler < 0) fail("socket");
    fillers_.push_back(filler);
    if (::connect(filler, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS) {
      fail("connect");
    }
    pollfd wanted{filler, POLLOUT, 0};
    if (::poll(&wanted, 1, answerMilliseconds) == 0) return;
  }
  fail("the queue of waiting connections does not fill");
}

UnansweredPort::~UnansweredPort() {
  for (const int filler : fillers_) ::close(filler);
  ::close(socket_);
}

std::string UnansweredPort::url(std::string_view path) const { return urlOf(port_, path); }

}  // namespace tarn::test
