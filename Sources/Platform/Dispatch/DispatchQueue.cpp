#include <Platform/Dispatch/Detail/MainQueueCore.hpp>
#include <Platform/Dispatch/Detail/QueueCore.hpp>
#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchQueue.hpp>

#include <array>
#include <utility>

namespace tarn {
namespace {

using detail::QueueCore;

std::shared_ptr<QueueCore> makeCore(std::string label, QualityOfService qualityOfService,
                                    DispatchQueue::Attribute attribute) {
  if (attribute == DispatchQueue::Attribute::serial) {
    return std::make_shared<detail::SerialQueueCore>(std::move(label), qualityOfService);
  }
  return std::make_shared<detail::ConcurrentQueueCore>(std::move(label), qualityOfService);
}

/// Where time is asked for, by way of the timekeeper even if it has passed by now: else the item
/// would overtake one that was added before and is about to be due there.
void addAt(DispatchTime deadline, bool isDue, std::shared_ptr<QueueCore> core, Work work) {
  if (isDue) return core->async(std::move(work));
  detail::Timekeeper::shared().schedule(
      deadline,
      [core = std::move(core), work = std::move(work)]() mutable { core->async(std::move(work)); });
}

}  // namespace

DispatchQueue::DispatchQueue(std::string label, QualityOfService qualityOfService,
                             Attribute attribute)
    : core_(makeCore(std::move(label), qualityOfService, attribute)) {}

DispatchQueue DispatchQueue::main() { return DispatchQueue(detail::MainQueueCore::shared()); }

DispatchQueue DispatchQueue::global(QualityOfService qualityOfService) {
  using Cores = std::array<std::shared_ptr<QueueCore>, 5>;
  const detail::NoForkScope scope;  // not while they are being made
  // Never destroyed: threads may be at work while the process exits.
  static const Cores* const cores = new Cores{
      makeCore("tarn.global.userInteractive", QualityOfService::userInteractive,
               Attribute::concurrent),
      makeCore("tarn.global.userInitiated", QualityOfService::userInitiated, Attribute::concurrent),
      makeCore("tarn.global.default", QualityOfService::default_, Attribute::concurrent),
      makeCore("tarn.global.utility", QualityOfService::utility, Attribute::concurrent),
      makeCore("tarn.global.background", QualityOfService::background, Attribute::concurrent)};
  if (qualityOfService == QualityOfService::unspecified) return global();
  return DispatchQueue(cores->at(static_cast<std::size_t>(qualityOfService)));
}

const std::string& DispatchQueue::label() const noexcept { return core_->label(); }

QualityOfService DispatchQueue::qualityOfService() const noexcept {
  return core_->qualityOfService();
}

void DispatchQueue::async(Work work) const { core_->async(std::move(work)); }

void DispatchQueue::async(const DispatchGroup& group, Work work) const {
  struct Leave {
    const DispatchGroup& group;
    ~Leave() { group.leave(); }
  };
  group.enter();
  core_->async([group, core = core_, work = std::move(work)]() mutable {
    const Leave leave{group};  // after what the work throws has been reported
    detail::runReported(work, core->label());
  });
}

void DispatchQueue::asyncAfter(DispatchTime deadline, Work work) const {
  const DispatchTime now = DispatchTime::now();
  detail::Timekeeper::shared().recordDelay(deadline - now);
  addAt(deadline, deadline <= now, core_, std::move(work));
}

void DispatchQueue::asyncAfter(TimeInterval delay, Work work) const {
  const DispatchTime deadline = DispatchTime::now() + delay;
  detail::Timekeeper::shared().recordDelay(delay);
  addAt(deadline, delay <= TimeInterval(0), core_, std::move(work));
}

bool DispatchQueue::isCurrent() const noexcept { return core_->isCurrent(); }

bool DispatchQueue::isMain() const noexcept { return core_->isMain(); }

void DispatchQueue::runOnMain(Work work) {
  detail::MainQueueCore::shared()->runThere(std::move(work));
}

DispatchQueue::Turn::Turn(std::shared_ptr<detail::QueueCore> core)
    : core_(std::move(core)), frame_{core_.get(), detail::currentFrame} {
  core_->beginTurn();
  detail::currentFrame = &frame_;
}

DispatchQueue::Turn::~Turn() {
  detail::currentFrame = frame_.outer;
  core_->endTurn();
}

}  // namespace tarn
