#include <Platform/URLLoading/Curl/TimerHeap.hpp>

namespace tarn::detail {

void TimerHeap::set(Timer& timer, Clock::time_point deadline) {
  if (timer.place_ == Timer::nowhere) {
    heap_.push_back({deadline, &timer});
    timer.place_ = heap_.size() - 1;
  }
  heap_[timer.place_].deadline = deadline;
  moveUp(timer.place_);
  moveDown(timer.place_);
}

void TimerHeap::remove(Timer& timer) noexcept {
  const std::size_t place = timer.place_;
  if (place == Timer::nowhere) return;
  timer.place_ = Timer::nowhere;
  const Entry last = heap_.back();
  heap_.pop_back();
  if (last.timer == &timer) return;
  put(last, place);
  moveUp(place);
  moveDown(last.timer->place_);
}

Timer* TimerHeap::takeDue(Clock::time_point now) noexcept {
  if (heap_.empty() || earliest() > now) return nullptr;
  Timer* timer = heap_.front().timer;
  remove(*timer);
  return timer;
}

void TimerHeap::put(Entry entry, std::size_t place) noexcept {
  heap_[place] = entry;
  entry.timer->place_ = place;
}

void TimerHeap::moveUp(std::size_t place) noexcept {
  const Entry entry = heap_[place];
  while (place > 0) {
    const std::size_t parent = (place - 1) / 2;
    if (heap_[parent].deadline <= entry.deadline) break;
    put(heap_[parent], place);
    place = parent;
  }
  put(entry, place);
}

void TimerHeap::moveDown(std::size_t place) noexcept {
  const Entry entry = heap_[place];
  for (;;) {
    std::size_t child = 2 * place + 1;
    if (child >= heap_.size()) break;
    if (child + 1 < heap_.size() && heap_[child + 1].deadline < heap_[child].deadline) ++child;
    if (entry.deadline <= heap_[child].deadline) break;
    put(heap_[child], place);
    place = child;
  }
  put(entry, place);
}

}  // namespace tarn::detail
