#include <Platform/Dispatch/Detail/Timekeeper.hpp>
#include <Platform/Dispatch/ManualDispatchClock.hpp>
#include <Platform/Types/FatalError.hpp>

namespace tarn {

using detail::Timekeeper;

ManualDispatchClock::ManualDispatchClock() {
  if (!Timekeeper::shared().beginManual()) fatalError("A ManualDispatchClock is installed already");
}

ManualDispatchClock::~ManualDispatchClock() { Timekeeper::shared().endManual(); }

DispatchTime ManualDispatchClock::now() const noexcept { return Timekeeper::shared().now(); }

void ManualDispatchClock::advance(TimeInterval interval) { Timekeeper::shared().advance(interval); }

std::vector<TimeInterval> ManualDispatchClock::requestedDelays() const {
  return Timekeeper::shared().recordedDelays();
}

bool ManualDispatchClock::waitForRequestedDelays(std::size_t count, TimeInterval limit) const {
  return Timekeeper::shared().waitForRecordedDelays(count, detail::realTimeAfter(limit));
}

}  // namespace tarn
