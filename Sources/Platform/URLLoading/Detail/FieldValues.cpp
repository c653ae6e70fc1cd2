#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/Detail/FieldScanner.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>

namespace tarn::detail {

namespace {

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result.push_back(text[i]);
      continue;
    }
    const int high = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    result.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return result;
}

std::string latin1ToUTF8(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      result.push_back(c);
    } else {
      result.push_back(static_cast<char>(0xC0 | (byte >> 6)));
      result.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
    }
  }
  return result;
}

// charset'language'percent-encoded
std::optional<std::string> extendedValue(std::string_view text) {
  const auto charsetEnd = text.find('\'');
  if (charsetEnd == std::string_view::npos) return std::nullopt;
  const auto languageEnd = text.find('\'', charsetEnd + 1);
  if (languageEnd == std::string_view::npos) return std::nullopt;
  auto decoded = percentDecoded(text.substr(languageEnd + 1));
  if (!decoded) return std::nullopt;
  const auto charset = text.substr(0, charsetEnd);
  if (equalsIgnoringCase(charset, "utf-8")) {
    return isValidUTF8(*decoded) ? decoded : std::nullopt;
  }
  if (equalsIgnoringCase(charset, "iso-8859-1")) return latin1ToUTF8(*decoded);
  return std::nullopt;
}

// Where the first parameter, or another value, begins.
std::size_t valueEnd(std::string_view text) noexcept {
  return std::min({text.find(';'), text.find(','), text.size()});
}

std::size_t firstItemEnd(std::string_view list) noexcept {
  bool quoted = false;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == '"') quoted = !quoted;
    if (quoted && list[i] == '\\') ++i;
    if (!quoted && list[i] == ',') return i;
  }
  return list.size();
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = lowercased(c);
  return result;
}

std::optional<std::string> lowercasedUnlessEmpty(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional(lowercased(text));
}

bool isToken(std::string_view text) noexcept {
  constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [marks](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::find(marks.begin(), marks.end(), c) != marks.end();
  });
}

std::string_view withoutParameters(std::string_view text) noexcept {
  return trimmed(text.substr(0, valueEnd(text)));
}

std::vector<std::pair<std::string, std::string>> parametersOf(std::string_view text) {
  Scanner scanner(text.substr(valueEnd(text)));
  std::vector<std::pair<std::string, std::string>> result;
  while (!scanner.atEnd()) {
    scanner.skip();
    const auto name = scanner.until("=;,");
    if (!scanner.take('=')) continue;
    if (scanner.take('"')) {
      result.emplace_back(lowercased(name), scanner.quoted());
      scanner.until(";,");
    } else {
      result.emplace_back(lowercased(name), scanner.until(";,"));
    }
  }
  return result;
}

std::optional<std::string_view> takeListItem(std::string_view& list) noexcept {
  while (!list.empty()) {
    const auto end = firstItemEnd(list);
    const auto item = trimmed(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
    if (!item.empty()) return item;
  }
  return std::nullopt;
}

std::vector<std::string_view> listItems(std::string_view text) {
  std::vector<std::string_view> items;
  while (const auto item = takeListItem(text)) items.push_back(*item);
  return items;
}

std::optional<std::string> contentDispositionFilename(std::string_view value) {
  std::optional<std::string> filename;
  for (auto& [name, text] : parametersOf(value)) {
    std::optional<std::string> candidate;
    if (name == "filename*") {
      candidate = extendedValue(text);
    } else if (name == "filename") {
      candidate = isValidUTF8(text) ? std::move(text) : latin1ToUTF8(text);
    }
    if (candidate && !candidate->empty()) filename = std::move(candidate);
  }
  return filename;
}

}  // namespace tarn::detail
