#include <Platform/URLLoading/Curl/Routes.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <resolv.h>
#include <unistd.h>

namespace tarn::detail {

namespace {

constexpr in_port_t domainPort = 53;

// Connecting a datagram socket looks the route up and does no more.
bool hasRoute(const sockaddr* address, socklen_t size) noexcept {
  const int socket = ::socket(address->sa_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return errno != EAFNOSUPPORT;
  const bool found = connect(socket, address, size) == 0 || !maySayNoRoute(errno);
  close(socket);
  return found;
}

bool hasRoute(const sockaddr_storage& address) noexcept {
  return hasRoute(reinterpret_cast<const sockaddr*>(&address),
                  address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
}

bool hasRoute(const char* address) noexcept {
  sockaddr_storage storage{};
  auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
  auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
  if (inet_pton(AF_INET, address, &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(domainPort);
  } else if (inet_pton(AF_INET6, address, &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(domainPort);
  }
  return hasRoute(storage);
}

// One on this machine only hands questions on.
bool isElsewhere(const sockaddr_in& server) noexcept {
  return server.sin_family == AF_INET && ntohl(server.sin_addr.s_addr) >> 24 != IN_LOOPBACKNET;
}

bool isElsewhere(const sockaddr_in6& server) noexcept {
  return server.sin6_family == AF_INET6 && !IN6_IS_ADDR_LOOPBACK(&server.sin6_addr);
}

template <class Address>
bool hasRouteTo(const Address& server) noexcept {
  return isElsewhere(server) && hasRoute(reinterpret_cast<const sockaddr*>(&server), sizeof server);
}

bool hasRouteToNameServer() noexcept {
  struct __res_state state;
  std::memset(&state, 0, sizeof state);
  if (res_ninit(&state) != 0) return false;
  bool found = false;
  for (int i = 0; i < state.nscount && !found; ++i) {
    const sockaddr_in6* v6 = state._u._ext.nsaddrs[i];
    found = hasRouteTo(state.nsaddr_list[i]) || (v6 != nullptr && hasRouteTo(*v6));
  }
  res_nclose(&state);
  return found;
}

}  // namespace

bool maySayNoRoute(int systemError) noexcept {
  return systemError == ENETUNREACH || systemError == ENETDOWN || systemError == EADDRNOTAVAIL;
}

bool hasRouteToAny(const std::vector<sockaddr_storage>& addresses) noexcept {
  return std::any_of(addresses.begin(), addresses.end(),
                     [](const auto& address) { return hasRoute(address); });
}

bool hasRouteForNames() noexcept {
  // Of a root name server, which will stay: any address of the world would do.
  return hasRoute("198.41.0.4") || hasRoute("2001:503:ba3e::2:30") || hasRouteToNameServer();
}

}  // namespace tarn::detail
