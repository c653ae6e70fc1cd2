#include <Platform/JSON/Detail/ISO8601.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace tarn::detail {
namespace {

using namespace std::chrono;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Reads from the front; once something is not as it has to be, `failed` stays true.
struct Scanner {
  std::string_view rest;
  bool failed = false;

  bool take(std::string_view choice) noexcept {
    if (rest.empty() || choice.find(rest[0]) == choice.npos) return false;
    rest.remove_prefix(1);
    return true;
  }
  void require(std::string_view choice) noexcept { failed |= !take(choice); }

  int number(std::size_t digits, int greatest) noexcept {
    int value = 0;
    for (; digits > 0 && !rest.empty() && isDigit(rest[0]); --digits, rest.remove_prefix(1))
      value = value * 10 + (rest[0] - '0');
    failed |= digits > 0 || value > greatest;
    return value;
  }

  // All digits that stand here, as a fraction of a second.
  microseconds fraction() noexcept {
    failed |= rest.empty() || !isDigit(rest[0]);
    std::int64_t count = 0;
    std::int64_t unit = 1'000'000;
    for (; !rest.empty() && isDigit(rest[0]); rest.remove_prefix(1)) {
      // The seventh digit rounds; those behind it make no difference.
      if (unit == 1 && rest[0] >= '5') ++count;
      unit /= 10;
      count += (rest[0] - '0') * unit;
    }
    return microseconds(count);
  }
};

}  // namespace

std::optional<JSONDate> parseISO8601(std::string_view text) noexcept {
  Scanner scanner{text};
  const year y(scanner.number(4, 9999));
  scanner.require("-");
  const month m(static_cast<unsigned>(scanner.number(2, 12)));
  scanner.require("-");
  const year_month_day date(y, m, day(static_cast<unsigned>(scanner.number(2, 31))));
  scanner.require("Tt");
  const hours h(scanner.number(2, 23));
  scanner.require(":");
  const minutes min(scanner.number(2, 59));
  scanner.require(":");
  const seconds s(scanner.number(2, 60));
  const microseconds fraction = scanner.take(".") ? scanner.fraction() : microseconds(0);
  minutes offset(0);
  if (!scanner.take("Zz")) {
    const int sign = scanner.take("-") ? -1 : 1;
    if (sign == 1) scanner.require("+");
    offset = sign * hours(scanner.number(2, 23));
    scanner.require(":");
    offset += sign * minutes(scanner.number(2, 59));
  }
  if (scanner.failed || !scanner.rest.empty() || !date.ok()) return std::nullopt;
  const sys_seconds second = sys_days(date) + h + min + s - offset;
  // Leap seconds come at the end of a day of UTC.
  if (s == seconds(60) && second != floor<days>(second)) return std::nullopt;
  return second + fraction;
}

std::optional<std::string> formatISO8601(JSONDate date) {
  constexpr sys_days first(year(0) / 1 / 1);
  constexpr sys_days end(year(10000) / 1 / 1);
  if (date < first || date >= end) return std::nullopt;
  const auto day = floor<days>(date);
  const year_month_day calendar(day);
  const hh_mm_ss time(date - day);
  char text[64];
  int size = std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%06d", static_cast<int>(calendar.year()),
      static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
      static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
      static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
  while (text[size - 1] == '0') --size;
  if (text[size - 1] == '.') --size;
  return std::string(text, static_cast<std::size_t>(size)) + 'Z';
}

}  // namespace tarn::detail
