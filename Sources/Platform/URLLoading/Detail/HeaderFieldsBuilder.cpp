#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/HeaderFieldsBuilder.hpp>

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

namespace tarn::detail {

namespace {

using Place = HTTPHeaderFields::const_iterator;

// Any order will do that makes equal names neighbours.
std::strong_ordering compareNames(std::string_view left, std::string_view right) noexcept {
  if (left.size() != right.size()) return left.size() <=> right.size();
  const auto [l, r] = std::mismatch(left.begin(), left.end(), right.begin(), [](char a, char b) {
    return a == b || lowercased(a) == lowercased(b);
  });
  if (l == left.end()) return std::strong_ordering::equal;
  return lowercased(*l) <=> lowercased(*r);
}

bool namePrecedes(Place left, Place right) noexcept {
  return compareNames(left->first, right->first) < 0;
}

// Those of one name keep their order.
bool precedes(Place left, Place right) noexcept {
  const auto order = compareNames(left->first, right->first);
  return order != 0 ? order < 0 : std::less<>()(left->first.data(), right->first.data());
}

bool haveSameName(Place left, Place right) noexcept {
  return equalsIgnoringCase(left->first, right->first);
}

}  // namespace

HeaderFieldsBuilder::HeaderFieldsBuilder() {
  text_.reserve(nearby_.size() - 1);  // and the null that a string ends with
}

void HeaderFieldsBuilder::add(std::string_view name, std::string_view value) {
  const auto sizes = HTTPHeaderFields::Sizes::of(name.size(), value.size());
  last_ = text_.size();
  text_.append(reinterpret_cast<const char*>(&sizes), sizeof sizes).append(name).append(value);
  ++count_;
}

void HeaderFieldsBuilder::extend(std::string_view text) {
  char* const place = text_.data() + last_;
  HTTPHeaderFields::Sizes sizes;
  std::memcpy(&sizes, place, sizeof sizes);
  sizes = HTTPHeaderFields::Sizes::of(sizes.name, sizes.value + text.size());
  std::memcpy(place, &sizes, sizeof sizes);
  text_.append(text);
}

// Servers may send thousands of names: each is compared with few.
HTTPHeaderFields HeaderFieldsBuilder::take() {
  HTTPHeaderFields fields;
  fields.text_ = Data(text_);
  text_.clear();
  std::array<std::byte, 512> nearby;  // enough for most
  std::pmr::monotonic_buffer_resource memory(nearby.data(), nearby.size());
  std::pmr::vector<Place> sorted(&memory);
  sorted.reserve(std::exchange(count_, 0));
  const auto end = fields.end();
  for (auto field = fields.begin(); field != end; ++field) sorted.push_back(field);
  std::sort(sorted.begin(), sorted.end(), precedes);
  const bool repeats =
      std::adjacent_find(sorted.begin(), sorted.end(), haveSameName) != sorted.end();
  if (repeats) fields.text_ = joined(fields, sorted);
  return fields;
}

// Each value is written once, however many parts it is joined from.
Data HeaderFieldsBuilder::joined(const HTTPHeaderFields& fields, std::span<const Place> sorted) {
  HeaderFieldsBuilder result;
  result.text_.reserve(fields.text_.size());
  for (auto field = fields.begin(); field != fields.end(); ++field) {
    auto same = std::lower_bound(sorted.begin(), sorted.end(), field, namePrecedes);
    if (*same != field) continue;  // it is not the first of its name
    result.add(field->first, field->second);
    while (++same != sorted.end() && haveSameName(*same, field)) {
      result.extend(", ");
      result.extend((*same)->second);
    }
  }
  return Data(result.text_);
}

}  // namespace tarn::detail
