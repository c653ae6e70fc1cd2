#include <Platform/URLLoading/Curl/TimerHeap.hpp>

namespace tarn::detail {

void TimerHeap::set(Timer& timer, Clock::time_point deadline) {
  if (timer.place_ == Timer::nowhere) {
    heap_.push_back(&timer);
    timer.place_ = heap_.size() - 1;
  }
  timer.deadline_ = deadline;
  moveUp(timer.place_);
  moveDown(timer.place_);
}

void TimerHeap::remove(Timer& timer) noexcept {
  const std::size_t place = timer.place_;
  if (place == Timer::nowhere) return;
  timer.place_ = Timer::nowhere;
  Timer* last = heap_.back();
  heap_.pop_back();
  if (last == &timer) return;
  put(last, place);
  moveUp(place);
  moveDown(last->place_);
}

Timer* TimerHeap::takeDue(Clock::time_point now) noexcept {
  if (heap_.empty() || earliest() > now) return nullptr;
  Timer* timer = heap_.front();
  remove(*timer);
  return timer;
}

void TimerHeap::put(Timer* timer, std::size_t place) noexcept {
  heap_[place] = timer;
  timer->place_ = place;
}

void TimerHeap::moveUp(std::size_t place) noexcept {
  Timer* timer = heap_[place];
  while (place > 0) {
    const std::size_t parent = (place - 1) / 2;
    if (heap_[parent]->deadline_ <= timer->deadline_) break;
    put(heap_[parent], place);
    place = parent;
  }
  put(timer, place);
}

void TimerHeap::moveDown(std::size_t place) noexcept {
  Timer* timer = heap_[place];
  for (;;) {
    std::size_t child = 2 * place + 1;
    if (child >= heap_.size()) break;
    if (child + 1 < heap_.size() && heap_[child + 1]->deadline_ < heap_[child]->deadline_) ++child;
    if (timer->deadline_ <= heap_[child]->deadline_) break;
    put(heap_[child], place);
    place = child;
  }
  put(timer, place);
}

}  // namespace tarn::detail
