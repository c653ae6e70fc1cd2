#include <Tambour/OptionalQueue.hpp>

#include <utility>

namespace tarn {

void async(const std::optional<DispatchQueue>& queue, Work work) {
  (queue ? *queue : DispatchQueue::global()).async(std::move(work));
}

}  // namespace tarn
