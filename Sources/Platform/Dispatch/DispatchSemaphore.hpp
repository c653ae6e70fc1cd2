#pragma once

#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <cstdint>
#include <memory>

namespace tarn {

namespace detail {
class SemaphoreCore;
}

/// A handle on a counting semaphore, on which waiters are served in the order in which they came.
///
/// Copies name the same semaphore. Callable from any thread. A blocked shared thread is made up for
/// by another.
class DispatchSemaphore {
 public:
  /// A negative value asks for as many signals before the first waiter can pass.
  explicit DispatchSemaphore(std::int64_t value);

  void signal() const;
  void wait() const;

  /// As wait(), for at most `limit` of real time (none or negative: only looks); false when time
  /// ran out first.
  bool wait(TimeInterval limit) const;

  /// As wait(), for at most the span that `deadline` is ahead of DispatchTime::now() at the call.
  bool wait(DispatchTime deadline) const;

  friend bool operator==(const DispatchSemaphore&, const DispatchSemaphore&) noexcept = default;

 private:
  std::shared_ptr<detail::SemaphoreCore> core_;
};

}  // namespace tarn
