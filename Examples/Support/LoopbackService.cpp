#include <Examples/Support/LoopbackService.hpp>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <netinet/in.h>
#include <optional>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace examples {
namespace {

constexpr std::size_t maximumRequest = 64 * 1024;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The number after "Content-Length:", 0 without one.
std::size_t contentLength(std::string_view head) {
  constexpr std::string_view name = "\r\ncontent-length:";
  for (std::size_t at = 0; at + name.size() <= head.size(); ++at) {
    if (strncasecmp(head.data() + at, name.data(), name.size()) != 0) continue;
    return std::strtoul(std::string(head.substr(at + name.size(), 20)).c_str(), nullptr, 10);
  }
  return 0;
}

// Takes one request off the front of what has been received; nothing until it is whole.
std::optional<LoopbackService::Request> takeRequest(std::string& received) {
  const auto headEnd = received.find("\r\n\r\n");
  if (headEnd == std::string::npos) return std::nullopt;
  const std::size_t bodyStart = headEnd + 4;
  const std::size_t length = contentLength(std::string_view(received).substr(0, headEnd + 2));
  if (length > maximumRequest || received.size() - bodyStart < length) return std::nullopt;
  const auto methodEnd = received.find(' ');
  const auto pathEnd = received.find(' ', methodEnd + 1);
  if (pathEnd == std::string::npos || pathEnd > headEnd) return std::nullopt;
  LoopbackService::Request request{received.substr(0, methodEnd),
                                   received.substr(methodEnd + 1, pathEnd - methodEnd - 1),
                                   received.substr(bodyStart, length)};
  received.erase(0, bodyStart + length);
  return request;
}

bool sendAll(int connection, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string render(const LoopbackService::Answer& answer) {
  return "HTTP/1.1 " + std::to_string(answer.status) + " \r\nContent-Type: " + answer.contentType +
         "\r\nContent-Length: " + std::to_string(answer.body.size()) + "\r\n\r\n" + answer.body;
}

}  // namespace

LoopbackService::LoopbackService(Handler handler) : handler_(std::move(handler)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener_ < 0) fail("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, generic, size) != 0) fail("bind");
  if (::listen(listener_, 16) != 0) fail("listen");
  if (::getsockname(listener_, generic, &size) != 0) fail("getsockname");
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread(&LoopbackService::acceptConnections, this);
}

LoopbackService::~LoopbackService() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const int connection : connections_) ::shutdown(connection, SHUT_RDWR);
  }
  ::shutdown(listener_, SHUT_RDWR);  // wakes accept()
  acceptor_.join();
  for (auto& thread : threads_) thread.join();
  ::close(listener_);
}

std::string LoopbackService::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

void LoopbackService::acceptConnections() {
  for (;;) {
    const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const std::lock_guard lock(mutex_);
    if (stopping_ || connection < 0) {
      if (connection >= 0) ::close(connection);
      return;
    }
    connections_.insert(connection);
    threads_.emplace_back(&LoopbackService::serve, this, connection);
  }
}

void LoopbackService::serve(int connection) {
  std::string received;
  char buffer[4096];
  for (;;) {
    while (const auto request = takeRequest(received)) {
      const Answer answer = handler_(*request);
      if (!answer.stalls && !sendAll(connection, render(answer))) break;
    }
    const ssize_t count = ::recv(connection, buffer, sizeof(buffer), 0);
    if (count <= 0 || received.size() > maximumRequest) break;
    received.append(buffer, static_cast<std::size_t>(count));
  }
  const std::lock_guard lock(mutex_);
  connections_.erase(connection);
  ::close(connection);
}

}  // namespace examples
