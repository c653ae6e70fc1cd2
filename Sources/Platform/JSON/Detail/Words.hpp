#pragma once

#include <cstdint>
#include <cstring>

namespace tarn::detail {

/// Eight characters at once.
using Word = std::uint64_t;
constexpr Word ones = 0x0101010101010101;
constexpr Word highBits = 0x80 * ones;

/// From any address.
template <class W>
W load(const char* from) noexcept {
  W word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

}  // namespace tarn::detail
