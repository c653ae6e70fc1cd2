#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Detail/Thread.hpp>

#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarn::detail {
namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

/// Sleeps while the word holds `expected`, until the absolute monotonic time; false when that has
/// passed.
bool futexWait(std::atomic<std::uint32_t>& word, std::uint32_t expected,
               RealTime deadline) noexcept {
  timespec time{};
  if (deadline != RealTime::max()) {
    const auto nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count();
    time.tv_sec = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
    time.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
  }
  const timespec* limit = deadline == RealTime::max() ? nullptr : &time;
  return syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected, limit, nullptr,
                 FUTEX_BITSET_MATCH_ANY) == 0 ||
         errno != ETIMEDOUT;
}

// Found out as the program starts. Before that, nobody spins.
const int spinningRounds = usableProcessors() > 1 ? 64 : 0;

void pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

RealTime realTimeAfter(TimeInterval limit) noexcept {
  const RealTime now = std::chrono::steady_clock::now();
  // A century stands for ever; also keeps the sum in range.
  constexpr TimeInterval longest = std::chrono::hours(24 * 365 * 100);
  if (!(limit < longest)) return RealTime::max();
  if (limit <= TimeInterval::zero()) return now;
  return now + std::chrono::duration_cast<RealTime::duration>(limit);
}

bool Parker::parkUntil(RealTime deadline) noexcept {
  std::uint32_t state = idle;
  if (state_.compare_exchange_strong(state, parked, std::memory_order_acquire)) {
    while (state_.load(std::memory_order_acquire) == parked) {
      if (futexWait(state_, parked, deadline)) continue;
      state = parked;
      if (state_.compare_exchange_strong(state, idle, std::memory_order_acquire)) return false;
    }
  }
  state_.store(idle, std::memory_order_relaxed);
  return true;
}

bool Parker::spin() noexcept {
  // With one processor the waker could not run meanwhile.
  for (int round = 0; round < spinningRounds; ++round) {
    if (state_.load(std::memory_order_acquire) == woken) {
      state_.store(idle, std::memory_order_relaxed);
      return true;
    }
    pause();
  }
  return false;
}

void Parker::unpark() noexcept {
  // After the exchange the sleeper may be gone; waking its address is harmless then.
  if (state_.exchange(woken, std::memory_order_acq_rel) == parked) {
    syscall(SYS_futex, &state_, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, 1, nullptr, nullptr, 0);
  }
}

}  // namespace tarn::detail
