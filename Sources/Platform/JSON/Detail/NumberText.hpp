#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace tarn::detail {

/// A number of RFC 8259 section 6, taken apart.
struct Number {
  std::string_view text;
  std::string_view whole;     // digits in front of the point
  std::string_view fraction;  // digits behind it
  std::int64_t exponent = 0;  // large ones end beyond the length of any text
  std::uint64_t digits = 0;   // all of them as one whole number, modulo 2^64
  bool isNegative = false;

  /// Reads the number that `start` starts with; false where there is none.
  bool read(std::string_view start) noexcept;

  std::size_t size() const noexcept { return whole.size() + fraction.size(); }
  /// Whether `digits` is all there is to know of the digits.
  bool isShort() const noexcept { return size() <= std::numeric_limits<std::uint64_t>::digits10; }
  /// The power of ten that `digits` is multiplied by.
  std::int64_t scale() const noexcept {
    return exponent - static_cast<std::int64_t>(fraction.size());
  }
};

/// The value of a number that is whole, also when it is written with a fraction or an exponent;
/// nothing where it is none, or does not fit T, a 64-bit integer.
template <class T>
std::optional<T> wholeNumber(const Number& number);

/// The nearest value of T, float or double; nothing where the number is too large. Too small ones
/// are zero.
template <class T>
std::optional<T> floatingPoint(const Number& number) noexcept;

}  // namespace tarn::detail
