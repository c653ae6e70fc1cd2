#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <memory>

namespace tarn {

namespace detail {
class GroupCore;
}

/// A handle on a count of unfinished pieces of work, which tells when all are done.
///
/// Copies name the same group. Callable from any thread. Each enter() is balanced by one leave(),
/// before or after which the group can be used again.
class DispatchGroup {
 public:
  DispatchGroup();

  void enter() const;

  /// Ends one enter(); without one it is a fatal error.
  void leave() const;

  /// Blocks until the group is empty. A blocked shared thread is made up for by another.
  void wait() const;

  /// As wait(), for at most `limit` of real time; false when time ran out first.
  bool wait(TimeInterval limit) const;

  /// Adds `work` to `queue` once the group is empty: now, if it is.
  void notify(const DispatchQueue& queue, Work work) const;

  friend bool operator==(const DispatchGroup&, const DispatchGroup&) noexcept = default;

 private:
  std::shared_ptr<detail::GroupCore> core_;
};

}  // namespace tarn
