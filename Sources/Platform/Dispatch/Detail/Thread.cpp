#include <Platform/Dispatch/Detail/Thread.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>

#include <algorithm>
#include <csignal>
#include <memory>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace tarn::detail {
namespace {

struct Start {
  const char* name;
  void (*body)(void*) noexcept;
  void* argument;
  sigset_t mask;  // the application's
};

// What the thread's starter had blocked, handed on from thread to thread; null on the application's
// own.
thread_local constinit const sigset_t* applicationMask = nullptr;

void* run(void* argument) noexcept {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  applicationMask = &start->mask;
  pthread_setname_np(pthread_self(), start->name);
  start->body(start->argument);
  return nullptr;
}

/// All signals but those that a fault of the thread itself raises: blocked, these would end the
/// process without the application's crash handler.
sigset_t signalsToBlock() noexcept {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

// A child has no other thread yet to hear the application's signals.
[[maybe_unused]] const bool prepared = [] {
  callInChild([]() noexcept {
    if (applicationMask == nullptr) return;
    pthread_sigmask(SIG_SETMASK, applicationMask, nullptr);
    applicationMask = nullptr;
  });
  return true;
}();

}  // namespace

bool startThread(const char* name, void (*body)(void*) noexcept, void* argument,
                 pthread_t* joinable) noexcept {
  std::unique_ptr<Start> start(new (std::nothrow) Start{name, body, argument, {}});
  if (start == nullptr) return false;
  const sigset_t blocked = signalsToBlock();
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  start->mask = applicationMask != nullptr ? *applicationMask : before;
  pthread_t thread{};
  const bool started = pthread_create(&thread, nullptr, &run, start.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (!started) return false;
  start.release();
  if (joinable != nullptr)
    *joinable = thread;
  else
    pthread_detach(thread);
  return true;
}

std::size_t usableProcessors() noexcept {
  cpu_set_t processors;
  // Of the main thread, whichever asks: others may be bound to a processor for a work of their own.
  if (sched_getaffinity(getpid(), sizeof processors, &processors) == 0) {
    return static_cast<std::size_t>(CPU_COUNT(&processors));
  }
  return std::max<std::size_t>(1, std::thread::hardware_concurrency());  // more than the set holds
}

}  // namespace tarn::detail
