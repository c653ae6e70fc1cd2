#pragma once

#include <unistd.h>
#include <utility>

namespace tarn::detail {

/// An open file descriptor, closed at the end of its owner.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (isOpen()) ::close(number_);
  }

  bool isOpen() const noexcept { return number_ >= 0; }
  int get() const noexcept { return number_; }
  int release() noexcept { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace tarn::detail
