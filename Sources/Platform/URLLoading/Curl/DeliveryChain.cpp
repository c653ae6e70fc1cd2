#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>
#include <Platform/URLLoading/Curl/DeliveryChain.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>

#include <new>
#include <utility>

namespace tarn::detail {

DeliveryChain::DeliveryChain(std::shared_ptr<OperationQueue> queue, std::size_t capacity)
    : queue_(std::move(queue)), capacity_(capacity) {
  tasks_.reserve(capacity);
}

bool DeliveryChain::takes(const OperationQueue& queue) const noexcept {
  return queue_.get() == &queue && tasks_.size() < capacity_;
}

void DeliveryChain::start(std::shared_ptr<DeliveryChain> chain) {
  OperationQueue& queue = *chain->queue_;
  queue.addOperation([chain = std::move(chain)] { runNext(chain); });
}

void DeliveryChain::runNext(const std::shared_ptr<DeliveryChain>& chain) {
  for (bool ownTurn = true; ownTurn;) {
    const auto task = std::move(chain->tasks_[chain->next_++]);
    ownTurn = chain->next_ < chain->tasks_.size();
    if (ownTurn) ownTurn = !handOn(chain);
    task->deliver();
  }
}

// Without memory for another operation the rest is told in this one.
bool DeliveryChain::handOn(const std::shared_ptr<DeliveryChain>& chain) {
  try {
    start(chain);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace tarn::detail
