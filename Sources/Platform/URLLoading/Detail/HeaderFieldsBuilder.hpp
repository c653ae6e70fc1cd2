#pragma once

#include <Platform/URLLoading/Detail/Recycled.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <array>
#include <cstddef>
#include <memory_resource>
#include <span>
#include <string>
#include <string_view>

namespace tarn::detail {

/// Puts header fields together that come one after another.
class HeaderFieldsBuilder final : public Recycled<HeaderFieldsBuilder> {
 public:
  HeaderFieldsBuilder();
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

  // Most heads find room in here. A longer one leaves up to twice its size behind as it grows,
  // until the builder goes, which is soon.
  std::array<std::byte, 704> nearby_;
  std::pmr::monotonic_buffer_resource memory_{nearby_.data(), nearby_.size()};
  std::pmr::string text_{&memory_};
  std::size_t last_ = 0;  // where the last field begins
  std::size_t count_ = 0;
};

}  // namespace tarn::detail
