#pragma once

#include <Platform/JSON/JSONReader.hpp>
#include <Platform/JSON/JSONWriter.hpp>

#include <chrono>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

/// A point in time as date strategies pass it: microseconds reach far enough for every calendar
/// date.
using JSONDate = std::chrono::sys_time<std::chrono::microseconds>;

/// Texts for the numbers that JSON has no form for.
struct NonConformingFloats {
  std::string positiveInfinity;
  std::string negativeInfinity;
  std::string nan;
};

namespace detail {

/// How the types that need no help are read and written; specialised by kind of type here and in
/// StandardCoding, FoundationCoding and JSONReflection.
template <class T>
struct DefaultCoding {};

}  // namespace detail

/// How T is read and written. Specialise it for a type of others:
///
///     template <> struct tarn::JSONCoding<Money> {
///       static Money decode(JSONReader& reader) { return Money(reader.string()); }
///       static void encode(const Money& money, JSONWriter& writer) { writer.string(money.text());
///       }
///     };
///
/// A type of one's own may instead have the members `static T decode(JSONReader&)` and
/// `void encode(JSONWriter&) const`. One of the two is enough for one direction.
template <class T>
struct JSONCoding : detail::DefaultCoding<T> {};

/// A type that can be read from JSON.
template <class T>
concept JSONReadable = requires(JSONReader& reader) {
  { JSONCoding<T>::decode(reader) } -> std::same_as<T>;
};

/// A type that can be written as JSON.
template <class T>
concept JSONWritable = requires(const T& value, JSONWriter& writer) {
  JSONCoding<T>::encode(value, writer);
};

namespace detail {

template <class T>
concept DecodesItself = requires(JSONReader& reader) {
  { T::decode(reader) } -> std::same_as<T>;
};
template <class T>
concept EncodesItself = requires(const T& value, JSONWriter& writer) {
  value.encode(writer);
};

template <class T>
requires(DecodesItself<T> || EncodesItself<T>) struct DefaultCoding<T> {
  static T decode(JSONReader& reader) requires DecodesItself<T> { return T::decode(reader); }
  static void encode(const T& value, JSONWriter& writer) requires EncodesItself<T> {
    value.encode(writer);
  }
};

template <class T>
concept FilledInPlace = std::default_initializable<T> && requires(JSONReader& reader, T& value) {
  JSONCoding<T>::decodeInto(reader, value);
};

/// Reads into `value`, which is new: the types that can fill a value in place save a move.
template <JSONReadable T>
void decodeInto(JSONReader& reader, T& value) {
  if constexpr (FilledInPlace<T>)
    JSONCoding<T>::decodeInto(reader, value);
  else
    value = JSONCoding<T>::decode(reader);
}

template <>
struct DefaultCoding<bool> {
  static bool decode(JSONReader& reader) { return reader.boolean(); }
  static void encode(bool value, JSONWriter& writer) { writer.boolean(value); }
};

/// Numbers; characters are none.
template <class T>
concept WholeNumber = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                      !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                      !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

template <WholeNumber T>
struct DefaultCoding<T> {
  static T decode(JSONReader& reader) { return reader.integer<T>(); }
  static void encode(T value, JSONWriter& writer) { writer.integer(value); }
};

template <class T>
requires(std::same_as<T, float> || std::same_as<T, double>) struct DefaultCoding<T> {
  static T decode(JSONReader& reader) { return reader.floatingPoint<T>(); }
  static void encode(T value, JSONWriter& writer) { writer.floatingPoint(value); }
};

template <>
struct DefaultCoding<std::string> {
  static std::string decode(JSONReader& reader) { return reader.string(); }
  static void decodeInto(JSONReader& reader, std::string& value) { reader.string(value); }
  static void encode(std::string_view value, JSONWriter& writer) { writer.string(value); }
};
/// Only written: nothing would own what was read.
template <>
struct DefaultCoding<std::string_view> {
  static void encode(std::string_view value, JSONWriter& writer) { writer.string(value); }
};
template <>
struct DefaultCoding<const char*> {
  static void encode(const char* value, JSONWriter& writer) { writer.string(value); }
};

}  // namespace detail

template <class T>
T JSONReader::decode() {
  static_assert(JSONReadable<T>,
                "No JSON is read as this type: give it a `static T decode(tarn::JSONReader&)`, "
                "specialise `tarn::JSONCoding`, or make it an aggregate.");
  return JSONCoding<T>::decode(*this);
}

template <class T>
void JSONWriter::encode(const T& value) {
  static_assert(
      JSONWritable<T>,
      "This type is not written as JSON: give it a `void encode(tarn::JSONWriter&) const`, "
      "specialise `tarn::JSONCoding`, or make it an aggregate.");
  JSONCoding<T>::encode(value, *this);
}

}  // namespace tarn

// The codings that every decoder and encoder knows.
#include <Platform/JSON/EnumCoding.hpp>
#include <Platform/JSON/FoundationCoding.hpp>
#include <Platform/JSON/JSONReflection.hpp>
#include <Platform/JSON/StandardCoding.hpp>
