#pragma once

#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace tarn::detail {

/// Puts header fields together that come one after another.
class HeaderFieldsBuilder {
 public:
  /// Makes room for so many fields with so many characters in all.
  void reserve(std::size_t fields, std::size_t characters);
  /// Throws std::length_error where a text is longer than 2^32 - 1 bytes.
  void add(std::string_view name, std::string_view value);
  /// Adds to the value of the last field; there must be one.
  void extend(std::string_view text);
  /// What HTTPHeaderFields::add() would have made of the fields, each with its whole value; none
  /// are left here.
  HTTPHeaderFields take();

 private:
  static Data joined(const HTTPHeaderFields& fields,
                     std::span<const HTTPHeaderFields::const_iterator> sorted);

  std::string text_;
  std::size_t last_ = 0;  // where the last field begins
  std::size_t count_ = 0;
};

}  // namespace tarn::detail
