#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/HeaderFieldsBuilder.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace tarn {

bool detail::sameButForCase(const char* left, const char* right, std::size_t size) noexcept {
  return std::equal(left, left + size, right,
                    [](char a, char b) { return a == b || lowercased(a) == lowercased(b); });
}

HTTPHeaderFields::HTTPHeaderFields(std::initializer_list<value_type> fields)
    : HTTPHeaderFields(std::span(fields.begin(), fields.size())) {}

HTTPHeaderFields::HTTPHeaderFields(std::span<const value_type> fields) {
  detail::HeaderFieldsBuilder builder;
  for (const auto& [name, value] : fields) builder.add(name, value);
  *this = builder.take();
}

HTTPHeaderFields::Sizes HTTPHeaderFields::Sizes::of(std::size_t name, std::size_t value) {
  constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
  if (name > most || value > most) throw std::length_error("a header field is too long");
  return {static_cast<std::uint32_t>(name), static_cast<std::uint32_t>(value)};
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
  const std::string_view text = text_.view();
  Data changed;
  changed.reserve(text.size() + replacement.text_.size());
  changed.append(text.substr(0, static_cast<std::size_t>(field.place_ - text.data())));
  changed.append(replacement.text_.view());
  changed.append(text.substr(static_cast<std::size_t>(next.place_ - text.data())));
  text_ = std::move(changed);
}

bool operator==(const HTTPHeaderFields& left, const HTTPHeaderFields& right) noexcept {
  return left.size() == right.size() &&
         std::all_of(left.begin(), left.end(),
                     [&](const auto& field) { return right.value(field.first) == field.second; });
}

}  // namespace tarn
