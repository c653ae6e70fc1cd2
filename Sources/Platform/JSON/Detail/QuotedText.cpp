#include <Platform/JSON/Detail/JSONText.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>

#include <cstddef>

namespace tarn::detail {
namespace {

constexpr std::size_t longest = 64;

// The last place at or before `longest` where no character is cut in two.
std::size_t shortenedSize(std::string_view text) {
  std::size_t size = longest;
  while (size > longest - 4 && (static_cast<unsigned char>(text[size]) & 0xC0u) == 0x80u) --size;
  return size;
}

}  // namespace

std::string quoted(std::string_view text) {
  const bool isLong = text.size() > longest;
  if (isLong) text = text.substr(0, shortenedSize(text));
  std::string result = "\"";
  for (const char c : text) {
    char escape[longestEscape];
    result.append(escape, writeEscaped(c, escape));
  }
  return result += isLong ? "…\"" : "\"";
}

}  // namespace tarn::detail
