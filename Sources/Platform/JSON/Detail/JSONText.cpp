#include <Platform/JSON/Detail/JSONText.hpp>
#include <Platform/JSON/Detail/Words.hpp>
#include <Platform/Types/Data.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

namespace tarn::detail {
namespace {

// The letter behind the backslash for each byte that needs one; 'u' takes four digits more.
constexpr auto escapes = [] {
  std::array<char, 256> letters{};
  std::fill_n(letters.begin(), 0x20, 'u');
  letters['\b'] = 'b';
  letters['\f'] = 'f';
  letters['\n'] = 'n';
  letters['\r'] = 'r';
  letters['\t'] = 't';
  letters['"'] = '"';
  letters['\\'] = '\\';
  return letters;
}();

// Whether one of eight characters is to be escaped: where it is a control character, a quote or a
// backslash, the subtraction borrows its high bit.
bool hasEscapes(Word word) noexcept {
  const Word control = word - 0x20 * ones;
  const Word quote = (word ^ ('"' * ones)) - ones;
  const Word backslash = (word ^ ('\\' * ones)) - ones;
  return ((control | quote | backslash) & ~word & highBits) != 0;
}

// The lowest byte first, on every processor.
void store(char* to, Word word) noexcept {
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  std::memcpy(to, &word, sizeof word);
}

// The characters of a text with less than eight: its two halves, which may overlap, or the first,
// the middle and the last one, and spaces.
using Half = std::uint32_t;
Word loadPart(const char* from, std::size_t size) noexcept {
  if (size >= sizeof(Half))
    return Word{load<Half>(from + size - sizeof(Half))} << 32 | load<Half>(from);
  const auto byte = [from](std::size_t i) { return Word{static_cast<unsigned char>(from[i])}; };
  return byte(0) | byte(size / 2) << 8 | byte(size - 1) << 16 | (' ' * ones) << 24;
}
void copyPart(const char* from, std::size_t size, char* to) noexcept {
  if (size >= sizeof(Half)) {
    const auto first = load<Half>(from);
    const auto last = load<Half>(from + size - sizeof(Half));
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof last, &last, sizeof last);
  } else {
    const char first = from[0], middle = from[size / 2], last = from[size - 1];
    to[0] = first;
    to[size / 2] = middle;
    to[size - 1] = last;
  }
}

// The values of the digits of a number below 10^8, the first in the lowest byte: halves are split
// off side by side, first of four digits, then of two, then of one.
Word eightDigits(std::uint64_t number) noexcept {
  const Word fours = number / 10'000 | (number % 10'000) << 32;
  const Word hundreds = (fours * 10'486 >> 20) & 0x0000007F'0000007F;
  const Word twos = hundreds | (fours - hundreds * 100) << 16;
  const Word tens = (twos * 103 >> 10) & 0x000F000F'000F000F;
  return tens | (twos - tens * 10) << 8;
}

}  // namespace

char* writeEscaped(char c, char* out) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  const char letter = escapes[byte];
  if (letter == 0) {
    *out++ = c;
    return out;
  }
  *out++ = '\\';
  *out++ = letter;
  if (letter == 'u') {
    constexpr char digits[] = "0123456789abcdef";
    *out++ = '0';
    *out++ = '0';
    *out++ = digits[byte >> 4];
    *out++ = digits[byte & 0xF];
  }
  return out;
}

void JSONText::grow(std::size_t used, std::size_t count) {
  const std::size_t capacity = std::max(2 * capacity_, used + count);
  auto storage = std::make_unique_for_overwrite<char[]>(capacity);
  std::memcpy(storage.get(), data_, used);
  storage_ = std::move(storage);
  data_ = storage_.get();
  capacity_ = capacity;
}

// As room(), behind characters that are not finished yet.
char* JSONText::roomFrom(char* end, std::size_t count) {
  const auto used = static_cast<std::size_t>(end - data_);
  if (capacity_ - used < count) grow(used, count);
  return data_ + used;
}

void JSONText::append(std::string_view text) {
  char* out = room(text.size());
  finish(std::copy(text.begin(), text.end(), out));
}

void JSONText::appendLine(std::size_t indentation) {
  char* out = room(indentation + 1);
  *out++ = '\n';
  finish(std::fill_n(out, indentation, ' '));
}

// `rest`: how many characters follow the part.
char* JSONText::writeEscapedPart(std::string_view part, char* out, std::size_t rest) {
  out = roomFrom(out, longestEscape * part.size() + rest + 1);
  for (const char c : part) out = writeEscaped(c, out);
  return out;
}

bool JSONText::appendString(std::string_view text) {
  char* out = room(text.size() + 2);
  *out++ = '"';
  const char* in = text.data();
  std::size_t left = text.size();
  Word all = 0;
  for (; left >= sizeof(Word); in += sizeof(Word), left -= sizeof(Word)) {
    const auto word = load<Word>(in);
    all |= word;
    if (hasEscapes(word)) {
      out = writeEscapedPart({in, sizeof word}, out, left - sizeof word);
    } else {
      std::memcpy(out, &word, sizeof word);
      out += sizeof word;
    }
  }
  if (left != 0) {
    const Word word = loadPart(in, left);
    all |= word;
    if (hasEscapes(word)) {
      out = writeEscapedPart({in, left}, out, 0);
    } else {
      copyPart(in, left, out);
      out += left;
    }
  }
  if ((all & highBits) != 0 && !isValidUTF8(text)) return false;
  *out++ = '"';
  finish(out);
  return true;
}

void JSONText::append(std::int64_t value) {
  char* out = room(20);
  finish(std::to_chars(out, out + 20, value).ptr);
}

void JSONText::append(std::uint64_t value) {
  char* out = room(20);
  finish(std::to_chars(out, out + 20, value).ptr);
}

template <class Float>
void JSONText::appendShortest(Float value) {
  constexpr std::size_t longest = 32;
  char* const out = room(longest);
  // Up to here a whole number has no shorter digits than its own.
  constexpr Float exactWhole = sizeof(Float) == sizeof(float) ? Float(1e6) : Float(1e15);
  if (std::abs(value) < exactWhole && value == std::trunc(value)) {
    char* end = out;
    if (std::signbit(value)) *end++ = '-';
    end = std::to_chars(end, out + longest, static_cast<std::int64_t>(std::abs(value))).ptr;
    *end++ = '.';
    *end++ = '0';
    return finish(end);
  }
  char* end = std::to_chars(out, out + longest - 2, value).ptr;
  // So that it reads as a floating-point number everywhere.
  if (std::none_of(out, end, [](char c) { return c == '.' || c == 'e'; })) {
    *end++ = '.';
    *end++ = '0';
  }
  finish(end);
}

// Numbers with up to eight decimals, as most have, need no search for their shortest digits: they
// are the only ones up to the 15 that a double tells apart.
bool JSONText::appendDecimal(double value) {
  constexpr std::int64_t scale = 100'000'000;
  const double magnitude = std::abs(value);
  // Smaller ones are shorter with an exponent.
  if (!(magnitude >= 1e-3 && magnitude < 1e7)) return false;
  const auto whole = static_cast<std::int64_t>(magnitude);
  std::int64_t digits = whole * scale;
  if (static_cast<double>(whole) != magnitude) {
    digits = static_cast<std::int64_t>(magnitude * scale + 0.5);
    if (static_cast<double>(digits) / scale != magnitude) return false;
  }

  char* out = room(20);
  if (value < 0) *out++ = '-';
  out = std::to_chars(out, out + 8, static_cast<std::uint32_t>(digits / scale)).ptr;
  *out++ = '.';
  const Word decimals = eightDigits(static_cast<std::uint64_t>(digits % scale));
  store(out, decimals + '0' * ones);
  finish(out + std::max<std::ptrdiff_t>(1, 8 - std::countl_zero(decimals) / 8));
  return true;
}

void JSONText::append(double value) {
  if (!appendDecimal(value)) appendShortest(value);
}
void JSONText::append(float value) { appendShortest(value); }

}  // namespace tarn::detail
