#pragma once

#include <Platform/Types/TimeInterval.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tarn::detail {

using RealTime = std::chrono::steady_clock::time_point;

/// The end of a wait of at most `limit` from now; RealTime::max() for limits beyond what the clock
/// can tell.
RealTime realTimeAfter(TimeInterval limit) noexcept;

/// What one thread sleeps on until another lets it go on; a wake-up that comes first is remembered.
///
/// Made for the sleeper's stack: the waker touches it for the last time in the step that lets the
/// sleeper go.
class Parker {
 public:
  Parker() = default;
  Parker(const Parker&) = delete;
  Parker& operator=(const Parker&) = delete;

  void park() noexcept { parkUntil(RealTime::max()); }

  /// False when `deadline` passed first; no wake-up is consumed then.
  bool parkUntil(RealTime deadline) noexcept;

  /// Waits a few microseconds without giving up the processor; true, as park(), when woken
  /// meanwhile.
  bool spin() noexcept;

  void unpark() noexcept;

 private:
  enum State : std::uint32_t { idle, parked, woken };

  std::atomic<std::uint32_t> state_ = idle;
};

}  // namespace tarn::detail
