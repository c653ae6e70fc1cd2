#include <Platform/JSON/Detail/StringText.hpp>

#include <charconv>
#include <cstdint>
#include <optional>

namespace tarn::detail {
namespace {

std::optional<std::uint32_t> takeHex(std::string_view& text) noexcept {
  if (text.size() < 4) return std::nullopt;
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + 4, value, 16);
  if (error != std::errc() || stop != text.data() + 4) return std::nullopt;
  text.remove_prefix(4);
  return value;
}

/// Takes what follows "\u".
std::optional<std::uint32_t> takeCodePoint(std::string_view& text) noexcept {
  const auto unit = takeHex(text);
  const bool isSurrogate = unit && *unit >= 0xD800 && *unit < 0xE000;
  if (!isSurrogate) return unit;
  if (*unit >= 0xDC00 || !text.starts_with("\\u")) return std::nullopt;
  text.remove_prefix(2);
  const auto low = takeHex(text);
  if (!low || *low < 0xDC00 || *low >= 0xE000) return std::nullopt;
  return 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
}

void appendUTF8(std::string& result, std::uint32_t codePoint) {
  const auto append = [&result](std::uint32_t byte) { result += static_cast<char>(byte); };
  const auto appendLast = [&](int shift) { append(0x80 | ((codePoint >> shift) & 0x3F)); };
  if (codePoint < 0x80) {
    append(codePoint);
  } else if (codePoint < 0x800) {
    append(0xC0 | (codePoint >> 6));
    appendLast(0);
  } else if (codePoint < 0x10000) {
    append(0xE0 | (codePoint >> 12));
    appendLast(6);
    appendLast(0);
  } else {
    append(0xF0 | (codePoint >> 18));
    appendLast(12);
    appendLast(6);
    appendLast(0);
  }
}

}  // namespace

bool appendUnescaped(std::string& result, std::string_view text) {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
  result.reserve(result.size() + text.size());
  while (!text.empty()) {
    const auto plain = text.substr(0, text.find('\\'));
    result += plain;
    text.remove_prefix(plain.size());
    if (text.empty()) return true;
    if (text.size() < 2) return false;
    const char letter = text[1];
    text.remove_prefix(2);
    if (letter == 'u') {
      const auto codePoint = takeCodePoint(text);
      if (!codePoint) return false;
      appendUTF8(result, *codePoint);
    } else if (const auto i = letters.find(letter); i != letters.npos) {
      result += meanings[i];
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace tarn::detail
