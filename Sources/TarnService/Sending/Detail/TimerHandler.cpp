#include <TarnService/Sending/Detail/TimerHandler.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <utility>

namespace tarn::detail {
namespace {

thread_local bool isTicking = false;

struct Tick {
  Tick() { isTicking = true; }
  ~Tick() { isTicking = false; }
  Tick(const Tick&) = delete;
  Tick& operator=(const Tick&) = delete;
};

}  // namespace

std::shared_ptr<TimerHandler> TimerHandler::start(TimeInterval timeInterval,
                                                  std::function<void()> block) {
  const std::shared_ptr<TimerHandler> handler(new TimerHandler(std::move(block)));
  handler->timer_.setEventHandler([weak = std::weak_ptr(handler)] {
    const Tick tick;  // outlives the handler, which may end here
    if (const auto strong = weak.lock()) strong->block_();
  });
  handler->timer_.schedule(DispatchTime::now() + timeInterval, timeInterval);
  handler->resume();
  return handler;
}

TimerHandler::TimerHandler(std::function<void()> block)
    : block_(std::move(block)),
      timerQueue_(queueLabel("TarnService.pollTimerQueue")),
      timer_(timerQueue_) {}

TimerHandler::~TimerHandler() {
  timer_.setEventHandler([] {});
  timer_.cancel();
  resume();  // the source is let go in balance
}

void TimerHandler::resume() {
  onQueue([this] { set(State::resumed); });
}

void TimerHandler::suspend() {
  onQueue([this] { set(State::suspended); });
}

void TimerHandler::stop() {
  onQueue([this] {
    set(State::suspended);
    timer_.cancel();
  });
}

TimerHandler::State TimerHandler::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

template <class F>
void TimerHandler::onQueue(F change) {
  if (isTicking) return change();
  timerQueue_.sync(change);
}

void TimerHandler::set(State state) {
  const MutexLock lock(mutex_);
  if (std::exchange(state_, state) == state) return;
  if (state == State::resumed) {
    timer_.resume();
  } else {
    timer_.suspend();
  }
}

}  // namespace tarn::detail
