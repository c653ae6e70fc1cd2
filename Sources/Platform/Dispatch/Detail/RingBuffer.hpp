#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace tarn::detail {

/// A first-in-first-out buffer that allocates only to grow, so that steady traffic costs no
/// allocation.
template <class T>
class RingBuffer {
 public:
  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  T& front() noexcept { return slots_[head_]; }

  void push(T&& value) {
    if (size_ == capacity_) grow();
    slots_[(head_ + size_) & (capacity_ - 1)] = std::move(value);
    ++size_;
  }

  T pop() {
    T value = std::move(slots_[head_]);
    head_ = (head_ + 1) & (capacity_ - 1);
    if (--size_ == 0 && capacity_ > keptCapacity) *this = RingBuffer();
    return value;
  }

  RingBuffer() = default;
  RingBuffer(const RingBuffer&) = delete;
  RingBuffer& operator=(const RingBuffer&) = delete;

 private:
  // Memory of a burst is given back once the burst is over.
  static constexpr std::size_t keptCapacity = 1024;

  RingBuffer& operator=(RingBuffer&& other) noexcept {
    slots_ = std::move(other.slots_);
    capacity_ = other.capacity_;
    head_ = other.head_;
    size_ = other.size_;
    return *this;
  }

  void grow() {
    const std::size_t capacity = capacity_ == 0 ? 4 : 2 * capacity_;
    auto slots = std::make_unique<T[]>(capacity);
    for (std::size_t i = 0; i < size_; ++i) {
      slots[i] = std::move(slots_[(head_ + i) & (capacity_ - 1)]);
    }
    slots_ = std::move(slots);
    capacity_ = capacity;
    head_ = 0;
  }

  std::unique_ptr<T[]> slots_;
  std::size_t capacity_ = 0;  // a power of two
  std::size_t head_ = 0;
  std::size_t size_ = 0;
};

}  // namespace tarn::detail
