#include <Platform/Dispatch/Detail/Thread.hpp>
#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/Detail/WorkerPool.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Types/FatalError.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace tarn::detail {
namespace {

constexpr int turnsOnNextLimit = 32;
constexpr std::size_t turnsPerLevelRound = 16;
constexpr int ticksUntilStalled = 10;
constexpr int ticksUntilExhausted = 1000;
constexpr std::chrono::seconds idleTime{3};

/// On a thread of its own: the log is the application's code, and all others are at work or have to
/// stay ready.
void reportExhaustion() noexcept {
  startThread(
      "tarn.report",
      [](void*) noexcept {
        reportTrouble(
            "All threads of the queues, as many as there may be, are blocked or busy while work "
            "waits");
      },
      nullptr);
}

}  // namespace

thread_local constinit WorkerPool::Worker* WorkerPool::current_ = nullptr;

Runnable::Runnable(QualityOfService qualityOfService) noexcept
    : level_(static_cast<std::size_t>(qualityOfService == QualityOfService::unspecified
                                          ? QualityOfService::default_
                                          : qualityOfService)) {}

constinit std::atomic<WorkerPool*> WorkerPool::instance_ = nullptr;

WorkerPool& WorkerPool::makeShared() {
  static constinit Mutex making;
  const MutexLock lock(making);
  WorkerPool* pool = instance_.load(std::memory_order_relaxed);
  if (pool == nullptr) {
    pool = new WorkerPool;
    callInChild(&beginInChild);
    instance_.store(pool, std::memory_order_release);
  }
  return *pool;
}

// The one of the parent has its threads and what they were to run. A worker that forks stays one.
void WorkerPool::beginInChild() noexcept {
  auto* const pool = new WorkerPool;
  instance_.store(pool, std::memory_order_release);
  if (current_ == nullptr) return;
  const MutexLock lock(pool->mutex_);
  current_->next.store(nullptr);
  pool->workers_.emplace_back(current_);
  ++pool->threads_;
}

WorkerPool::WorkerPool() : normalActive_(std::min(usableProcessors(), maximumThreads)) {}

void WorkerPool::submit(Runnable& runnable) {
  Worker* const worker = current_;
  if (worker == nullptr) return submitShared(runnable);
  // Sequentially consistent, as is the watch flag: either the timekeeper sees this one or we see
  // that it sleeps.
  Runnable* const earlier = worker->next.exchange(&runnable);
  if (earlier != nullptr) submitShared(*earlier);
  Timekeeper::shared().watchWorkers();
}

void WorkerPool::submitShared(Runnable& runnable) {
  Help help;
  {
    const MutexLock lock(mutex_);
    pushReady(runnable);
    help = findHelp();
  }
  call(help);
}

bool WorkerPool::othersWait() const noexcept {
  return readyCount_.load(std::memory_order_relaxed) != 0 ||
         (current_ != nullptr && current_->next.load(std::memory_order_relaxed) != nullptr);
}

void WorkerPool::pushReady(Runnable& runnable) {
  ready_[runnable.level()].push(&runnable);
  readyCount_.store(readyCount_.load(std::memory_order_relaxed) + 1);
}

Runnable* WorkerPool::popReady() {
  // The most urgent level first, but each level begins the search in one of its rounds.
  ++taken_;
  const std::size_t first =
      taken_ % turnsPerLevelRound == 0 ? taken_ / turnsPerLevelRound % levels : 0;
  readyCount_.store(readyCount_.load(std::memory_order_relaxed) - 1);
  for (std::size_t i = 0;; ++i) {
    auto& level = ready_[(first + i) % levels];
    if (!level.empty()) return level.pop();
  }
}

WorkerPool::Help WorkerPool::findHelp() {
  if (active() >= normalActive_ + extraActive_) return {};
  if (!idle_.empty()) {
    Worker* const worker = idle_.back();
    idle_.pop_back();
    return {worker, false};
  }
  if (threads_ == maximumThreads) return {};
  ++threads_;
  return {nullptr, true};
}

void WorkerPool::call(Help help) {
  if (help.worker != nullptr) return help.worker->parker.unpark();
  if (help.start && startThread("tarn.worker", &workerMain, nullptr)) return;
  if (help.start) {
    MutexLock lock(mutex_);
    if (--threads_ == 0) {
      lock.unlock();
      fatalError("The system grants no thread to run queues on");
    }
  }
  // All are busy: should none of them get to it, the timekeeper finds out.
  Timekeeper::shared().watchWorkers();
}

void WorkerPool::workerMain(void*) noexcept {
  {
    WorkerPool& pool = shared();
    const MutexLock lock(pool.mutex_);
    current_ = pool.workers_.emplace_back(std::make_unique<Worker>()).get();
  }
  Worker& worker = *current_;
  // Looked up each time: what it runs may fork.
  while (Runnable* const runnable = shared().take(worker)) {
    worker.turns.store(worker.turns.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    runnable->run();
  }
  current_ = nullptr;
}

Runnable* WorkerPool::take(Worker& worker) {
  if (worker.turnsOnNext < turnsOnNextLimit || readyCount_.load(std::memory_order_relaxed) == 0) {
    if (worker.next.load(std::memory_order_relaxed) != nullptr) {
      if (Runnable* const next = worker.next.exchange(nullptr)) {
        ++worker.turnsOnNext;
        return next;
      }
    }
  }
  return takeShared(worker);
}

Runnable* WorkerPool::takeShared(Worker& worker) {
  const MutexLock lock(mutex_);
  worker.turnsOnNext = 0;
  if (Runnable* const next = worker.next.exchange(nullptr)) pushReady(*next);
  for (;;) {
    // One too many has been active since a blocked worker came back: this one steps aside.
    if (readyCount_.load(std::memory_order_relaxed) != 0 &&
        active() <= normalActive_ + extraActive_) {
      return popReady();
    }
    if (!idle(worker)) {
      leave(worker);
      return nullptr;
    }
  }
}

/// Sleeps until called; false when that did not happen for long and the worker is not one of the
/// normal ones.
bool WorkerPool::idle(Worker& worker) {
  idle_.push_back(&worker);
  exhaustionReported_ = false;
  if (active() < normalActive_) extraActive_ = 0;
  const bool isExtra = threads_ > normalActive_;
  const bool isLast = active() == 0;
  mutex_.unlock();
  if (isLast) Timekeeper::shared().relax();
  const bool woken = worker.parker.parkUntil(isExtra ? std::chrono::steady_clock::now() + idleTime
                                                     : RealTime::max());
  mutex_.lock();
  if (woken) return true;
  const auto place = std::find(idle_.begin(), idle_.end(), &worker);
  if (place == idle_.end()) {
    // Called just after the time was up: the wake-up is on its way.
    mutex_.unlock();
    worker.parker.park();
    mutex_.lock();
    return true;
  }
  idle_.erase(place);
  return threads_ <= normalActive_;
}

void WorkerPool::leave(Worker& worker) {
  --threads_;
  std::erase_if(workers_, [&](const auto& candidate) { return candidate.get() == &worker; });
}

bool WorkerPool::tick() {
  std::vector<Runnable*> waiting;
  Help help;
  bool needed = false;
  bool exhausted = false;
  {
    const MutexLock lock(mutex_);
    for (const auto& worker : workers_) {
      const std::uint64_t turns = worker->turns.load(std::memory_order_relaxed);
      if (worker->next.load() != nullptr) {
        needed = true;
        if (turns == worker->turnsAtLastTick) {
          if (Runnable* const next = worker->next.exchange(nullptr)) waiting.push_back(next);
        }
      }
      worker->turnsAtLastTick = turns;
    }
    needed = needed || readyCount_.load(std::memory_order_relaxed) != 0;
    if (stalled()) {
      exhausted = isExhausted() && !std::exchange(exhaustionReported_, true);
      if (extraActive_ < maximumThreads) ++extraActive_;
      help = findHelp();
    }
  }
  if (exhausted) reportExhaustion();
  for (Runnable* const runnable : waiting) submitShared(*runnable);
  if (help.worker != nullptr || help.start) call(help);
  return needed;
}

/// Whether something has been ready for some ticks in which no worker took anything: they may be
/// blocked unknown to us.
bool WorkerPool::stalled() {
  const bool progress =
      readyCount_.load(std::memory_order_relaxed) == 0 || taken_ != takenAtLastTick_;
  takenAtLastTick_ = taken_;
  ticksWithoutProgress_ = progress ? 0 : ticksWithoutProgress_ + 1;
  return !progress && ticksWithoutProgress_ % ticksUntilStalled == 0;
}

/// Not just for a moment, as the threads of a busy machine may be.
bool WorkerPool::isExhausted() const {
  return threads_ == maximumThreads && idle_.empty() &&
         ticksWithoutProgress_ >= ticksUntilExhausted;
}

bool WorkerPool::needsTick() {
  const MutexLock lock(mutex_);
  return readyCount_.load(std::memory_order_relaxed) != 0 ||
         std::any_of(workers_.begin(), workers_.end(),
                     [](const auto& worker) { return worker->next.load() != nullptr; });
}

void WorkerPool::beginBlocking(Worker& worker) {
  Help help;
  {
    const MutexLock lock(mutex_);
    if (Runnable* const next = worker.next.exchange(nullptr)) pushReady(*next);
    ++blocked_;
    if (readyCount_.load(std::memory_order_relaxed) == 0) return;
    help = findHelp();
  }
  call(help);
}

void WorkerPool::endBlocking() {
  const MutexLock lock(mutex_);
  --blocked_;
}

BlockingScope::BlockingScope() : worker_(WorkerPool::current_ != nullptr) {
  if (worker_) WorkerPool::shared().beginBlocking(*WorkerPool::current_);
}

BlockingScope::~BlockingScope() {
  if (worker_) WorkerPool::shared().endBlocking();
}

}  // namespace tarn::detail
