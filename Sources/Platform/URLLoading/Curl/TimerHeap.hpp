#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace tarn::detail {

using Clock = std::chrono::steady_clock;

/// What is called at a deadline. On the loop thread only; destroyed only while it is not in a heap.
class Timer {
 public:
  Timer() = default;
  virtual ~Timer() = default;
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  virtual void timerFired() noexcept = 0;

 private:
  friend class TimerHeap;
  static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

  std::size_t place_ = nowhere;
};

/// Deadlines in order. A timer knows its place, so that moving and removing it needs no search.
class TimerHeap {
 public:
  /// Sets or moves the deadline of `timer`.
  void set(Timer& timer, Clock::time_point deadline);
  void remove(Timer& timer) noexcept;
  bool empty() const noexcept { return heap_.empty(); }
  std::size_t size() const noexcept { return heap_.size(); }
  Clock::time_point earliest() const noexcept { return heap_.front().deadline; }
  /// Takes out the first timer whose deadline has passed; null for none.
  Timer* takeDue(Clock::time_point now) noexcept;

 private:
  /// The deadline stands here, so that a comparison does not touch the timer.
  struct Entry {
    Clock::time_point deadline;
    Timer* timer;
  };

  void put(Entry entry, std::size_t place) noexcept;
  void moveUp(std::size_t place) noexcept;
  void moveDown(std::size_t place) noexcept;

  std::vector<Entry> heap_;
};

}  // namespace tarn::detail
