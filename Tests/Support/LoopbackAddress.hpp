#pragma once
#include <cstdint>
#include <netinet/in.h>

namespace tarn::test {

/// 127.0.0.1 with a port, for the socket calls; 0 lets the system choose one.
inline sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace tarn::test
