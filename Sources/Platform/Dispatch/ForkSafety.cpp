#include <Platform/Dispatch/ForkSafety.hpp>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <linux/membarrier.h>
#include <mutex>
#include <pthread.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace tarn::detail {

thread_local constinit ForkRecord* forkRecord = nullptr;
constinit std::atomic<bool> forkUnderWay = false;
constinit std::atomic<std::uint32_t> forks = 0;

namespace {

using std::chrono::steady_clock;

// A scope that lasts as long is stuck, on a dead disk perhaps, and the fork goes on without it.
constexpr std::chrono::seconds longestWait{1};

// Plain: this one stays locked from before the fork until after it. In a union, as the child makes
// a new one.
union ForkMutex {
  constexpr ForkMutex() : mutex() {}
  ~ForkMutex() {}
  std::mutex mutex;
};
constinit ForkMutex forking;

constinit std::atomic<ForkRecord*> records = nullptr;  // only ever grows
constinit std::atomic<ForkRecord*> forkingThread = nullptr;
constinit std::array<std::atomic<void (*)() noexcept>, 8> childFunctions{};

pthread_key_t recordKey;

void giveRecordBack(void* record) noexcept {
  static_cast<ForkRecord*>(record)->used.store(false, std::memory_order_release);
  forkRecord = nullptr;
}

/// Orders what every running thread has stored before what this one loads next.
void orderAllThreads() noexcept {
  syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
  if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0) return;
  // A system without it: a store is seen by all within far less than this.
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void prepare() noexcept {
  forking.mutex.lock();
  forkingThread.store(forkRecord != nullptr ? forkRecord : &makeForkRecord());
  forkUnderWay.store(true, std::memory_order_seq_cst);
  orderAllThreads();
  const auto limit = steady_clock::now() + longestWait;
  for (ForkRecord* record = records.load(std::memory_order_acquire); record != nullptr;
       record = record->next) {
    if (record == forkRecord) continue;
    while (record->depth.load(std::memory_order_acquire) != 0 && steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }
}

void goOnInParent() noexcept {
  forkUnderWay.store(false, std::memory_order_release);
  forking.mutex.unlock();
}

void beginInChild() noexcept {
  forks.fetch_add(1, std::memory_order_relaxed);
  // Of the threads only this one came along.
  for (ForkRecord* record = records.load(); record != nullptr; record = record->next) {
    if (record == forkRecord) continue;
    record->depth.store(0, std::memory_order_relaxed);
    record->used.store(false, std::memory_order_relaxed);
  }
  forkUnderWay.store(false, std::memory_order_release);
  ::new (static_cast<void*>(&forking)) ForkMutex;
  for (const auto& entry : childFunctions) {
    if (const auto function = entry.load()) function();
  }
}

// As the program starts, so that whatever else asks to be called at a fork may use the library
// there: ours come last before it and first after it.
[[maybe_unused]] const bool prepared = [] {
  pthread_key_create(&recordKey, [](void* record) { giveRecordBack(record); });
  pthread_atfork(&prepare, &goOnInParent, &beginInChild);
  return true;
}();

}  // namespace

ForkRecord& makeForkRecord() noexcept {
  ForkRecord* record = records.load(std::memory_order_acquire);
  for (; record != nullptr; record = record->next) {
    if (!record->used.load(std::memory_order_relaxed) &&
        !record->used.exchange(true, std::memory_order_acquire)) {
      break;
    }
  }
  if (record == nullptr) {
    record = new ForkRecord;
    record->next = records.load(std::memory_order_relaxed);
    while (!records.compare_exchange_weak(record->next, record, std::memory_order_release)) {
    }
  }
  forkRecord = record;
  pthread_setspecific(recordKey, record);
  return *record;
}

void waitForFork(ForkRecord& record) noexcept {
  // The forking thread itself is here where something else that is called at forks uses the
  // library.
  while (forkUnderWay.load(std::memory_order_acquire) && forkingThread.load() != &record) {
    record.depth.store(0, std::memory_order_release);
    forking.mutex.lock();
    forking.mutex.unlock();
    record.depth.store(1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }
}

void callInChild(void (*function)() noexcept) noexcept {
  for (auto& entry : childFunctions) {
    void (*none)() noexcept = nullptr;
    if (entry.compare_exchange_strong(none, function)) return;
  }
  std::abort();  // the array is too small
}

}  // namespace tarn::detail
