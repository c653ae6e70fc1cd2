#pragma once

namespace tarn::test {

/// How often a loop runs that hunts for rare moments: `count` times, or a third of that with
/// sanitizers, where a round takes many times longer.
constexpr int rounds(int count) noexcept {
#if defined(TARN_ADDRESS_SANITIZER) || defined(TARN_THREAD_SANITIZER)
  return (count + 2) / 3;
#else
  return count;
#endif
}

}  // namespace tarn::test
