#pragma once

#include <Platform/URLLoading/Curl/TimerHeap.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>

namespace tarn::detail {

class Transfer;

/// Who may use a connection to one origin now, first in, first out. libcurl's own queue is not in
/// order.
///
/// On the loop thread only.
class HostQueue {
 public:
  HostQueue(Origin origin, int connectionLimit)
      : origin_(std::move(origin)), connectionLimit_(connectionLimit) {}

  const Origin& origin() const noexcept { return origin_; }

  /// Puts a transfer at the end.
  void enter(Transfer& transfer) { waiting_.push_back(&transfer); }
  bool hasWaiting() const noexcept { return !waiting_.empty(); }
  /// Takes a waiting transfer out.
  void leave(Transfer& transfer) noexcept;
  /// Gives a slot back.
  void release() noexcept { --active_; }
  /// The next transfer that may start now, with its slot; null for none. Suspended ones keep their
  /// place.
  Transfer* next() noexcept;
  /// What an answer shows of the origin: over HTTP/2 one connection carries many transfers. True
  /// where that is news.
  bool setMultiplexed(bool multiplexed) noexcept;
  bool isMultiplexed() const noexcept { return multiplexed_; }
  /// How large the body of the last answer was, in bytes: most likely the next will be like it.
  void setLastBodySize(std::int64_t size) noexcept { lastBodySize_ = size; }
  std::int64_t lastBodySize() const noexcept { return lastBodySize_; }
  /// A question that a connection to the origin waited for is closed.
  void questionClosed(Clock::time_point now) noexcept { lastQuestion_ = now; }
  /// When that was the last time; long ago for never.
  Clock::time_point lastQuestion() const noexcept { return lastQuestion_; }

 private:
  int limit() const noexcept;

  const Origin origin_;
  const int connectionLimit_;
  int active_ = 0;
  bool multiplexed_ = false;
  std::int64_t lastBodySize_ = 0;
  Clock::time_point lastQuestion_ = Clock::time_point::min();
  std::deque<Transfer*> waiting_;
};

/// The queues of a session, each of which its transfers share.
class HostQueues {
 public:
  explicit HostQueues(int connectionsPerHost) noexcept : connectionLimit_(connectionsPerHost) {}

  const std::shared_ptr<HostQueue>& of(Origin origin);

 private:
  void dropUnused() noexcept;

  const int connectionLimit_;
  std::unordered_map<Origin, std::shared_ptr<HostQueue>, OriginHash> queues_;
  std::size_t mostQueues_ = 0;  // until the unused ones are dropped
};

}  // namespace tarn::detail
