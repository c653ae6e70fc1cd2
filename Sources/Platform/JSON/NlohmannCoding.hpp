#pragma once

#include <Platform/JSON/JSONCoding.hpp>

#include <concepts>
#include <nlohmann/json.hpp>
#include <string_view>
#include <type_traits>

/// Types that know how to be read and written by nlohmann::json, as the NLOHMANN_DEFINE_TYPE_
/// macros teach them, cross as JSON text and keep the keys and forms they have there. Strategies of
/// the decoder or encoder don't reach into them; integers keep their 64 bits.
///
/// Optional: needs nlohmann/json.hpp (3.11), which the rest of the library does without. Include it
/// wherever such a type is decoded or encoded, so that all of a program does it the same way.

namespace tarn {
namespace detail {

struct AnyJSON;

/// Enums are asked with a type of no use: nlohmann's own functions would take every enum.
template <class T>
using NlohmannArgument = std::conditional_t<std::is_enum_v<T>, AnyJSON, nlohmann::json>;

template <class T>
concept HasFromJSON = requires(const NlohmannArgument<T>& json, T& value) {
  from_json(json, value);
};
template <class T>
concept HasToJSON = requires(NlohmannArgument<T>& json, const T& value) {
  to_json(json, value);
};

template <class T>
consteval std::string_view spelledType() {
  return __PRETTY_FUNCTION__;
}
/// Whether T is of the standard library or of this one, which read and write their types
/// themselves.
template <class T>
consteval bool isLibraryType() {
  constexpr std::string_view start = "T = ";
  auto name = spelledType<T>();
  name.remove_prefix(name.find(start) + start.size());
  return name.starts_with("std::") || name.starts_with("tarn::");
}

/// A type with functions for nlohmann::json beside it, and none for this library in it. One of the
/// two functions is enough for one direction.
template <class T>
concept NlohmannCoded = (std::is_class_v<T> || std::is_enum_v<T>)&&!isLibraryType<T>() &&
                        !DecodesItself<T> && !EncodesItself<T> && (HasFromJSON<T> || HasToJSON<T>);

template <std::invocable F>
auto readByNlohmann(JSONReader& reader, F&& read) {
  try {
    return read();
  } catch (const nlohmann::json::exception& error) {
    reader.failCorrupted(error.what());
  }
}

template <std::invocable F>
auto writtenByNlohmann(JSONWriter& writer, F&& write) {
  try {
    return write();
  } catch (const nlohmann::json::exception& error) {
    writer.failInvalid(error.what());
  }
}

}  // namespace detail

template <>
struct JSONCoding<nlohmann::json> {
  static nlohmann::json decode(JSONReader& reader) {
    const auto text = reader.text();
    return detail::readByNlohmann(reader, [&] { return nlohmann::json::parse(text); });
  }
  static void encode(const nlohmann::json& json, JSONWriter& writer) {
    writer.text(detail::writtenByNlohmann(writer, [&] { return json.dump(); }));
  }
};

template <detail::NlohmannCoded T>
struct JSONCoding<T> {
  static T decode(JSONReader& reader) requires detail::HasFromJSON<T> {
    const auto json = JSONCoding<nlohmann::json>::decode(reader);
    return detail::readByNlohmann(reader, [&] {
      T value{};
      nlohmann::adl_serializer<T>::from_json(json, value);
      return value;
    });
  }
  static void encode(const T& value, JSONWriter& writer) requires detail::HasToJSON<T> {
    const auto json = detail::writtenByNlohmann(writer, [&] {
      nlohmann::json result;
      nlohmann::adl_serializer<T>::to_json(result, value);
      return result;
    });
    JSONCoding<nlohmann::json>::encode(json, writer);
  }
};

}  // namespace tarn
