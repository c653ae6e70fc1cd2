#pragma once

#include <Platform/JSON/JSONDecoder.hpp>

#include <concepts>

namespace tarn {

/// A type that is decoded from JSON: a plain struct, what the standard library offers, or a type
/// with a coding of its own.
///
/// It may name the decoder that reads it, and with it the settings, by a member
/// `static const tarn::JSONDecoder& decoder()` or a static field `decoder`.
template <class T>
concept JSONDecodable = JSONReadable<T>;

/// The decoder of the types that name none: one for the process, with default settings. Callable
/// from any thread; lives as long as the process.
const JSONDecoder& jsonDecoder();

namespace detail {

// By their addresses: a field `decoder` of each value is none of these, and a decoder that is
// answered by value would be gone before it is used.
template <class T>
concept AnswersItsDecoder = requires {
  { &T::decoder() } -> std::convertible_to<const JSONDecoder*>;
};
template <class T>
concept HoldsItsDecoder = requires {
  { &T::decoder } -> std::convertible_to<const JSONDecoder*>;
};

}  // namespace detail

/// The decoder that reads a `T`: the one that the type names or, for an optional, a list or a map,
/// the one that its content names; else jsonDecoder().
///
/// Only the type of the whole document is asked: a member of a struct is read with the decoder of
/// the struct.
template <JSONDecodable T>
const JSONDecoder& decoderOf() {
  if constexpr (detail::AnswersItsDecoder<T>) {
    return T::decoder();
  } else if constexpr (detail::HoldsItsDecoder<T>) {
    return T::decoder;
  } else if constexpr (requires { requires JSONDecodable<typename T::mapped_type>; }) {
    return decoderOf<typename T::mapped_type>();
  } else if constexpr (requires {
                         requires JSONDecodable<typename T::value_type>;
                         requires !std::same_as<typename T::value_type, T>;
                       }) {
    return decoderOf<typename T::value_type>();
  } else {
    static_assert(
        !requires { T::decoder(); }, "A type's `decoder()` answers a `const tarn::JSONDecoder&`.");
    return jsonDecoder();
  }
}

}  // namespace tarn
