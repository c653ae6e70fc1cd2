#include <Platform/URLLoading/Detail/WallClock.hpp>

#include <atomic>

namespace tarn::detail {

namespace {

std::atomic<WallTime (*)() noexcept> wallClock{nullptr};

}  // namespace

WallTime wallTime() noexcept {
  const auto clock = wallClock.load();
  return clock != nullptr ? clock() : std::chrono::system_clock::now();
}

void setWallClock(WallTime (*clock)() noexcept) noexcept { wallClock = clock; }

}  // namespace tarn::detail
