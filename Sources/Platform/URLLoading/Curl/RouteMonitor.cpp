#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Curl/RouteMonitor.hpp>

#include <algorithm>
#include <cerrno>
#include <linux/rtnetlink.h>
#include <new>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace tarn::detail {

namespace {

// A cable that is plugged in brings a dozen messages; an attempt among them would come too early.
constexpr std::chrono::milliseconds quietTime{30};
constexpr std::chrono::milliseconds longestBurst{500};

}  // namespace

bool RouteMonitor::add(RouteWaiter& waiter) {
  if (std::find(waiters_.begin(), waiters_.end(), &waiter) != waiters_.end()) return true;
  if (socket_ < 0 && !listen()) return false;
  waiters_.push_back(&waiter);
  return true;
}

void RouteMonitor::remove(RouteWaiter& waiter) noexcept {
  if (std::erase(waiters_, &waiter) == 0 || !waiters_.empty()) return;
  engine_.timers().remove(*this);
  inBurst_ = false;
  engine_.unwatch(socket_);
  close(std::exchange(socket_, -1));
}

bool RouteMonitor::listen() {
  const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (socket < 0) return false;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(socket);
    return false;
  }
  engine_.watch(socket, EPOLLIN, *this);
  socket_ = socket;
  ++changes_;
  return true;
}

// What changed does not matter: whoever waits finds out by trying. Messages lost to a full buffer
// tell as much as those that came.
void RouteMonitor::socketReady(int socket, std::uint32_t) noexcept {
  constexpr int mostAtOnce = 256;  // the rest keeps the socket ready
  for (int i = 0; i < mostAtOnce; ++i) {
    if (recv(socket, nullptr, 0, MSG_TRUNC | MSG_DONTWAIT) < 0 && errno != ENOBUFS) break;
  }
  const auto now = engine_.now();
  if (!std::exchange(inBurst_, true)) burstEnd_ = now + longestBurst;
  try {
    engine_.timers().set(*this, std::min(now + quietTime, burstEnd_));
  } catch (const std::bad_alloc&) {
    timerFired();
  }
}

void RouteMonitor::timerFired() noexcept {
  inBurst_ = false;
  ++changes_;
  for (std::size_t i = 0; i < waiters_.size();) {
    RouteWaiter* const waiter = waiters_[i];
    waiter->routesChanged();
    if (i < waiters_.size() && waiters_[i] == waiter) ++i;  // otherwise it has left
  }
}

}  // namespace tarn::detail
