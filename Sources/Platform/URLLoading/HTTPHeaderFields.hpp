#pragma once

#include <Platform/Types/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace tarn {

namespace detail {
class HeaderFieldsBuilder;
}

/// Header fields of one HTTP message in the order they were first seen; names compare without
/// regard to ASCII case (RFC 9110, 5.1). Copies share the text. The views that it hands out live as
/// long as this object is neither changed nor moved from; they may be arguments of its own
/// functions. A name or value of 4 GiB or more is refused with std::length_error.
class HTTPHeaderFields {
 public:
  /// A name and its value.
  using value_type = std::pair<std::string_view, std::string_view>;
  class const_iterator;

  HTTPHeaderFields() = default;
  /// As by add(), one after another.
  HTTPHeaderFields(std::initializer_list<value_type> fields);
  explicit HTTPHeaderFields(std::span<const value_type> fields);

  /// The value of a field, or nothing.
  std::optional<std::string_view> value(std::string_view name) const noexcept;
  bool contains(std::string_view name) const noexcept { return value(name).has_value(); }

  /// Adds a field; a second value under the same name is joined to the first by ", " (RFC
  /// 9110, 5.3).
  void add(std::string_view name, std::string_view value);
  /// Replaces the field or adds it.
  void set(std::string_view name, std::string_view value);
  void remove(std::string_view name);

  const_iterator begin() const noexcept;
  const_iterator end() const noexcept;
  /// Counts the fields.
  std::size_t size() const noexcept;
  bool empty() const noexcept { return text_.empty(); }

  /// Same names (case aside) with the same values, in any order.
  friend bool operator==(const HTTPHeaderFields& left, const HTTPHeaderFields& right) noexcept;

 private:
  friend class detail::HeaderFieldsBuilder;

  struct Sizes {
    std::uint32_t name;
    std::uint32_t value;

    static Sizes of(std::size_t name, std::size_t value);
  };

  const_iterator find(std::string_view name) const noexcept;
  void replace(const_iterator field, const HTTPHeaderFields& replacement);

  // Each field in turn: its sizes, its name, its value.
  Data text_;
};

/// A forward iterator whose elements are made as they are read.
class HTTPHeaderFields::const_iterator {
  struct Arrow {
    value_type field;
    const value_type* operator->() const noexcept { return &field; }
  };

 public:
  using iterator_concept = std::forward_iterator_tag;
  using iterator_category = std::input_iterator_tag;  // which may have no references either
  using value_type = HTTPHeaderFields::value_type;
  using difference_type = std::ptrdiff_t;
  using pointer = Arrow;
  using reference = value_type;

  const_iterator() = default;

  reference operator*() const noexcept {
    Sizes sizes;
    std::memcpy(&sizes, place_, sizeof sizes);
    const char* const name = place_ + sizeof sizes;
    return {{name, sizes.name}, {name + sizes.name, sizes.value}};
  }
  pointer operator->() const noexcept { return {**this}; }
  const_iterator& operator++() noexcept {
    const auto value = (**this).second;
    place_ = value.data() + value.size();
    return *this;
  }
  const_iterator operator++(int) noexcept {
    const auto former = *this;
    ++*this;
    return former;
  }
  friend bool operator==(const_iterator left, const_iterator right) noexcept = default;

 private:
  friend class HTTPHeaderFields;
  explicit const_iterator(const char* place) noexcept : place_(place) {}

  const char* place_ = nullptr;
};

inline HTTPHeaderFields::const_iterator HTTPHeaderFields::begin() const noexcept {
  return const_iterator(text_.view().data());
}

inline HTTPHeaderFields::const_iterator HTTPHeaderFields::end() const noexcept {
  const auto text = text_.view();
  return const_iterator(text.data() + text.size());
}

namespace detail {
bool sameButForCase(const char* left, const char* right, std::size_t size) noexcept;
}

/// Whether two texts are the same but for the case of ASCII letters.
inline bool equalsIgnoringCase(std::string_view left, std::string_view right) noexcept {
  return left.size() == right.size() &&
         detail::sameButForCase(left.data(), right.data(), left.size());
}

}  // namespace tarn
