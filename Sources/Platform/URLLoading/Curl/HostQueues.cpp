#include <Platform/URLLoading/Curl/HostQueues.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <algorithm>
#include <utility>

namespace tarn::detail {

namespace {

// What servers commonly allow on one connection, and what RFC 9113 recommends as the least.
constexpr int multiplexedLimit = 100;

}  // namespace

void HostQueues::enter(const Origin& origin, Transfer& transfer) {
  queues_[origin].waiting.push_back(&transfer);
}

bool HostQueues::hasWaiting(const Origin& origin) const noexcept {
  const auto place = queues_.find(origin);
  return place != queues_.end() && !place->second.waiting.empty();
}

void HostQueues::leave(const Origin& origin, Transfer& transfer) noexcept {
  const auto place = queues_.find(origin);
  if (place == queues_.end()) return;
  auto& waiting = place->second.waiting;
  waiting.erase(std::remove(waiting.begin(), waiting.end(), &transfer), waiting.end());
}

void HostQueues::release(const Origin& origin) noexcept {
  const auto place = queues_.find(origin);
  if (place == queues_.end()) return;
  Queue& queue = place->second;
  --queue.active;
  // A queue that knows of HTTP/2 is kept: the next burst then does not start with six.
  if (queue.active == 0 && queue.waiting.empty() && !queue.multiplexed) queues_.erase(place);
}

Transfer* HostQueues::next(const Origin& origin) noexcept {
  const auto place = queues_.find(origin);
  if (place == queues_.end()) return nullptr;
  Queue& queue = place->second;
  if (queue.active >= limit(queue)) return nullptr;
  const auto first =
      std::find_if(queue.waiting.begin(), queue.waiting.end(),
                   [](const Transfer* transfer) { return !transfer->isSuspended(); });
  if (first == queue.waiting.end()) return nullptr;
  Transfer* transfer = *first;
  queue.waiting.erase(first);
  ++queue.active;
  return transfer;
}

bool HostQueues::setMultiplexed(const Origin& origin, bool multiplexed) noexcept {
  const auto place = queues_.find(origin);
  return place != queues_.end() &&
         std::exchange(place->second.multiplexed, multiplexed) != multiplexed;
}

void HostQueues::questionClosed(const Origin& origin, Clock::time_point now) noexcept {
  const auto place = queues_.find(origin);
  if (place != queues_.end()) place->second.lastQuestion = now;
}

Clock::time_point HostQueues::lastQuestion(const Origin& origin) const noexcept {
  const auto place = queues_.find(origin);
  return place != queues_.end() ? place->second.lastQuestion : Clock::time_point::min();
}

int HostQueues::limit(const Queue& queue) const noexcept {
  return queue.multiplexed ? std::max(multiplexedLimit, connectionLimit_) : connectionLimit_;
}

}  // namespace tarn::detail
