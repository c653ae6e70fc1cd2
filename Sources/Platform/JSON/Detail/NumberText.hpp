#pragma once

#include <array>
#include <cfloat>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace tarn::detail {

/// A number of RFC 8259 section 6: `digits` times ten to the power of `scale`.
struct Number {
  /// Reads the number that `start` starts with; `text` is empty where there is none.
  explicit Number(std::string_view start) noexcept;

  std::string_view text;
  std::uint64_t digits = 0;  // those of the whole and of the fraction in a row, modulo 2^64
  std::int64_t scale = 0;    // large ones end beyond the length of any text
  std::size_t size = 0;      // how many digits there are
  bool isNegative = false;

  /// Whether `digits` is all there is to know of the digits.
  bool isShort() const noexcept { return size <= std::numeric_limits<std::uint64_t>::digits10; }
};

// What most numbers need is compiled into their readers, where a Number stays in registers. The
// rest starts again from the text.

struct Exponent {
  std::int64_t value;
  const char* end;  // null where there is none
};
/// What follows the "e".
Exponent readExponent(const char* at, const char* end) noexcept;
template <class T>
bool shiftedWholeNumber(std::string_view text, T& value);
template <class T>
bool roundedNumber(std::string_view text, T& value) noexcept;

inline Number::Number(std::string_view start) noexcept {
  const char* at = start.data();
  const char* const end = at + start.size();
  std::uint64_t value = 0;
  const auto takeDigits = [&] {
    const char* const first = at;
    for (; at != end; ++at) {
      const auto digit = static_cast<unsigned>(*at) - unsigned{'0'};
      if (digit > 9) break;
      value = value * 10 + digit;
    }
    return at - first;
  };
  isNegative = at != end && *at == '-';
  if (isNegative) ++at;
  const char* const first = at;
  const auto whole = takeDigits();
  if (whole == 0 || (*first == '0' && whole > 1)) return;
  std::ptrdiff_t fraction = 0;
  if (at != end && *at == '.') {
    ++at;
    fraction = takeDigits();
    if (fraction == 0) return;
  }
  digits = value;
  size = static_cast<std::size_t>(whole + fraction);
  scale = -fraction;
  if (at != end && (*at == 'e' || *at == 'E')) {
    const auto exponent = readExponent(at + 1, end);
    if (exponent.end == nullptr) return;
    scale += exponent.value;
    at = exponent.end;
  }
  text = {start.data(), static_cast<std::size_t>(at - start.data())};
}

/// Reads a number that is whole, also when it is written with a fraction or an exponent; false
/// where it is none, or does not fit T, a 64-bit integer.
template <class T>
bool wholeNumber(const Number& number, T& value) {
  constexpr auto greatest = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
  const bool isPlain = number.scale == 0 && number.isShort();
  if (!isPlain || number.digits > greatest) return shiftedWholeNumber(number.text, value);
  if (std::unsigned_integral<T> && number.isNegative && number.digits != 0) return false;
  const auto magnitude = static_cast<T>(number.digits);
  value = number.isNegative ? static_cast<T>(-magnitude) : magnitude;
  return true;
}

/// The powers of ten that T holds exactly.
template <class T>
constexpr auto exactPowers = [] {
  std::array<T, std::same_as<T, float> ? 11 : 23> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

/// Reads the nearest value of T, float or double; false where the number is too large. Too small
/// ones are zero.
template <class T>
bool floatingPoint(const Number& number, T& value) noexcept {
  constexpr auto& powers = exactPowers<T>;
  constexpr auto most = static_cast<std::int64_t>(powers.size());
  constexpr auto greatest = std::uint64_t{1} << std::numeric_limits<T>::digits;
  // The digits and the power of ten are both exact, so that the result is rounded only once.
  const bool isExact = FLT_EVAL_METHOD == 0 && number.isShort() && number.digits <= greatest &&
                       number.scale > -most && number.scale < most;
  if (!isExact) return roundedNumber(number.text, value);
  const T digits = static_cast<T>(static_cast<std::int64_t>(number.digits));
  const T magnitude = number.scale <= 0 ? digits / powers[static_cast<std::size_t>(-number.scale)]
                                        : digits * powers[static_cast<std::size_t>(number.scale)];
  value = number.isNegative ? -magnitude : magnitude;
  return true;
}

}  // namespace tarn::detail
