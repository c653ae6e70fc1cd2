#pragma once

#include <Platform/JSON/JSONEncoder.hpp>
#include <Tambour/DataRepresentable.hpp>

#include <concepts>

namespace tarn {

/// The encoder of the types that name none: one for the process, with default settings. Callable
/// from any thread; lives as long as the process.
const JSONEncoder& jsonEncoder();

namespace detail {

// By their addresses, as those of a decoder.
template <class T>
concept AnswersItsEncoder = requires {
  { &T::encoder() } -> std::convertible_to<const JSONEncoder*>;
};
template <class T>
concept HoldsItsEncoder = requires {
  { &T::encoder } -> std::convertible_to<const JSONEncoder*>;
};

}  // namespace detail

/// A type that is encoded as JSON: a plain struct, what the standard library offers, or a type with
/// a coding of its own.
///
/// It may name the encoder that writes it, and with it the settings, by a member
/// `static const tarn::JSONEncoder& encoder()` or a static field `encoder`. A type that turns
/// itself into bytes, as Data does, is sent as these bytes: it counts only where it names an
/// encoder.
template <class T>
concept JSONEncodable = JSONWritable<T> &&
    (!DataRepresentable<T> || detail::AnswersItsEncoder<T> || detail::HoldsItsEncoder<T>);

/// The encoder that writes a `T`: the one that the type names or, for an optional, a list or a map,
/// the one that its content names; else jsonEncoder().
///
/// Only the type of the whole document is asked: a member of a struct is written with the encoder
/// of the struct.
template <JSONEncodable T>
const JSONEncoder& encoderOf() {
  if constexpr (detail::AnswersItsEncoder<T>) {
    return T::encoder();
  } else if constexpr (detail::HoldsItsEncoder<T>) {
    return T::encoder;
  } else if constexpr (requires { requires JSONEncodable<typename T::mapped_type>; }) {
    return encoderOf<typename T::mapped_type>();
  } else if constexpr (requires {
                         requires JSONEncodable<typename T::value_type>;
                         requires !std::same_as<typename T::value_type, T>;
                       }) {
    return encoderOf<typename T::value_type>();
  } else {
    static_assert(
        !requires { T::encoder(); }, "A type's `encoder()` answers a `const tarn::JSONEncoder&`.");
    return jsonEncoder();
  }
}

}  // namespace tarn
