#include <Platform/JSON/Detail/NumberText.hpp>

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>

namespace tarn::detail {
namespace {

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// The text without its exponent: digits, a sign and a point.
std::string_view mantissa(const Number& number) noexcept {
  return number.text.substr(0, number.text.find_first_of("eE"));
}

/// How many zeros the digits start with.
std::int64_t leadingZeros(const Number& number) noexcept {
  std::int64_t count = 0;
  for (const char c : mantissa(number)) {
    if (c > '0') break;
    count += c == '0';
  }
  return count;
}

/// How many digits stand in front of the point once the exponent is applied.
std::int64_t point(const Number& number) noexcept {
  return static_cast<std::int64_t>(number.size) + number.scale;
}

}  // namespace

Exponent readExponent(const char* at, const char* end) noexcept {
  const bool isSmall = at != end && *at == '-';
  if (isSmall || (at != end && *at == '+')) ++at;
  const char* const start = at;
  std::int64_t value = 0;
  constexpr std::int64_t greatest = 1'000'000'000'000;
  for (; at != end && isDigit(*at); ++at) value = std::min(value * 10 + (*at - '0'), greatest);
  return {isSmall ? -value : value, at == start ? nullptr : at};
}

/// Digit by digit, for numbers that are long, or written with a fraction or an exponent.
template <class T>
bool shiftedWholeNumber(std::string_view text, T& value) {
  const Number number(text);
  const auto first = leadingZeros(number);
  if (first == static_cast<std::int64_t>(number.size)) {
    value = 0;
    return true;
  }
  constexpr std::int64_t most = 20;  // digits of the greatest
  const auto count = point(number) - first;
  if (count <= 0 || count > most) return false;
  std::string whole(number.isNegative ? "-" : "");
  std::int64_t index = 0;
  for (const char c : mantissa(number)) {
    if (!isDigit(c)) continue;
    if (index >= point(number) && c != '0') return false;
    if (index >= first && index < point(number)) whole += c;
    ++index;
  }
  for (; index < point(number); ++index) whole += '0';
  const auto* const last = whole.data() + whole.size();
  const auto [stop, error] = std::from_chars(whole.data(), last, value);
  return stop == last && error == std::errc();
}

template bool shiftedWholeNumber(std::string_view, std::int64_t&);
template bool shiftedWholeNumber(std::string_view, std::uint64_t&);

template <class T>
bool roundedNumber(std::string_view text, T& value) noexcept {
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc()) return true;
  const Number number(text);
  if (point(number) > leadingZeros(number)) return false;
  value = number.isNegative ? -T{} : T{};
  return true;
}

template bool roundedNumber(std::string_view, float&) noexcept;
template bool roundedNumber(std::string_view, double&) noexcept;

}  // namespace tarn::detail
