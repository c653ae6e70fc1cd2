#pragma once

#include <array>
#include <cstddef>
#include <new>
#include <type_traits>

namespace tarn::detail {

#if defined(TARN_SANITIZED)
constexpr std::size_t mostRecycled = 0;  // or the use of what is gone would pass unnoticed
#else
constexpr std::size_t mostRecycled = 64;
#endif

/// Base of a class whose objects come and go in bursts: each thread keeps the memory of up to
/// `most` that it destroyed for the next that it makes.
///
/// glibc's heap caches seven blocks of a size for a thread. What goes beyond that it merges with
/// free neighbours and cuts up again, among all the blocks that a session keeps. Not for objects
/// that outlive a thread's function: what is destroyed after its spare memory is, leaks.
template <class Object, std::size_t most = mostRecycled>
class Recycled {
 public:
  static void* operator new(std::size_t size) {
    static_assert(std::is_final_v<Object>, "Each block has the size of an object.");
    static_assert(alignof(Object) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    return spare_.count > 0 ? spare_.blocks[--spare_.count] : ::operator new(size);
  }

  static void operator delete(void* block) noexcept {
    if (spare_.count == most) return ::operator delete(block);
    spare_.blocks[spare_.count++] = block;
  }

 protected:
  Recycled() = default;
  ~Recycled() = default;

 private:
  struct Spare {
    ~Spare() {
      while (count > 0) ::operator delete(blocks[--count]);
    }

    std::size_t count = 0;
    std::array<void*, most> blocks;
  };

  static inline thread_local constinit Spare spare_{};
};

}  // namespace tarn::detail
