#include <Platform/URLLoading/Curl/HostQueues.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <algorithm>
#include <utility>

namespace tarn::detail {

namespace {

// What servers commonly allow on one connection, and what RFC 9113 recommends as the least.
constexpr int multiplexedLimit = 100;

constexpr std::size_t fewQueues = 16;

}  // namespace

void HostQueue::leave(Transfer& transfer) noexcept { std::erase(waiting_, &transfer); }

Transfer* HostQueue::next() noexcept {
  if (active_ >= limit()) return nullptr;
  const auto first = std::find_if(waiting_.begin(), waiting_.end(), [](const Transfer* transfer) {
    return !transfer->isSuspended();
  });
  if (first == waiting_.end()) return nullptr;
  Transfer* const transfer = *first;
  waiting_.erase(first);
  ++active_;
  return transfer;
}

bool HostQueue::setMultiplexed(bool multiplexed) noexcept {
  return std::exchange(multiplexed_, multiplexed) != multiplexed;
}

int HostQueue::limit() const noexcept {
  return multiplexed_ ? std::max(multiplexedLimit, connectionLimit_) : connectionLimit_;
}

const std::shared_ptr<HostQueue>& HostQueues::of(Origin origin) {
  const auto known = queues_.find(origin);
  if (known != queues_.end()) return known->second;
  if (queues_.size() >= mostQueues_) dropUnused();
  auto queue = std::make_shared<HostQueue>(origin, connectionLimit_);
  return queues_.emplace(std::move(origin), std::move(queue)).first->second;
}

// A queue that knows of HTTP/2 is kept: the next burst then does not start with six.
void HostQueues::dropUnused() noexcept {
  std::erase_if(queues_, [](const auto& entry) {
    return entry.second.use_count() == 1 && !entry.second->isMultiplexed();
  });
  mostQueues_ = std::max(fewQueues, 2 * queues_.size());
}

}  // namespace tarn::detail
