#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// The reference: GETs over a tuned libcurl multi loop (socket_action on epoll, handles and the
/// parsed URL reused, one thread, up to 6 connections), `inFlight` at a time. Answers the seconds
/// that each request took.
std::vector<double> runCurlLoop(const std::string& url, const std::vector<std::string>& headers,
                                std::size_t requests, std::size_t inFlight);

}  // namespace bench
