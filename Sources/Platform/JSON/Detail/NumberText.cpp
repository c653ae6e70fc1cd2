#include <Platform/JSON/Detail/NumberText.hpp>

#include <algorithm>
#include <array>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <concepts>
#include <string>
#include <system_error>

namespace tarn::detail {
namespace {

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Goes through a text.
struct Cursor {
  const char* at;
  const char* end;

  bool take(char c) noexcept {
    if (at == end || *at != c) return false;
    ++at;
    return true;
  }
  /// Adds the digits to the end of `value`.
  std::string_view takeDigits(std::uint64_t& value) noexcept {
    const char* const start = at;
    for (; at != end && isDigit(*at); ++at)
      value = value * 10 + static_cast<std::uint64_t>(*at - '0');
    return {start, static_cast<std::size_t>(at - start)};
  }
};

/// Takes what follows the "e"; false where it is no exponent.
bool takeExponent(Cursor& cursor, std::int64_t& exponent) noexcept {
  const bool isSmall = cursor.take('-');
  if (!isSmall) cursor.take('+');
  std::uint64_t overflowing = 0;
  const auto digits = cursor.takeDigits(overflowing);
  constexpr std::int64_t greatest = 1'000'000'000'000;
  for (const char digit : digits) exponent = std::min(exponent * 10 + (digit - '0'), greatest);
  if (isSmall) exponent = -exponent;
  return !digits.empty();
}

/// The powers of ten that T holds exactly.
template <class T>
constexpr auto exactPowers = [] {
  std::array<T, std::same_as<T, float> ? 11 : 23> powers{1};
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

/// Counted from the first; zero beyond the last.
char digit(const Number& number, std::size_t i) noexcept {
  if (i < number.whole.size()) return number.whole[i];
  i -= number.whole.size();
  return i < number.fraction.size() ? number.fraction[i] : '0';
}

std::size_t firstNonZero(const Number& number) noexcept {
  std::size_t i = 0;
  while (i < number.size() && digit(number, i) == '0') ++i;
  return i;
}

/// How many digits stand in front of the point once the exponent is applied.
std::int64_t point(const Number& number) noexcept {
  return static_cast<std::int64_t>(number.whole.size()) + number.exponent;
}

/// Digit by digit, for numbers that are long, or written with a fraction or an exponent.
template <class T>
std::optional<T> shiftedWholeNumber(const Number& number) {
  const auto first = firstNonZero(number);
  if (first == number.size()) return T{};
  constexpr std::int64_t most = 20;  // digits of the greatest
  const auto end = point(number);
  const auto count = end - static_cast<std::int64_t>(first);
  if (count <= 0 || count > most) return std::nullopt;
  for (auto i = static_cast<std::size_t>(end); i < number.size(); ++i)
    if (digit(number, i) != '0') return std::nullopt;
  std::string text(number.isNegative ? "-" : "");
  for (auto i = first; i < static_cast<std::size_t>(end); ++i) text += digit(number, i);
  T value{};
  const auto* const last = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), last, value);
  return stop == last && error == std::errc() ? std::optional(value) : std::nullopt;
}

}  // namespace

bool Number::read(std::string_view start) noexcept {
  Cursor cursor{start.data(), start.data() + start.size()};
  isNegative = cursor.take('-');
  whole = cursor.takeDigits(digits);
  if (whole.empty() || (whole.front() == '0' && whole.size() > 1)) return false;
  if (cursor.take('.')) {
    fraction = cursor.takeDigits(digits);
    if (fraction.empty()) return false;
  }
  if ((cursor.take('e') || cursor.take('E')) && !takeExponent(cursor, exponent)) return false;
  text = start.substr(0, static_cast<std::size_t>(cursor.at - start.data()));
  return true;
}

template <class T>
std::optional<T> wholeNumber(const Number& number) {
  constexpr auto greatest = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
  const bool isPlain = number.scale() == 0 && number.isShort();
  if (!isPlain || number.digits > greatest) return shiftedWholeNumber<T>(number);
  if (!number.isNegative) return static_cast<T>(number.digits);
  if (std::unsigned_integral<T> && number.digits != 0) return std::nullopt;
  return static_cast<T>(-static_cast<T>(number.digits));
}

template std::optional<std::int64_t> wholeNumber(const Number&);
template std::optional<std::uint64_t> wholeNumber(const Number&);

template <class T>
std::optional<T> floatingPoint(const Number& number) noexcept {
  constexpr auto& powers = exactPowers<T>;
  constexpr auto greatest = std::uint64_t{1} << std::numeric_limits<T>::digits;
  const auto power = static_cast<std::size_t>(std::abs(number.scale()));
  // The digits and the power of ten are both exact, so that the result is rounded only once.
  if (FLT_EVAL_METHOD == 0 && number.isShort() && number.digits <= greatest &&
      power < powers.size()) {
    const T digits = static_cast<T>(number.digits);
    const T value = number.scale() < 0 ? digits / powers[power] : digits * powers[power];
    return number.isNegative ? -value : value;
  }
  T value{};
  const auto* const end = number.text.data() + number.text.size();
  if (std::from_chars(number.text.data(), end, value).ec == std::errc()) return value;
  if (point(number) > static_cast<std::int64_t>(firstNonZero(number))) return std::nullopt;
  return number.isNegative ? -T{} : T{};
}

template std::optional<float> floatingPoint(const Number&) noexcept;
template std::optional<double> floatingPoint(const Number&) noexcept;

}  // namespace tarn::detail
