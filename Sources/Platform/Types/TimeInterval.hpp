#pragma once

#include <chrono>

namespace tarn {

/// A span of time in seconds, as a 64-bit floating point number.
using TimeInterval = std::chrono::duration<double>;

}  // namespace tarn
