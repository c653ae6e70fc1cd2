#pragma once

#include <Platform/Dispatch/Detail/Parker.hpp>
#include <Platform/Dispatch/Mutex.hpp>

#include <vector>

namespace tarn::detail {

/// The threads that wait for something guarded by a mutex, the longest waiting first.
class WaitList {
 public:
  bool empty() const noexcept { return parkers_.empty(); }

  /// Blocks the calling thread, with the mutex released, until it is called; false when `deadline`
  /// passed first.
  bool wait(Mutex& mutex, RealTime deadline) TARN_REQUIRES(mutex);

  /// Calls the longest waiting thread, which must exist.
  void callFirst() noexcept;
  void callAll() noexcept;

 private:
  std::vector<Parker*> parkers_;
};

}  // namespace tarn::detail
