#include <Platform/Dispatch/Detail/Thread.hpp>
#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/Types/FatalError.hpp>
#include <Platform/URLLoading/Curl/DeliveryChain.hpp>
#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <limits>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace tarn::detail {

namespace {

constexpr std::uint64_t wakeUpTag = std::numeric_limits<std::uint64_t>::max();

// How often one round lets new work follow from what it did, before it looks at the sockets again.
constexpr int mostTurns = 4;

// Deliveries wait for those of the next rounds while sockets are ready at once, so that fewer of
// them wake a thread: until there are this many, and no longer than this.
constexpr std::size_t fullDelivery = 32;
constexpr std::chrono::milliseconds longestHold{1};
// They are shared out among as many threads as can run, each with enough to be woken for.
constexpr std::size_t shortestChain = 8;

Mutex engineMutex;
Engine* engine = nullptr;  // never freed: reachable for leak checkers, valid for late callers

/// glibc's heap gives what falls free at its end back to the system from 128 KiB on, until it has
/// seen a larger block come and go (mallopt(3), M_MMAP_THRESHOLD). With dozens of transfers at a
/// time their buffers would be taken from the system anew again and again.
void showLargeBlockToHeap() noexcept {
  constexpr std::size_t size = 1024 * 1024;
  if (volatile char* const block = static_cast<char*>(std::malloc(size))) {
    *block = 0;  // so that the compiler does not leave the whole out
    std::free(const_cast<char*>(block));
  }
}

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

}  // namespace

Engine& Engine::shared() {
  const NoForkScope scope;  // not while the libraries are being set up
  static const bool prepared = [] {
    showLargeBlockToHeap();
    initializeTLSLibrary();
    curl_global_init(CURL_GLOBAL_ALL);
    // Where the application set OpenSSL up before, OpenSSL's clean-up is registered by now: ours,
    // being later, runs first.
    std::atexit([] { stopAtExit(); });
    callInChild(&beginInChild);
    return true;
  }();
  static_cast<void>(prepared);
  const MutexLock lock(engineMutex);
  if (engine == nullptr) {
    auto* fresh = new Engine;
    try {
      fresh->startThread();
    } catch (...) {
      close(fresh->epoll_);
      close(fresh->wakeUp_);
      throw;
    }
    engine = fresh;
  }
  return *engine;
}

Engine::Engine()
    : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      wakeUp_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      processors_(usableProcessors()),
      now_(Clock::now()) {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLET;  // told of each call once, without having to read it
  event.data.u64 = wakeUpTag;
  checked(epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeUp_, &event), "epoll_ctl");
}

void Engine::startThread() {
  const auto body = [](void* self) noexcept { static_cast<Engine*>(self)->run(); };
  if (!detail::startThread("tarn-loading", body, this, &thread_)) {
    throw std::system_error(EAGAIN, std::generic_category(), "pthread_create");
  }
}

void Engine::stopAtExit() noexcept {
  Engine* running = nullptr;
  {
    const MutexLock lock(engineMutex);
    running = engine;
  }
  if (running != nullptr) running->stop();
}

void Engine::stop() noexcept {
  stopped_ = true;
  wake();
  if (pthread_equal(pthread_self(), thread_) != 0) return;  // exit() on the loop thread itself
  timespec limit{};
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += 1;  // the end of the process does not wait for a name server
  pthread_timedjoin_np(thread_, nullptr, &limit);
}

void Engine::beginInChild() noexcept {
  const MutexLock lock(engineMutex);
  if (engine != nullptr) engine->abandon();
  engine = nullptr;
}

// Its descriptors are the parent's too. Connections are closed without a word to the server and
// without libcurl, whose handles stay as they are.
void Engine::abandon() noexcept {
  stopped_ = true;
  abandoned_ = true;
  {
    const MutexLock lock(mutex_);
    asleep_ = false;  // nobody is to be woken
  }
  close(epoll_);
  close(wakeUp_);
  for (std::size_t socket = 0; socket < watches_.size(); ++socket) {
    const Watch& watch = watches_[socket];
    if (watch.lingers || watch.owner != nullptr) close(static_cast<int>(socket));
  }
}

void Engine::post(Work work) {
  // After stop() or abandon() it stays in the inbox: nobody runs it, and what it holds is not for
  // other threads to tear down.
  bool sleeping = false;
  {
    const MutexLock lock(mutex_);
    inbox_.push_back(std::move(work));
    sleeping = std::exchange(asleep_, false);
  }
  if (sleeping) wake();
}

void Engine::wake() noexcept {
  const std::uint64_t one = 1;
  // Nobody reads the counter: full it is only after more calls than any process makes.
  static_cast<void>(write(wakeUp_, &one, sizeof one) == sizeof one);
}

void Engine::run() noexcept {
  // A fork takes place while this thread waits and is in the middle of nothing.
  const NoForkScope scope;
  while (!stopped_) {
    const bool quiet = !waitForEvents();
    settle();
    const bool late = Clock::now() - heldSince_ > longestHold;
    if (quiet || late || deliveries_.size() >= fullDelivery) deliver();
  }
  deliver();
}

bool Engine::waitForEvents() noexcept {
  std::array<epoll_event, 64> events;
  const bool holdsBack = !deliveries_.empty();
  int limit = holdsBack ? 0 : timeout();
  {
    const MutexLock lock(mutex_);
    if (!inbox_.empty()) limit = 0;
    asleep_ = limit != 0;
  }
  if (!holdsBack) NoForkScope::leave();
  const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), limit);
  if (!holdsBack) NoForkScope::enter();
  now_ = Clock::now();
  bool wereReady = false;
  for (int i = 0; i < count; ++i) {
    const auto& event = events[static_cast<std::size_t>(i)];
    wereReady = wereReady || event.data.u64 != wakeUpTag;
    dispatch(event.data.u64, event.events);
  }
  drainInbox();
  return wereReady;
}

int Engine::timeout() const noexcept {
  if (timers_.empty()) return -1;
  const auto left = timers_.earliest() - Clock::now();
  if (left <= Clock::duration::zero()) return 0;
  const auto rounded = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<std::int64_t>(rounded, std::numeric_limits<int>::max()));
}

void Engine::dispatch(std::uint64_t tag, std::uint32_t events) noexcept {
  if (tag == wakeUpTag) return;
  const auto socket = static_cast<std::uint32_t>(tag);
  Watch& watch = watches_[socket];
  if (watch.owner == nullptr || watch.generation != static_cast<std::uint32_t>(tag >> 32)) return;
  // Most likely its peer has closed it, which would be told again and again.
  if (watch.ended) return endWatch(static_cast<int>(socket), watch);
  watch.owner->socketReady(static_cast<int>(socket), events);
}

void Engine::drainInbox() noexcept {
  {
    const MutexLock lock(mutex_);
    asleep_ = false;
    work_.swap(inbox_);
  }
  for (auto& work : work_) {
    try {
      work();
    } catch (...) {
      reportUncaughtError(Error::current(), "URL loading");
    }
    work = Work();
  }
  work_.clear();
}

void Engine::settle() noexcept {
  for (int turn = 0; turn < mostTurns; ++turn) {
    fireTimers();
    if (sessions_.empty()) break;
    serveSessions();
  }
}

void Engine::fireTimers() noexcept {
  // Bounded: a timer may set itself anew for at once.
  for (std::size_t left = timers_.size(); left > 0; --left) {
    Timer* timer = timers_.takeDue(now_);
    if (timer == nullptr) break;
    timer->timerFired();
  }
}

void Engine::serveSessions() noexcept {
  // Serving one session can only add others behind the end.
  for (std::size_t i = 0; i < sessions_.size(); ++i) sessions_[i]->serve();
  sessions_.clear();
}

void Engine::deliver() noexcept {
  const std::size_t count = deliveries_.size();
  const auto chains = std::clamp<std::size_t>(count / shortestChain, 1, processors_);
  const std::size_t share = (count + chains - 1) / chains;
  std::shared_ptr<DeliveryChain> chain;
  try {
    for (auto& task : deliveries_) {
      if (!task->flush()) continue;
      if (chain && !chain->takes(*task->queue()))
        DeliveryChain::start(std::exchange(chain, nullptr));
      if (!chain) chain = std::make_shared<DeliveryChain>(task->queue(), share);
      chain->add(std::move(task));
    }
    if (chain) DeliveryChain::start(std::move(chain));
  } catch (...) {
    reportUncaughtError(Error::current(), "URL loading");
  }
  deliveries_.clear();
}

void Engine::watch(int socket, std::uint32_t events, SocketOwner& owner) {
  Watch& watch = watchOf(socket);
  if (events == 0) {
    if (!watch.lingers) return endWatch(socket, watch);
    watch.ended = true;
    return;
  }
  watch.ended = false;
  if (watch.owner == &owner && watch.events == events) return;
  if (watch.owner != &owner) ++watch.generation;
  const bool known = watch.owner != nullptr;
  // One that libcurl opened by itself, to hear of the end of a name's look-up.
  if (!known && !watch.lingers) fcntl(socket, F_SETFD, FD_CLOEXEC);
  watch.owner = &owner;
  watch.events = events;
  epoll_event event{};
  event.events = events;
  event.data.u64 = std::uint64_t{watch.generation} << 32 | static_cast<std::uint32_t>(socket);
  if (epoll_ctl(epoll_, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event) != 0) {
    // A descriptor that was closed and opened again under the same number is not what was
    // registered.
    epoll_ctl(epoll_, errno == ENOENT ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, socket, &event);
  }
}

Engine::Watch& Engine::watchOf(int socket) {
  const auto index = static_cast<std::size_t>(socket);
  if (index >= watches_.size()) watches_.resize(index + 1);
  return watches_[index];
}

void Engine::unwatch(int socket) noexcept {
  endWatch(socket, watches_[static_cast<std::size_t>(socket)]);
}

void Engine::endWatch(int socket, Watch& watch) noexcept {
  epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, nullptr);
  watch.clear();
}

void Engine::connectionKept(int socket) noexcept {
  const auto index = static_cast<std::size_t>(socket);
  if (index < watches_.size()) watches_[index].lingers = true;
}

void Engine::socketClosed(int socket) noexcept {
  const auto index = static_cast<std::size_t>(socket);
  if (index >= watches_.size()) return;  // it failed before anyone was interested
  // Closing took it out of the kernel's set.
  watches_[index].clear();
  watches_[index].lingers = false;
}

void Engine::forget(const SocketOwner& owner) noexcept {
  for (Watch& watch : watches_) {
    if (watch.owner == &owner) watch.clear();
  }
}

void Engine::serveLater(std::shared_ptr<SessionCore> session) {
  sessions_.push_back(std::move(session));
}

void Engine::deliverLater(std::shared_ptr<CurlTask> task) {
  // A dead session's task fails in the child.
  Engine& current = abandoned_ ? shared() : *this;
  if (current.deliveries_.empty()) current.heldSince_ = current.now_;
  current.deliveries_.push_back(std::move(task));
}

}  // namespace tarn::detail
