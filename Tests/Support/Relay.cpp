#include <Support/LoopbackAddress.hpp>
#include <Support/Relay.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tarn::test {
namespace {

int opened(int domain) {
  const int socket = ::socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) throw std::runtime_error(std::string("socket: ") + std::strerror(errno));
  return socket;
}

void send(int socket, std::string_view bytes) {
  static_cast<void>(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

// Ended early, the text is short.
std::string take(int socket, std::size_t size) {
  std::string bytes(size, '\0');
  const auto count = ::recv(socket, bytes.data(), size, MSG_WAITALL);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

// Without the end mark.
std::string takeUntil(int socket, std::string_view end) {
  std::string bytes;
  while (!bytes.ends_with(end)) {
    const auto next = take(socket, 1);
    if (next.empty()) return {};
    bytes += next;
  }
  return bytes.substr(0, bytes.size() - end.size());
}

int number(char c) { return static_cast<unsigned char>(c); }

std::string portText(const std::string& bytes) {
  return ":" + std::to_string(number(bytes[0]) << 8 | number(bytes[1]));
}

std::string addressText(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) text += (text.empty() ? "" : ".") + std::to_string(number(byte));
  return text;
}

// RFC 9110, 9.3.6
std::string negotiateTunnel(int client) {
  const auto head = takeUntil(client, "\r\n\r\n");
  send(client, "HTTP/1.1 200 OK\r\n\r\n");
  const auto start = head.find(' ') + 1;
  return head.substr(start, head.find(' ', start) - start);
}

// Version, command, port, address, user; a name follows an address of 0.0.0.x.
std::string negotiateSocks4(int client) {
  const auto request = take(client, 8);
  takeUntil(client, std::string_view("\0", 1));
  const auto address = request.substr(4, 4);
  const bool byName = address.starts_with(std::string_view("\0\0\0", 3));
  const auto host = byName ? takeUntil(client, std::string_view("\0", 1)) : addressText(address);
  send(client, std::string_view("\0\x5a\0\0\0\0\0\0", 8));
  return host + portText(request.substr(2, 2));
}

// RFC 1928, without authentication
std::string negotiateSocks5(int client) {
  take(client, static_cast<std::size_t>(number(take(client, 2).at(1))));
  send(client, std::string_view("\5\0", 2));
  const auto request = take(client, 4);
  constexpr char name = 3;
  const auto host = request.at(3) == name
                        ? take(client, static_cast<std::size_t>(number(take(client, 1).at(0))))
                        : addressText(take(client, 4));
  const auto port = portText(take(client, 2));
  send(client, std::string_view("\5\0\0\1\0\0\0\0\0\0", 10));
  return host + port;
}

constexpr int nowhere = -1;

// None when the sender has ended.
std::size_t pass(int from, int to) {
  std::array<char, 16384> buffer;
  const auto count = ::recv(from, buffer.data(), buffer.size(), 0);
  if (count <= 0) return 0;
  if (to != nowhere) send(to, std::string_view(buffer.data(), static_cast<std::size_t>(count)));
  return static_cast<std::size_t>(count);
}

}  // namespace

Relay::Relay(Protocol protocol, std::uint16_t target)
    : protocol_(protocol), target_(target), listener_(opened(AF_INET)) {
  auto address = loopback(0);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("bind");
  port_ = ntohs(address.sin_port);
  start();
}

Relay::Relay(const std::string& path, std::uint16_t target)
    : protocol_(Protocol::none), target_(target), listener_(opened(AF_UNIX)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("bind");
  start();
}

void Relay::start() {
  constexpr int backlog = 128;
  if (::listen(listener_, backlog) != 0) throw std::runtime_error("listen");
  acceptor_ = std::thread([this] { accept(); });
}

Relay::~Relay() {
  ending_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  {
    const std::lock_guard lock(mutex_);
    for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
  }
  for (auto& connection : connections_) connection.join();
  for (const int socket : sockets_) ::close(socket);
  ::close(listener_);
}

std::string Relay::url(std::string_view scheme) const {
  return std::string(scheme) + "://127.0.0.1:" + std::to_string(port_);
}

std::vector<std::string> Relay::wanted() const {
  const std::lock_guard lock(mutex_);
  return wanted_;
}

void Relay::accept() {
  while (!ending_) {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    const std::lock_guard lock(mutex_);
    sockets_.push_back(client);
    connections_.emplace_back([this, client] { serve(client); });
  }
}

std::string Relay::negotiate(int client) const {
  switch (protocol_) {
    case Protocol::tunnel:
      return negotiateTunnel(client);
    case Protocol::socks4:
      return negotiateSocks4(client);
    case Protocol::socks5:
      return negotiateSocks5(client);
    case Protocol::none:
      break;
  }
  return {};
}

void Relay::serve(int client) {
  const int server = opened(AF_INET);
  std::string wanted;
  try {
    wanted = negotiate(client);
  } catch (const std::out_of_range&) {
    // The client went away.
  }
  {
    const std::lock_guard lock(mutex_);
    sockets_.push_back(server);
    wanted_.push_back(wanted);
  }
  const auto address = loopback(target_);
  if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    std::array<pollfd, 2> ends{pollfd{client, POLLIN, 0}, pollfd{server, POLLIN, 0}};
    bool open = true;
    while (open && ::poll(ends.data(), ends.size(), -1) > 0) {
      if (ends[0].revents != 0) open = pass(client, server) > 0;
      if (open && ends[1].revents != 0) {
        const auto passed = pass(server, silent_ ? nowhere : client);
        bytesToClients_ += passed;
        open = passed > 0;
      }
    }
  }
  ::shutdown(client, SHUT_RDWR);
  ::shutdown(server, SHUT_RDWR);
}

}  // namespace tarn::test
