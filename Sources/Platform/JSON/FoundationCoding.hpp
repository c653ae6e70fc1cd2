#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/UUID.hpp>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <ratio>
#include <utility>

namespace tarn::detail {

JSONDate decodeDate(JSONReader& reader);
void encodeDate(JSONDate date, JSONWriter& writer);
[[noreturn]] void failDateOutOfRange(JSONReader& reader);
[[noreturn]] void failDateOutOfRange(JSONWriter& writer);

/// From one unit of time to another: what a count is multiplied and divided by.
struct TimeScale {
  std::int64_t factor;
  std::int64_t divisor;
};
template <class Ratio>
constexpr TimeScale timeScale = {Ratio::num, Ratio::den};

enum class Rounding { nearest, down };

/// The count in another unit, halves to the even one; nothing where it does not fit.
std::optional<std::int64_t> scaled(std::int64_t count, TimeScale scale, Rounding rounding) noexcept;

/// Read a span of time in seconds, which may have a fraction; the units are not more than
/// `greatest` on either side of zero, or from `least` to below `beyond`.
double decodeUnits(JSONReader& reader, TimeScale perSecond, long double greatest);
double decodeWholeUnits(JSONReader& reader, TimeScale perSecond, double least, double beyond);

template <>
struct DefaultCoding<URL> {
  static URL decode(JSONReader& reader);
  static void encode(const URL& url, JSONWriter& writer);
};

template <>
struct DefaultCoding<UUID> {
  static UUID decode(JSONReader& reader);
  static void encode(const UUID& uuid, JSONWriter& writer);
};

template <>
struct DefaultCoding<Data> {
  static Data decode(JSONReader& reader);
  static void encode(const Data& bytes, JSONWriter& writer);
};

/// A point in time, through the strategy of the decoder or encoder. Of one in days or longer units
/// the unit that holds it is read, of others the nearest.
template <class D>
struct DefaultCoding<std::chrono::sys_time<D>> {
  using Time = std::chrono::sys_time<D>;
  using Rep = typename D::rep;
  using UnitsInMicroseconds = std::ratio_divide<typename D::period, std::micro>;

  static Time decode(JSONReader& reader) {
    const JSONDate date = decodeDate(reader);
    if constexpr (std::integral<Rep>) {
      constexpr bool isCalendar = std::ratio_greater_equal_v<typename D::period, std::ratio<86400>>;
      constexpr auto scale = timeScale<std::ratio_divide<std::ratio<1>, UnitsInMicroseconds>>;
      const auto count = scaled(date.time_since_epoch().count(), scale,
                                isCalendar ? Rounding::down : Rounding::nearest);
      if (!count || !std::in_range<Rep>(*count)) failDateOutOfRange(reader);
      return Time(D(static_cast<Rep>(*count)));
    } else {
      return std::chrono::time_point_cast<D>(date);
    }
  }
  static void encode(const Time& time, JSONWriter& writer) {
    encodeDate(toDate(time, writer), writer);
  }

 private:
  static JSONDate toDate(const Time& time, JSONWriter& writer) {
    if constexpr (std::integral<Rep>) {
      const Rep units = time.time_since_epoch().count();
      if (!std::in_range<std::int64_t>(units)) failDateOutOfRange(writer);
      const auto count = scaled(static_cast<std::int64_t>(units), timeScale<UnitsInMicroseconds>,
                                Rounding::nearest);
      if (!count) failDateOutOfRange(writer);
      return JSONDate(JSONDate::duration(*count));
    } else {
      using Wide = std::chrono::duration<long double, std::micro>;
      const Wide wide = time.time_since_epoch();
      if (!(wide > Wide(JSONDate::duration::min()) && wide < Wide(JSONDate::duration::max())))
        failDateOutOfRange(writer);
      // What was checked: the time's own precision might round up out of the range.
      return JSONDate(std::chrono::round<JSONDate::duration>(wide));
    }
  }
};

/// A span of time in seconds.
template <class Rep, class Period>
struct DefaultCoding<std::chrono::duration<Rep, Period>> {
  using Duration = std::chrono::duration<Rep, Period>;
  using Seconds = std::chrono::duration<double>;

  static Duration decode(JSONReader& reader) {
    using Limits = std::numeric_limits<Rep>;
    constexpr TimeScale perSecond = {Period::den, Period::num};
    if constexpr (std::integral<Rep>) {
      // Twice the half of it: the greatest value has no exact double where it is of 64 bits.
      constexpr double beyond = 2.0 * static_cast<double>(Limits::max() / 2 + 1);
      constexpr double least = static_cast<double>(Limits::min());
      return Duration(static_cast<Rep>(decodeWholeUnits(reader, perSecond, least, beyond)));
    } else {
      return Duration(static_cast<Rep>(decodeUnits(reader, perSecond, Limits::max())));
    }
  }
  static void encode(const Duration& value, JSONWriter& writer) {
    writer.floatingPoint(Seconds(value).count());
  }
};

}  // namespace tarn::detail
