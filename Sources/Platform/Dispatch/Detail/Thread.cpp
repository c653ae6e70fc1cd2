#include <Platform/Dispatch/Detail/Thread.hpp>

#include <csignal>
#include <memory>
#include <new>
#include <pthread.h>

namespace tarn::detail {
namespace {

struct Start {
  const char* name;
  void (*body)(void*) noexcept;
  void* argument;
};

void* run(void* argument) noexcept {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
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

}  // namespace

bool startThread(const char* name, void (*body)(void*) noexcept, void* argument) noexcept {
  std::unique_ptr<Start> start(new (std::nothrow) Start{name, body, argument});
  pthread_attr_t attributes;
  if (start == nullptr || pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  const sigset_t blocked = signalsToBlock();
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  pthread_t thread{};
  const bool started = pthread_create(&thread, &attributes, &run, start.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  if (started) start.release();
  return started;
}

}  // namespace tarn::detail
