#pragma once

#include <cstdint>

namespace tarn::detail {

/// What the loop tells that one of its sockets is ready. On the loop thread only.
class SocketOwner {
 public:
  virtual void socketReady(int socket, std::uint32_t events) noexcept = 0;

 protected:
  SocketOwner() = default;
  ~SocketOwner() = default;
};

}  // namespace tarn::detail
