#pragma once

#include <Platform/Types/URL.hpp>

#include <strings.h>

namespace tarn::detail {

/// Whether it is a file URL of this machine: its host is none or "localhost" (RFC 8089).
inline bool isLocalFile(const URL& url) {
  if (!url.isFileURL()) return false;
  const auto host = url.host().value_or("localhost");
  return host.size() == 9 && ::strncasecmp(host.c_str(), "localhost", host.size()) == 0;
}

}  // namespace tarn::detail
