#pragma once

#include <Platform/URLLoading/Curl/TimerHeap.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>

#include <deque>
#include <unordered_map>

namespace tarn::detail {

class Transfer;

/// Who may use a connection to which origin now, first in, first out. libcurl's own queue is not in
/// order.
///
/// On the loop thread only.
class HostQueues {
 public:
  explicit HostQueues(int connectionsPerHost) noexcept : connectionLimit_(connectionsPerHost) {}

  /// Puts a transfer at the end of its origin's queue.
  void enter(const Origin& origin, Transfer& transfer);
  bool hasWaiting(const Origin& origin) const noexcept;
  /// Takes a waiting transfer out.
  void leave(const Origin& origin, Transfer& transfer) noexcept;
  /// Gives a slot back.
  void release(const Origin& origin) noexcept;
  /// The next transfer that may start now, with its slot; null for none. Suspended ones keep their
  /// place.
  Transfer* next(const Origin& origin) noexcept;
  /// What an answer shows of the origin: over HTTP/2 one connection carries many transfers. True
  /// where that is news.
  bool setMultiplexed(const Origin& origin, bool multiplexed) noexcept;
  /// A question that a connection to the origin waited for is closed.
  void questionClosed(const Origin& origin, Clock::time_point now) noexcept;
  /// When that was the last time, while anybody uses the origin; else long ago.
  Clock::time_point lastQuestion(const Origin& origin) const noexcept;

 private:
  struct Queue {
    int active = 0;
    bool multiplexed = false;
    Clock::time_point lastQuestion = Clock::time_point::min();
    std::deque<Transfer*> waiting;
  };

  int limit(const Queue& queue) const noexcept;

  int connectionLimit_;
  std::unordered_map<Origin, Queue, OriginHash> queues_;
};

}  // namespace tarn::detail
