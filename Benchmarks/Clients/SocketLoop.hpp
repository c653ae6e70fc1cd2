#pragma once

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "PlainHTTP.hpp"

namespace bench {

/// Exchanges over keep-alive connections to one server by one epoll loop on one thread.
///
/// A Job has `text()`, the bytes to send, and `finish(Answer)`. A Parser has `put(bytes)`, which
/// answers whether the answer is complete, and `take()`, which gives that and begins anew.
template <class Job, class Parser>
class SocketLoop {
 public:
  SocketLoop(const Target& target, std::size_t connections) {
    address_.sin_family = AF_INET;
    address_.sin_port = htons(target.port);
    if (::inet_pton(AF_INET, target.host.c_str(), &address_.sin_addr) != 1) fail("not an address");
    for (; connections > 0; --connections) {
      connections_.push_back(std::make_unique<Connection>());
      idle_.push_back(connections_.back().get());
    }
  }

  ~SocketLoop() {
    for (const auto& connection : connections_) {
      if (connection->socket >= 0) ::close(connection->socket);
    }
    ::close(poll_);
  }

  SocketLoop(const SocketLoop&) = delete;
  SocketLoop& operator=(const SocketLoop&) = delete;

  /// Sends at once where a connection is idle, otherwise as soon as one is.
  void submit(Job job) {
    if (idle_.empty()) return waiting_.push_back(std::move(job));
    // The one used last: its part of every cache is warm.
    Connection& connection = *idle_.back();
    idle_.pop_back();
    start(connection, std::move(job));
  }

  /// Makes `poll` return whenever this descriptor is readable.
  void watch(int descriptor) { add(descriptor, nullptr); }

  /// Waits once and handles what has happened.
  void poll() {
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(poll_, events.data(), static_cast<int>(events.size()), -1);
    for (int index = 0; index < count; ++index) {
      auto* connection = static_cast<Connection*>(events[static_cast<std::size_t>(index)].data.ptr);
      if (connection) receive(*connection);
    }
  }

 private:
  struct Connection {
    int socket = -1;
    std::optional<Job> job;
    Parser parser;
  };

  void start(Connection& connection, Job job) {
    if (connection.socket < 0) connect(connection);
    connection.job = std::move(job);
    // A request is far smaller than the socket's buffer.
    const std::string_view text = connection.job->text();
    if (::send(connection.socket, text.data(), text.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(text.size())) {
      failByErrno("send");
    }
  }

  void connect(Connection& connection) {
    connection.socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(connection.socket, reinterpret_cast<const sockaddr*>(&address_),
                  sizeof address_) != 0) {
      failByErrno("connect");
    }
    const int on = 1;
    ::setsockopt(connection.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    add(connection.socket, &connection);
  }

  void add(int descriptor, Connection* connection) {
    epoll_event event{.events = EPOLLIN, .data = {.ptr = connection}};
    if (::epoll_ctl(poll_, EPOLL_CTL_ADD, descriptor, &event) != 0) failByErrno("epoll_ctl");
  }

  void receive(Connection& connection) {
    const auto count = ::recv(connection.socket, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) failByErrno("recv");
    if (!connection.parser.put({buffer_.data(), static_cast<std::size_t>(count)})) return;
    Job job = *std::exchange(connection.job, std::nullopt);
    auto answer = connection.parser.take();
    if (waiting_.empty()) {
      idle_.push_back(&connection);
    } else {
      start(connection, std::move(waiting_.front()));
      waiting_.pop_front();
    }
    job.finish(std::move(answer));
  }

  [[noreturn]] static void failByErrno(const char* call) {
    fail(std::string(call) + ": " + std::generic_category().message(errno));
  }

  sockaddr_in address_{};
  const int poll_ = ::epoll_create1(EPOLL_CLOEXEC);
  std::vector<std::unique_ptr<Connection>> connections_;
  std::vector<Connection*> idle_;
  std::deque<Job> waiting_;
  std::array<char, 64 * 1024> buffer_;
};

}  // namespace bench
