#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/JSON/VariantCoding.hpp>

#include <array>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tarn::detail {

/// Absent or null. A struct leaves an empty one out; elsewhere it is written as null.
template <class T>
struct DefaultCoding<std::optional<T>> {
  static std::optional<T> decode(JSONReader& reader) requires JSONReadable<T> {
    std::optional<T> value;
    decodeInto(reader, value);
    return value;
  }
  static void decodeInto(JSONReader& reader, std::optional<T>& value) requires JSONReadable<T> {
    if (reader.null())
      value.reset();
    else if constexpr (FilledInPlace<T>)
      JSONCoding<T>::decodeInto(reader, value.emplace());
    else
      value.emplace(JSONCoding<T>::decode(reader));
  }
  static void encode(const std::optional<T>& value, JSONWriter& writer) requires JSONWritable<T> {
    value ? writer.encode(*value) : writer.null();
  }
};

/// A container that grows at its end or, as a set does, where the element belongs.
template <class T>
concept Sequence = std::default_initializable<T> &&
    requires(T& container, typename T::value_type&& element) {
  container.insert(container.end(), std::move(element));
  container.begin();
} && !std::convertible_to<const T&, std::string_view> && !requires {
  typename T::mapped_type;
}
&&!DecodesItself<T> && !EncodesItself<T>;

template <Sequence T>
struct DefaultCoding<T> {
  using Element = typename T::value_type;

  static T decode(JSONReader& reader) requires JSONReadable<Element> {
    // Growing from one to two to four elements costs more than room for a few that do not come.
    constexpr std::size_t fewElements = 4;
    T container;
    reader.array([&] {
      if constexpr (requires { container.reserve(fewElements); })
        if (container.empty()) container.reserve(fewElements);
      if constexpr (requires {
                      { container.emplace_back() } -> std::same_as<Element&>;
                    })
        detail::decodeInto(reader, container.emplace_back());
      else
        container.insert(container.end(), JSONCoding<Element>::decode(reader));
    });
    return container;
  }
  static void encode(const T& container, JSONWriter& writer) requires JSONWritable<Element> {
    writer.array([&] {
      for (const auto& element : container) writer.element(static_cast<const Element&>(element));
    });
  }
};

/// Exactly as many elements.
template <class T, std::size_t N>
struct DefaultCoding<std::array<T, N>> {
  static std::array<T, N> decode(JSONReader& reader) requires JSONReadable<T> {
    std::array<T, N> elements{};
    decodeInto(reader, elements);
    return elements;
  }
  static void decodeInto(JSONReader& reader, std::array<T, N>& elements) requires JSONReadable<T> {
    std::size_t count = 0;
    reader.array([&] {
      if (count < N) detail::decodeInto(reader, elements[count]);
      ++count;
    });
    if (count != N)
      reader.failCorrupted("expected an array of " + std::to_string(N) + ", found one of " +
                           std::to_string(count));
  }
  static void encode(const std::array<T, N>& elements,
                     JSONWriter& writer) requires JSONWritable<T> {
    writer.array([&] {
      for (const auto& element : elements) writer.element(element);
    });
  }
};

/// A map with texts for keys, which no key strategy changes.
template <class T>
concept TextMap = std::same_as<typename T::key_type, std::string> &&
    requires(T& map, std::string key) {
  typename T::mapped_type;
  map.insert_or_assign(std::move(key), std::declval<typename T::mapped_type>());
} && !DecodesItself<T> && !EncodesItself<T>;

template <TextMap T>
struct DefaultCoding<T> {
  using Value = typename T::mapped_type;

  static T decode(JSONReader& reader) requires JSONReadable<Value> {
    T map;
    reader.object([&](std::string_view key) {
      map.insert_or_assign(std::string(key), JSONCoding<Value>::decode(reader));
    });
    return map;
  }
  static void encode(const T& map, JSONWriter& writer) requires JSONWritable<Value> {
    writer.object([&] {
      for (const auto& [key, value] : map) writer.member(key, value);
    });
  }
};

/// Nothing: as an alternative of a variant it is null.
template <>
struct DefaultCoding<std::monostate> {
  static std::monostate decode(JSONReader& reader) {
    if (!reader.null()) reader.failExpecting("null");
    return {};
  }
  static void encode(std::monostate, JSONWriter& writer) { writer.null(); }
};

}  // namespace tarn::detail
