#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>

namespace tarn {

namespace {

constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool equalsIgnoringCase(std::string_view left, std::string_view right) noexcept {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char a, char b) { return a == b || lower(a) == lower(b); });
}

HTTPHeaderFields::HTTPHeaderFields(std::initializer_list<value_type> fields) {
  fields_.reserve(fields.size());
  for (const auto& [name, value] : fields) add(name, value);
}

std::optional<std::string_view> HTTPHeaderFields::value(std::string_view name) const noexcept {
  for (const auto& field : fields_) {
    if (equalsIgnoringCase(field.first, name)) return field.second;
  }
  return std::nullopt;
}

void HTTPHeaderFields::add(std::string_view name, std::string_view value) {
  const auto place = find(name);
  if (place == fields_.end()) {
    fields_.emplace_back(name, value);
  } else {
    place->second.append(", ").append(value);
  }
}

void HTTPHeaderFields::set(std::string_view name, std::string_view value) {
  const auto place = find(name);
  if (place == fields_.end()) {
    fields_.emplace_back(name, value);
  } else {
    place->second = value;
  }
}

void HTTPHeaderFields::remove(std::string_view name) {
  const auto place = find(name);
  if (place != fields_.end()) fields_.erase(place);
}

std::vector<HTTPHeaderFields::value_type>::iterator HTTPHeaderFields::find(
    std::string_view name) noexcept {
  return std::find_if(fields_.begin(), fields_.end(),
                      [name](const auto& field) { return equalsIgnoringCase(field.first, name); });
}

bool operator==(const HTTPHeaderFields& left, const HTTPHeaderFields& right) noexcept {
  return left.size() == right.size() &&
         std::all_of(left.begin(), left.end(),
                     [&](const auto& field) { return right.value(field.first) == field.second; });
}

}  // namespace tarn
