#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <numeric>
#include <vector>

namespace tarn {

namespace {

constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Any order will do that makes equal names neighbours.
bool precedes(std::string_view left, std::string_view right) noexcept {
  if (left.size() != right.size()) return left.size() < right.size();
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [](char a, char b) { return lower(a) < lower(b); });
}

/// Where a field stands among those of its name.
struct Place {
  bool isFirst = true;
  std::size_t next = 0;  // 0 for none: the first of all follows nobody
};

// Servers may send thousands of names: each is compared with few.
std::vector<Place> placesByName(std::span<const HTTPHeaderFields::value_type> fields) {
  std::vector<std::size_t> order(fields.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [fields](std::size_t left, std::size_t right) {
    if (precedes(fields[left].first, fields[right].first)) return true;
    return left < right && !precedes(fields[right].first, fields[left].first);
  });
  std::vector<Place> places(fields.size());
  for (std::size_t i = 1; i < order.size(); ++i) {
    if (!equalsIgnoringCase(fields[order[i - 1]].first, fields[order[i]].first)) continue;
    places[order[i - 1]].next = order[i];
    places[order[i]].isFirst = false;
  }
  return places;
}

}  // namespace

bool detail::sameButForCase(const char* left, const char* right, std::size_t size) noexcept {
  return std::equal(left, left + size, right,
                    [](char a, char b) { return a == b || lower(a) == lower(b); });
}

HTTPHeaderFields::HTTPHeaderFields(std::initializer_list<value_type> fields)
    : HTTPHeaderFields(std::span(fields.begin(), fields.size())) {}

// Each value is written once, however many parts it is joined from.
HTTPHeaderFields::HTTPHeaderFields(std::span<const value_type> fields) {
  std::size_t most = 0;
  for (const auto& [name, value] : fields) most += sizeof(Sizes) + name.size() + value.size();
  text_.resize(most);
  char* end = text_.data();
  const auto write = [&end](std::string_view text) {
    end = std::copy(text.begin(), text.end(), end);
  };
  const auto places = placesByName(fields);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (!places[i].isFirst) continue;
    char* const start = std::exchange(end, end + sizeof(Sizes));
    write(fields[i].first);
    const char* const valueStart = end;
    write(fields[i].second);
    for (auto next = places[i].next; next != 0; next = places[next].next) {
      write(", ");
      write(fields[next].second);
    }
    const Sizes sizes{fields[i].first.size(), static_cast<std::size_t>(end - valueStart)};
    std::memcpy(start, &sizes, sizeof sizes);
  }
  text_.resize(static_cast<std::size_t>(end - text_.data()));
  text_.shrink_to_fit();  // where names are repeated
}

std::optional<std::string_view> HTTPHeaderFields::value(std::string_view name) const noexcept {
  const auto field = find(name);
  return field == end() ? std::nullopt : std::optional(field->second);
}

void HTTPHeaderFields::add(std::string_view name, std::string_view value) {
  const auto field = find(name);
  if (field == end()) return replace(field, {{name, value}});
  replace(field, {{field->first, std::string(field->second).append(", ").append(value)}});
}

void HTTPHeaderFields::set(std::string_view name, std::string_view value) {
  const auto field = find(name);
  replace(field, {{field == end() ? name : field->first, value}});
}

void HTTPHeaderFields::remove(std::string_view name) { replace(find(name), {}); }

std::size_t HTTPHeaderFields::size() const noexcept {
  return static_cast<std::size_t>(std::distance(begin(), end()));
}

HTTPHeaderFields::const_iterator HTTPHeaderFields::find(std::string_view name) const noexcept {
  return std::find_if(begin(), end(),
                      [name](const auto& field) { return equalsIgnoringCase(field.first, name); });
}

// At the end there is none to replace.
void HTTPHeaderFields::replace(const_iterator field, const HTTPHeaderFields& replacement) {
  const auto next = field == end() ? field : std::next(field);
  text_.replace(static_cast<std::size_t>(field.place_ - text_.data()),
                static_cast<std::size_t>(next.place_ - field.place_), replacement.text_);
}

bool operator==(const HTTPHeaderFields& left, const HTTPHeaderFields& right) noexcept {
  return left.size() == right.size() &&
         std::all_of(left.begin(), left.end(),
                     [&](const auto& field) { return right.value(field.first) == field.second; });
}

}  // namespace tarn
