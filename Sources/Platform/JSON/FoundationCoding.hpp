#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/UUID.hpp>

#include <chrono>

namespace tarn::detail {

JSONDate decodeDate(JSONReader& reader);
void encodeDate(JSONDate date, JSONWriter& writer);
/// Seconds, which may have a fraction.
double decodeSeconds(JSONReader& reader, double least, double greatest);

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

/// A point in time, through the strategy of the decoder or encoder.
template <class D>
struct DefaultCoding<std::chrono::sys_time<D>> {
  using Time = std::chrono::sys_time<D>;

  static Time decode(JSONReader& reader) {
    const JSONDate date = decodeDate(reader);
    if constexpr (std::chrono::treat_as_floating_point_v<typename D::rep>) {
      return std::chrono::time_point_cast<D>(date);
    } else {
      using Wide = std::chrono::duration<long double, typename D::period>;
      const Wide wide = date.time_since_epoch();
      if (wide < Wide(D::min()) || wide > Wide(D::max()))
        reader.failCorrupted("this date is out of range");
      return std::chrono::round<D>(date);
    }
  }
  static void encode(const Time& time, JSONWriter& writer) {
    encodeDate(toDate(time, writer), writer);
  }

 private:
  static JSONDate toDate(const Time& time, JSONWriter& writer) {
    using Wide = std::chrono::duration<long double, std::micro>;
    const Wide wide = time.time_since_epoch();
    if (!(wide > Wide(JSONDate::duration::min()) && wide < Wide(JSONDate::duration::max())))
      writer.failInvalid("this date is out of range");
    // Of floating-point time, what was checked: its own precision might round up out of the range.
    if constexpr (std::chrono::treat_as_floating_point_v<typename D::rep>)
      return JSONDate(std::chrono::round<JSONDate::duration>(wide));
    else
      return std::chrono::round<JSONDate::duration>(time);
  }
};

/// A span of time in seconds.
template <class Rep, class Period>
struct DefaultCoding<std::chrono::duration<Rep, Period>> {
  using Duration = std::chrono::duration<Rep, Period>;
  using Seconds = std::chrono::duration<double>;

  static Duration decode(JSONReader& reader) {
    // Half of the range: its ends have no exact double.
    constexpr Seconds limit = Seconds(Duration::max()) / 2;
    const Seconds seconds(decodeSeconds(reader, -limit.count(), limit.count()));
    if constexpr (std::chrono::treat_as_floating_point_v<Rep>)
      return std::chrono::duration_cast<Duration>(seconds);
    else
      return std::chrono::round<Duration>(seconds);
  }
  static void encode(const Duration& value, JSONWriter& writer) {
    writer.floatingPoint(Seconds(value).count());
  }
};

}  // namespace tarn::detail
