#pragma once
#include <chrono>
#include <thread>

namespace tarn::test {

/// Whether the condition comes to hold within the patience of a test; for a state that changes
/// without an event that could be waited for.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace tarn::test
