#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

#include "Workload.hpp"

namespace bench {

/// The requests of a run that wait for a connection, oldest first. Whenever one is over the next
/// one comes, so that the same number is under way until all were.
class RequestQueue {
 public:
  using Clock = Recorder::Clock;

  RequestQueue(std::size_t requests, std::size_t inFlight) : left_(requests) {
    for (std::size_t index = 0; index < inFlight; ++index) add();
  }

  /// When the next request was queued; null when none is left.
  std::optional<Clock::time_point> take() {
    const std::lock_guard lock(mutex_);
    if (queued_.empty()) return std::nullopt;
    const auto time = queued_.front();
    queued_.pop_front();
    return time;
  }

  void finish() {
    const std::lock_guard lock(mutex_);
    add();
  }

 private:
  void add() {
    if (left_ == 0) return;
    --left_;
    queued_.push_back(Clock::now());
  }

  std::mutex mutex_;
  std::deque<Clock::time_point> queued_;
  std::size_t left_;
};

}  // namespace bench
