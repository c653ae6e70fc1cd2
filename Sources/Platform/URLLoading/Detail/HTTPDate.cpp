#include <Platform/URLLoading/Detail/HTTPDate.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <array>

namespace tarn::detail {

namespace {

using namespace std::chrono;

// Of at most four digits and nothing else.
std::optional<int> number(std::string_view text) noexcept {
  if (text.empty() || text.size() > 4) return std::nullopt;
  int value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::optional<unsigned> monthNumber(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 12> names{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const auto place = std::find_if(names.begin(), names.end(),
                                  [name](auto month) { return equalsIgnoringCase(month, name); });
  if (place == names.end()) return std::nullopt;
  return static_cast<unsigned>(place - names.begin()) + 1;
}

std::optional<seconds> timeOfDay(std::string_view text) noexcept {
  if (text.size() != 8 || text[2] != ':' || text[5] != ':') return std::nullopt;
  const auto hour = number(text.substr(0, 2));
  const auto minute = number(text.substr(3, 2));
  const auto second = number(text.substr(6, 2));
  if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 60) {
    return std::nullopt;  // 60: a leap second
  }
  return hours(*hour) + minutes(*minute) + seconds(*second);
}

std::optional<int> yearNumber(std::string_view text, WallTime now) noexcept {
  const auto value = number(text);
  if (!value || text.size() == 4) return value;
  if (text.size() != 2) return std::nullopt;
  const int present{year_month_day(floor<days>(now)).year()};
  const int year = present / 100 * 100 + *value;
  return year > present + 50 ? year - 100 : year;
}

}  // namespace

// The forms differ in their separators and in their order: day, month, year, time, zone, or, as C's
// asctime() has it, month, day, time, year.
std::optional<WallTime> parseHTTPDate(std::string_view text, WallTime now) noexcept {
  constexpr std::string_view separators = " ,-";
  std::array<std::string_view, 6> words;
  std::size_t count = 0;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    if (text.empty()) break;
    if (count == words.size()) return std::nullopt;
    const auto length = std::min(text.find_first_of(separators), text.size());
    words[count++] = text.substr(0, length);
    text.remove_prefix(length);
  }
  const bool zoned = count == 6;
  if (zoned && !equalsIgnoringCase(words[5], "GMT") && !equalsIgnoringCase(words[5], "UTC")) {
    return std::nullopt;
  }
  if (count < 5) return std::nullopt;
  const auto day = number(zoned ? words[1] : words[2]);
  const auto month = monthNumber(zoned ? words[2] : words[1]);
  const auto year = yearNumber(zoned ? words[3] : words[4], now);
  const auto time = timeOfDay(zoned ? words[4] : words[3]);
  if (!day || !month || !year || !time) return std::nullopt;
  const year_month_day date(std::chrono::year(*year), std::chrono::month(*month),
                            std::chrono::day(static_cast<unsigned>(*day)));
  if (!date.ok()) return std::nullopt;
  return sys_days(date) + *time;
}

}  // namespace tarn::detail
