#pragma once

#include <sys/socket.h>
#include <vector>

namespace tarn::detail {

/// Whether this error of connect() can mean that the machine has no route.
bool maySayNoRoute(int systemError) noexcept;

/// Whether the machine has a route to one of these addresses. Asks the routing table; sends
/// nothing.
bool hasRouteToAny(const std::vector<sockaddr_storage>& addresses) noexcept;

/// Whether the machine has a route to the world or to one of its name servers: without either no
/// name can be looked up.
bool hasRouteForNames() noexcept;

}  // namespace tarn::detail
