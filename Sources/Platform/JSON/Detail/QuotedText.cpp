#include <Platform/JSON/Detail/JSONText.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>

#include <cstddef>
#include <cstdio>

namespace tarn::detail {
namespace {

constexpr std::size_t longest = 64;

// The last place at or before `longest` where no character is cut in two.
std::size_t shortenedSize(std::string_view text) {
  std::size_t size = longest;
  while (size > longest - 4 && (static_cast<unsigned char>(text[size]) & 0xC0u) == 0x80u) --size;
  return size;
}

// The size of a control character that JSON lets stand, but a terminal obeys: U+007F to U+009F.
std::size_t controlSize(std::string_view text) {
  if (text[0] == '\x7f') return 1;
  const bool isControl = text.size() > 1 && text[0] == '\xc2' &&
                         (static_cast<unsigned char>(text[1]) & 0xE0u) == 0x80u;
  return isControl ? 2 : 0;
}

void appendEscaped(std::string& result, std::string_view text, bool escapesQuotes) {
  const bool isLong = text.size() > longest;
  if (isLong) text = text.substr(0, shortenedSize(text));
  while (!text.empty()) {
    char escape[longestEscape + 1];
    std::size_t size = controlSize(text);
    if (size > 0) {
      const unsigned code = static_cast<unsigned char>(text[size - 1]);
      std::snprintf(escape, sizeof escape, "\\u%04x", code);
      result += escape;
    } else {
      size = 1;
      const bool isPlain = !escapesQuotes && (text[0] == '"' || text[0] == '\\');
      if (isPlain)
        result += text[0];
      else
        result.append(escape, writeEscaped(text[0], escape));
    }
    text.remove_prefix(size);
  }
  if (isLong) result += "…";
}

}  // namespace

std::string shortened(std::string_view text) {
  std::string result;
  appendEscaped(result, text, false);
  return result;
}

std::string quoted(std::string_view text) {
  std::string result = "\"";
  appendEscaped(result, text, true);
  return result += '"';
}

}  // namespace tarn::detail
