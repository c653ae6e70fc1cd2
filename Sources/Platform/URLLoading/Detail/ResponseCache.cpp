#include <Platform/URLLoading/Detail/ResponseCache.hpp>

#include <algorithm>
#include <iterator>

namespace tarn::detail {

namespace {

// Of one address: finding one looks at all of them.
constexpr std::ptrdiff_t mostVariants = 16;

}  // namespace

ResponseCache::Entry ResponseCache::find(const URLRequest& request) {
  const auto key = StoredAnswer::keyOf(request.url());
  const auto [begin, end] = places_.equal_range(key);
  auto latest = end;
  for (auto place = begin; place != end; ++place) {
    const StoredAnswer& answer = **place->second;
    if (!answer.answers(request)) continue;
    if (latest == end || (*latest->second)->receivedAt() < answer.receivedAt()) latest = place;
  }
  if (latest == end) return nullptr;
  entries_.splice(entries_.begin(), entries_, latest->second);
  return *latest->second;
}

void ResponseCache::store(const URLRequest& request, Entry entry) {
  forget(request, entry->key());
  if (entry->cost() > mostCost()) return;
  limitVariants(entry->key());
  insert(std::move(entry));
}

void ResponseCache::renew(const Entry& entry, Entry renewed) {
  const auto place = placeOf(entry);
  if (place == places_.end()) return;
  remove(place);
  if (renewed->cost() <= mostCost()) insert(std::move(renewed));
}

void ResponseCache::forget(const URLRequest& request) {
  forget(request, StoredAnswer::keyOf(request.url()));
}

void ResponseCache::forget(const URLRequest& request, std::string_view key) {
  auto [place, end] = places_.equal_range(key);
  while (place != end) {
    place = (*place->second)->answers(request) ? remove(place) : std::next(place);
  }
}

void ResponseCache::invalidate(const URL& url) {
  ++changes_;
  const auto key = StoredAnswer::keyOf(url);
  auto [place, end] = places_.equal_range(key);
  while (place != end) place = remove(place);
}

void ResponseCache::clear() noexcept {
  places_.clear();
  entries_.clear();
  cost_ = 0;
}

void ResponseCache::insert(Entry entry) {
  while (cost_ + entry->cost() > capacity_) remove(placeOf(entries_.back()));
  entries_.push_front(std::move(entry));
  try {
    places_.emplace(entries_.front()->key(), entries_.begin());
  } catch (...) {
    entries_.pop_front();
    throw;
  }
  cost_ += entries_.front()->cost();
}

// The key goes with the entry, so the place that refers to it goes first.
ResponseCache::Places::iterator ResponseCache::remove(Places::iterator place) noexcept {
  const auto entry = place->second;
  const auto next = places_.erase(place);
  cost_ -= (*entry)->cost();
  entries_.erase(entry);
  return next;
}

ResponseCache::Places::iterator ResponseCache::placeOf(const Entry& entry) noexcept {
  const auto [begin, end] = places_.equal_range(entry->key());
  const auto place =
      std::find_if(begin, end, [&](const auto& each) { return *each.second == entry; });
  return place == end ? places_.end() : place;
}

void ResponseCache::limitVariants(std::string_view key) noexcept {
  const auto [begin, end] = places_.equal_range(key);
  if (std::distance(begin, end) < mostVariants) return;
  remove(std::min_element(begin, end, [](const auto& left, const auto& right) {
    return (*left.second)->receivedAt() < (*right.second)->receivedAt();
  }));
}

}  // namespace tarn::detail
