#include <Platform/URLLoading/Detail/ResponseCache.hpp>

#include <algorithm>
#include <iterator>

namespace tarn::detail {

namespace {

// Of one address: finding one looks at all of them.
constexpr std::ptrdiff_t mostVariants = 16;

}  // namespace

std::string ResponseCache::keyOf(const Origin& origin, const URL& url) {
  const std::string port = std::to_string(origin.port);
  std::string key = origin.secure ? "https://" : "http://";
  key.reserve(key.size() + origin.host.size() + port.size() + url.absoluteString().size());
  key.append(origin.host).append(":").append(port);
  appendRequestTarget(key, url);
  return key;
}

ResponseCache::Entry ResponseCache::find(std::string_view key, const URLRequest& request) {
  const auto [begin, end] = places_.equal_range(key);
  auto latest = kept_.end();
  for (auto place = begin; place != end; ++place) {
    const auto& answer = *place->second->answer;
    if (!answer.answers(request)) continue;
    if (latest == kept_.end() || latest->answer->receivedAt() < answer.receivedAt()) {
      latest = place->second;
    }
  }
  if (latest == kept_.end()) return nullptr;
  kept_.splice(kept_.begin(), kept_, latest);
  return latest->answer;
}

void ResponseCache::store(std::string_view key, const URLRequest& request, Entry entry) {
  bool wanted = key.size() + entry->cost() <= mostCost();
  auto [place, end] = places_.equal_range(key);
  while (place != end) {
    if (!place->second->answer->answers(request)) {
      ++place;
    } else if (wanted) {
      replace(place->second, std::move(entry));
      wanted = false;
      ++place;
    } else {
      place = remove(place);
    }
  }
  if (wanted) {
    limitVariants(key);
    insert(key, std::move(entry));
  }
  makeRoom();
}

void ResponseCache::renew(std::string_view key, const Entry& entry, Entry renewed) {
  const auto [begin, end] = places_.equal_range(key);
  const auto place =
      std::find_if(begin, end, [&](const auto& each) { return each.second->answer == entry; });
  if (place == end) return;
  if (key.size() + renewed->cost() > mostCost()) {
    remove(place);
  } else {
    replace(place->second, std::move(renewed));
    makeRoom();
  }
}

void ResponseCache::forget(std::string_view key, const URLRequest& request) {
  auto [place, end] = places_.equal_range(key);
  while (place != end) {
    place = place->second->answer->answers(request) ? remove(place) : std::next(place);
  }
}

void ResponseCache::invalidate(std::string_view key) {
  ++changes_;
  auto [place, end] = places_.equal_range(key);
  while (place != end) place = remove(place);
}

void ResponseCache::clear() noexcept {
  places_.clear();
  kept_.clear();
  cost_ = 0;
}

void ResponseCache::insert(std::string_view key, Entry entry) {
  kept_.push_front({std::string(key), std::move(entry)});
  try {
    places_.emplace(kept_.front().key, kept_.begin());
  } catch (...) {
    kept_.pop_front();
    throw;
  }
  cost_ += kept_.front().cost();
}

void ResponseCache::replace(KeptList::iterator kept, Entry entry) noexcept {
  cost_ -= kept->cost();
  kept->answer = std::move(entry);
  cost_ += kept->cost();
  kept_.splice(kept_.begin(), kept_, kept);
}

// The key goes with the answer, so the place that refers to it goes first.
ResponseCache::Places::iterator ResponseCache::remove(Places::iterator place) noexcept {
  const auto kept = place->second;
  const auto next = places_.erase(place);
  cost_ -= kept->cost();
  kept_.erase(kept);
  return next;
}

void ResponseCache::makeRoom() noexcept {
  while (cost_ > capacity_) {
    const auto last = std::prev(kept_.end());
    const auto [begin, end] = places_.equal_range(last->key);
    remove(std::find_if(begin, end, [last](const auto& each) { return each.second == last; }));
  }
}

void ResponseCache::limitVariants(std::string_view key) noexcept {
  const auto [begin, end] = places_.equal_range(key);
  if (std::distance(begin, end) < mostVariants) return;
  remove(std::min_element(begin, end, [](const auto& left, const auto& right) {
    return left.second->answer->receivedAt() < right.second->answer->receivedAt();
  }));
}

}  // namespace tarn::detail
