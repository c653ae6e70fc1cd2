#include <Platform/Dispatch/Detail/WaitList.hpp>
#include <Platform/Dispatch/Detail/WorkerPool.hpp>

#include <algorithm>

namespace tarn::detail {

bool WaitList::wait(Mutex& mutex, RealTime deadline) {
  Parker parker;
  parkers_.push_back(&parker);
  mutex.unlock();
  bool called = false;
  {
    const BlockingScope blocking;
    called = parker.parkUntil(deadline);
  }
  mutex.lock();
  if (called) return true;
  // Calls are made with the mutex held: one that came after the deadline is complete by now and has
  // taken us off.
  return std::erase(parkers_, &parker) == 0;
}

void WaitList::callFirst() noexcept {
  Parker* const first = parkers_.front();
  parkers_.erase(parkers_.begin());
  first->unpark();
}

void WaitList::callAll() noexcept {
  for (Parker* const parker : parkers_) parker->unpark();
  parkers_.clear();
}

}  // namespace tarn::detail
