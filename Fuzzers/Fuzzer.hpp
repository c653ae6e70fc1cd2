#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

namespace tarn::fuzz {

/// One run on an input; each fuzzer defines its own. Throws where the library breaks a promise.
void fuzzOne(std::span<const std::uint8_t> input);

inline void require(bool isKept, const char* promise) {
  if (!isKept) throw std::logic_error(promise);
}

}  // namespace tarn::fuzz
