#include "BenchServer.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <unordered_map>

namespace bench {
namespace {

constexpr std::string_view answer =
    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 27\r\n\r\n"
    "{\"id\": 42, \"name\": \"bench\"}";

int listenOnLoopback(int& port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (listener < 0 || ::bind(listener, generic, size) != 0 || ::listen(listener, 256) != 0 ||
      ::getsockname(listener, generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "bench server");
  }
  port = ntohs(address.sin_port);
  return listener;
}

// Answers each request head in what has come; false once the client is gone.
bool serve(int connection, std::string& received) {
  char buffer[16384];
  const ssize_t count = ::recv(connection, buffer, sizeof(buffer), 0);
  if (count <= 0) return false;
  received.append(buffer, static_cast<std::size_t>(count));
  std::string answers;
  for (std::size_t end; (end = received.find("\r\n\r\n")) != std::string::npos;) {
    received.erase(0, end + 4);
    answers += answer;
  }
  return answers.empty() || ::send(connection, answers.data(), answers.size(), MSG_NOSIGNAL) ==
                                ssize_t(answers.size());
}

// For a client that is kept on the first one; no effect where there is only one.
void leaveFirstProcessor() {
  cpu_set_t processors;
  if (::sched_getaffinity(0, sizeof processors, &processors) != 0) return;
  CPU_CLR(0, &processors);
  ::sched_setaffinity(0, sizeof processors, &processors);
}

[[noreturn]] void run(int listener) {
  const int poll = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{EPOLLIN, {.fd = listener}};
  ::epoll_ctl(poll, EPOLL_CTL_ADD, listener, &event);
  std::unordered_map<int, std::string> received;
  epoll_event events[64];
  for (;;) {
    const int count = ::epoll_wait(poll, events, 64, -1);
    for (int index = 0; index < count; ++index) {
      const int fd = events[index].data.fd;
      if (fd == listener) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const int on = 1;
        ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        event = {EPOLLIN, {.fd = connection}};
        ::epoll_ctl(poll, EPOLL_CTL_ADD, connection, &event);
      } else if (!serve(fd, received[fd])) {
        received.erase(fd);
        ::close(fd);
      }
    }
  }
}

}  // namespace

BenchServer::BenchServer() {
  const int listener = listenOnLoopback(port_);
  child_ = ::fork();
  if (child_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    leaveFirstProcessor();
    run(listener);
  }
  ::close(listener);
}

BenchServer::~BenchServer() {
  ::kill(child_, SIGKILL);
  ::waitpid(child_, nullptr, 0);
}

std::string BenchServer::url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

}  // namespace bench
