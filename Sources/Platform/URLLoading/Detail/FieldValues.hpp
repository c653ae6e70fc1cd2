#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::detail {

constexpr bool isBlank(char c) noexcept { return c == ' ' || c == '\t'; }
/// Without spaces and tabs at either end.
constexpr std::string_view trimmed(std::string_view text) noexcept {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}
constexpr char lowercased(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
std::string lowercased(std::string_view text);
/// As above; nothing for an empty text.
std::optional<std::string> lowercasedUnlessEmpty(std::string_view text);
/// Letters, digits and the few marks that a method or field name may hold (RFC 9110, 5.6.2).
bool isToken(std::string_view text) noexcept;

// A field value may have the form `value; name=text; name="quoted \"text\""` (RFC 9110, 5.6.6). A
// comma ends a value or text too, as where two fields were joined.

/// The value, trimmed.
std::string_view withoutParameters(std::string_view text) noexcept;
/// The names, in lower case, with their texts, unquoted; read as far as it makes sense.
std::vector<std::pair<std::string, std::string>> parametersOf(std::string_view text);

/// Takes the first item off a comma-separated list, trimmed; empty ones are passed over, and a
/// comma within quotes separates nothing. Nothing where there is none left.
std::optional<std::string_view> takeListItem(std::string_view& list) noexcept;
/// All of them.
std::vector<std::string_view> listItems(std::string_view text);

/// The file name of a Content-Disposition value, the last valid one; `filename*` in UTF-8 or
/// ISO-8859-1 (RFC 6266, RFC 8187).
std::optional<std::string> contentDispositionFilename(std::string_view value);

}  // namespace tarn::detail
