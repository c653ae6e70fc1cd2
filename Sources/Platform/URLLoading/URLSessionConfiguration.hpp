#pragma once

#include <Platform/Types/TimeInterval.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

namespace tarn {

/// How a session behaves. Copied when the session is made; later changes have no effect on it.
struct URLSessionConfiguration {
  /// Cookies, credentials and caches private to the session, in memory only, gone with it.
  static URLSessionConfiguration ephemeral() { return {}; }

  /// Whether a task without a route to its host waits for one instead of failing. Default false.
  bool waitsForConnectivity = false;
  /// Seconds without progress before a task fails with URLError::timedOut; a request's own value
  /// wins where it is not the default one. Does not count while the task waits for a connection
  /// slot of its host, is suspended, or the delegate is behind. Default 60.
  TimeInterval timeoutIntervalForRequest{60};
  /// Seconds from the start of a task until it must be done, whatever its progress. Default 7 days.
  TimeInterval timeoutIntervalForResource{7.0 * 24 * 60 * 60};
  URLRequest::CachePolicy requestCachePolicy = URLRequest::CachePolicy::useProtocolCachePolicy;
  /// Connections to one origin at the same time; further tasks wait, first in, first out.
  /// Default 6.
  int httpMaximumConnectionsPerHost = 6;
};

}  // namespace tarn
