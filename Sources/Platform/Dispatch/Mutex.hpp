#pragma once

#include <Platform/Dispatch/ForkSafety.hpp>

#include <mutex>

// Clang's -Wthread-safety reads these; other compilers see nothing.
#if defined(__clang__)
#define TARN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TARN_THREAD_ANNOTATION(x)
#endif

/// On a class: its objects are locks.
#define TARN_CAPABILITY TARN_THREAD_ANNOTATION(capability("mutex"))
/// On a class: its objects hold a lock from construction to destruction.
#define TARN_SCOPED_CAPABILITY TARN_THREAD_ANNOTATION(scoped_lockable)
/// On a data member: read and written only with the lock held.
#define TARN_GUARDED_BY(x) TARN_THREAD_ANNOTATION(guarded_by(x))
/// On a pointer member: what it points to is read and written only with the lock held.
#define TARN_PT_GUARDED_BY(x) TARN_THREAD_ANNOTATION(pt_guarded_by(x))
/// On a function: called with the locks held.
#define TARN_REQUIRES(...) TARN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// On a function: called without the locks, which it takes itself or which user code below it may
/// want.
#define TARN_EXCLUDES(...) TARN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define TARN_ACQUIRE(...) TARN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TARN_RELEASE(...) TARN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TARN_TRY_ACQUIRE(...) TARN_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/// On a function: not analysed; a comment at its place says why it is right.
#define TARN_NO_THREAD_SAFETY_ANALYSIS TARN_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace tarn {

/// A std::mutex that Clang's thread-safety analysis knows, and that no other thread holds in a
/// child of fork(). Held for short stretches, never while user code runs.
class TARN_CAPABILITY Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() TARN_ACQUIRE() {
    detail::NoForkScope::enter();
    mutex_.lock();
  }
  void unlock() TARN_RELEASE() {
    mutex_.unlock();
    detail::NoForkScope::leave();
  }
  bool try_lock() TARN_TRY_ACQUIRE(true) {
    detail::NoForkScope::enter();
    if (mutex_.try_lock()) return true;
    detail::NoForkScope::leave();
    return false;
  }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for a scope; unlock() and lock() open a gap in it.
class TARN_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TARN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() TARN_RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() TARN_RELEASE() {
    held_ = false;
    mutex_.unlock();
  }
  void lock() TARN_ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

}  // namespace tarn
