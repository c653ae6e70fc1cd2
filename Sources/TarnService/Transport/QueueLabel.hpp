#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// A queue's label: the name after this library's reverse-DNS prefix.
inline std::string queueLabel(std::string_view name) {
  return "dev.tarnservice." + std::string(name);
}

}  // namespace tarn::detail
