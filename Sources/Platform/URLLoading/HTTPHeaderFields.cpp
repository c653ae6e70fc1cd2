#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>

namespace tarn {

namespace {

constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
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
  for (auto field = fields.begin(); field != fields.end(); ++field) {
    const auto& [name, value] = *field;
    const auto hasName = [&name](const auto& other) {
      return equalsIgnoringCase(other.first, name);
    };
    if (std::any_of(fields.begin(), field, hasName)) continue;
    char* const start = std::exchange(end, end + sizeof(Sizes));
    write(name);
    const char* const valueStart = end;
    write(value);
    for (auto other = field + 1; other != fields.end(); ++other) {
      if (!hasName(*other)) continue;
      write(", ");
      write(other->second);
    }
    const Sizes sizes{name.size(), static_cast<std::size_t>(end - valueStart)};
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
