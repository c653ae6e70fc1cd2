#include <Platform/URLLoading/Detail/CacheControl.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>

namespace tarn::detail {

namespace {

using std::chrono::seconds;

constexpr seconds longest{std::int64_t{1} << 31};

std::string_view unquoted(std::string_view text) noexcept {
  const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return quoted ? text.substr(1, text.size() - 2) : text;
}

void setOnce(std::optional<seconds>& place, std::string_view text, seconds strictest) noexcept {
  if (!place) place = parseDeltaSeconds(text).value_or(strictest);
}

}  // namespace

std::optional<seconds> parseDeltaSeconds(std::string_view text) noexcept {
  if (text.empty()) return std::nullopt;
  seconds value{0};
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = std::min(value * 10 + seconds(c - '0'), longest);
  }
  return value;
}

CacheControl CacheControl::parse(std::string_view fieldValue) {
  CacheControl result;
  while (const auto item = takeListItem(fieldValue)) {
    const auto end = std::min(item->find('='), item->size());
    const bool hasValue = end < item->size();
    const auto name = trimmed(item->substr(0, end));
    const auto value = hasValue ? unquoted(trimmed(item->substr(end + 1))) : std::string_view();
    const auto is = [name](std::string_view directive) {
      return equalsIgnoringCase(name, directive);
    };
    if (is("no-store")) result.noStore = true;
    if (is("no-cache")) result.noCache = true;
    if (is("must-revalidate")) result.mustRevalidate = true;
    if (is("only-if-cached")) result.onlyIfCached = true;
    if (is("public")) result.isPublic = true;
    if (is("private")) result.isPrivate = true;
    if (is("max-age")) setOnce(result.maxAge, value, seconds(0));
    if (is("min-fresh")) setOnce(result.minFresh, value, longest);
    if (is("max-stale") && hasValue) setOnce(result.maxStale, value, seconds(0));
    if (is("max-stale") && !hasValue && !result.maxStale) result.maxStale = longest;
  }
  return result;
}

}  // namespace tarn::detail
