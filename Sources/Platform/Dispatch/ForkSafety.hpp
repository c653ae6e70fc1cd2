#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// What makes fork() safe in a program whose threads use this library, at any moment and from any
// thread:
//
//   1. A fork waits until no other thread is inside a NoForkScope. Every Mutex is one while it is
//      held, and so are some rounds of the loading engine. In the child no lock is held by a
//      thread that it does not have, and nothing that a lock guards is half changed.
//   2. What belongs to threads and to work, which stay with the parent, is PerProcess: the child
//      begins with a new one. The parent's is left as it is and never destroyed, so that nothing of
//      an application is destroyed twice.
//   3. What cannot wait until it is next used, as it has threads or descriptors, is seen to by the
//      functions given to callInChild().

namespace tarn::detail {

/// What a fork has to know of one thread.
struct ForkRecord {
  std::atomic<std::uint32_t> depth = 0;  // of scopes; written by the thread only
  std::atomic<bool> used = true;
  ForkRecord* next = nullptr;
};

extern thread_local constinit ForkRecord* forkRecord;
extern constinit std::atomic<bool> forkUnderWay;
extern constinit std::atomic<std::uint32_t> forks;

ForkRecord& makeForkRecord() noexcept;
void waitForFork(ForkRecord& record) noexcept;

/// While one exists, other threads do not fork: they wait for its end, a second at most. Scopes of
/// a thread nest. For short stretches in which no user code runs and no queue is waited for.
class NoForkScope {
 public:
  NoForkScope() noexcept { enter(); }
  ~NoForkScope() { leave(); }
  NoForkScope(const NoForkScope&) = delete;
  NoForkScope& operator=(const NoForkScope&) = delete;

  static void enter() noexcept {
    ForkRecord& record = forkRecord != nullptr ? *forkRecord : makeForkRecord();
    const auto depth = record.depth.load(std::memory_order_relaxed);
    record.depth.store(depth + 1, std::memory_order_relaxed);
    if (depth != 0) return;
    // The processor may still do the load before the store; the forking thread has a barrier run on
    // all of them, which costs this side nothing.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (forkUnderWay.load(std::memory_order_acquire)) waitForFork(record);
  }
  static void leave() noexcept {
    forkRecord->depth.store(forkRecord->depth.load(std::memory_order_relaxed) - 1,
                            std::memory_order_release);
  }
};

/// How many forks lie between the program's start and this process.
inline std::uint32_t forkCount() noexcept { return forks.load(std::memory_order_relaxed); }

/// The process that this was made in.
class ProcessMark {
 public:
  /// False in a child that was forked since.
  bool isCurrent() const noexcept { return count_ == forkCount(); }

 private:
  std::uint32_t count_ = forkCount();
};

/// Has `function` called in the child of each fork from now on, in the order of these calls, before
/// fork() returns. For the objects of the process, a few.
void callInChild(void (*function)() noexcept) noexcept;

/// A value that a child of fork() does not take over: there, the first use makes a new one, and the
/// parent's is left alone, never destroyed. Guarded like any other member by its owner's lock.
template <class T>
class PerProcess {
 public:
  PerProcess() : value_() {}
  ~PerProcess() {
    if (process_.isCurrent()) value_.~T();
  }
  PerProcess(const PerProcess&) = delete;
  PerProcess& operator=(const PerProcess&) = delete;

  /// Makes a new value where the present one is another process's; true where it did.
  bool renew() noexcept(std::is_nothrow_default_constructible_v<T>) {
    if (process_.isCurrent()) [[likely]]
      return false;
    ::new (static_cast<void*>(std::addressof(value_))) T();
    process_ = {};
    return true;
  }

  /// For who has just called renew().
  T& present() noexcept { return value_; }

  T& operator*() {
    renew();
    return value_;
  }
  T* operator->() { return std::addressof(**this); }

 private:
  union {
    T value_;
  };
  ProcessMark process_;
};

}  // namespace tarn::detail
