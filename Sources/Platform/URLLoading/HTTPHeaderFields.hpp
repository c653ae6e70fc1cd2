#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

/// Header fields of one HTTP message in the order they were first seen; names compare without
/// regard to ASCII case (RFC 9110, 5.1).
class HTTPHeaderFields {
 public:
  using value_type = std::pair<std::string, std::string>;
  using const_iterator = std::vector<value_type>::const_iterator;

  HTTPHeaderFields() = default;
  HTTPHeaderFields(std::initializer_list<value_type> fields);

  /// The value of a field, or nothing. The text lives as long as this object is not changed.
  std::optional<std::string_view> value(std::string_view name) const noexcept;
  bool contains(std::string_view name) const noexcept { return value(name).has_value(); }

  /// Adds a field; a second value under the same name is joined to the first by ", " (RFC
  /// 9110, 5.3).
  void add(std::string_view name, std::string_view value);
  /// Replaces the field or adds it.
  void set(std::string_view name, std::string_view value);
  void remove(std::string_view name);
  /// Makes room for `count` fields in all.
  void reserve(std::size_t count) { fields_.reserve(count); }
  /// Gives room that is not used back.
  void shrinkToFit() { fields_.shrink_to_fit(); }

  const_iterator begin() const noexcept { return fields_.begin(); }
  const_iterator end() const noexcept { return fields_.end(); }
  std::size_t size() const noexcept { return fields_.size(); }
  bool empty() const noexcept { return fields_.empty(); }

  /// Same names (case aside) with the same values, in any order.
  friend bool operator==(const HTTPHeaderFields& left, const HTTPHeaderFields& right) noexcept;

 private:
  std::vector<value_type>::iterator find(std::string_view name) noexcept;

  std::vector<value_type> fields_;
};

/// Whether two texts are the same but for the case of ASCII letters.
bool equalsIgnoringCase(std::string_view left, std::string_view right) noexcept;

}  // namespace tarn
