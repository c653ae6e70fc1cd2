#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/Types/TypeName.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/UUID.hpp>

#include <array>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace tarn::detail {

/// The kinds of value that a type may be read from.
class ReadableKinds {
 public:
  constexpr ReadableKinds(std::initializer_list<JSONReader::Kind> kinds) {
    for (const auto kind : kinds) bits_ |= bit(kind);
  }
  static constexpr ReadableKinds all() {
    using Kind = JSONReader::Kind;
    return {Kind::null, Kind::boolean, Kind::number, Kind::string, Kind::array, Kind::object};
  }
  /// Also of strings where the decoder has texts for numbers that are not finite.
  static constexpr ReadableKinds floatingPoint() {
    ReadableKinds kinds = {JSONReader::Kind::number};
    kinds.bits_ |= nonConforming;
    return kinds;
  }

  constexpr ReadableKinds operator|(ReadableKinds other) const {
    other.bits_ |= bits_;
    return other;
  }
  bool contain(JSONReader::Kind kind, const JSONDecoder& decoder) const noexcept;

 private:
  static constexpr unsigned nonConforming = 1U << 31;
  static constexpr unsigned bit(JSONReader::Kind kind) { return 1U << static_cast<unsigned>(kind); }

  unsigned bits_ = 0;
};

template <auto F>
struct Function {};

/// Not with a coding of one's own, which may read anything.
template <class T>
concept ReadByDefault =
    !DecodesItself<T> && std::derived_from<JSONCoding<T>, DefaultCoding<T>> &&
    std::same_as<Function<&JSONCoding<T>::decode>, Function<&DefaultCoding<T>::decode>>;

template <class T>
struct KindsOf {
  static constexpr bool isContainer = requires { typename T::value_type; };
  static constexpr bool isMap = requires { typename T::mapped_type; };

  static constexpr ReadableKinds kinds() {
    using Kind = JSONReader::Kind;
    if constexpr (!ReadByDefault<T>)
      return ReadableKinds::all();
    else if constexpr (std::same_as<T, bool>)
      return {Kind::boolean};
    else if constexpr (std::integral<T>)
      return {Kind::number};
    else if constexpr (std::floating_point<T>)
      return ReadableKinds::floatingPoint();
    else if constexpr (std::same_as<T, std::string> || std::same_as<T, URL> ||
                       std::same_as<T, UUID>)
      return {Kind::string};
    else if constexpr (std::is_enum_v<T>)
      return enumKinds();
    else if constexpr (isMap)
      return {Kind::object};
    else if constexpr (isContainer && requires(T & container) { container.begin(); })
      return {Kind::array};
    else if constexpr (std::is_class_v<T> && std::is_aggregate_v<T>)
      return {Kind::object};
    else
      return ReadableKinds::all();  // dates and bytes: their strategies may read anything
  }
  static std::string_view name() {
    if constexpr (!ReadByDefault<T>)
      return unqualifiedTypeName<T>();
    else if constexpr (std::same_as<T, bool>)
      return "true or false";
    else if constexpr (std::is_arithmetic_v<T>)
      return "a number";
    else if constexpr (std::same_as<T, std::string>)
      return "a string";
    else if constexpr (isMap)
      return "an object";
    else if constexpr (isContainer && requires(T & container) { container.begin(); })
      return "an array";
    else
      return unqualifiedTypeName<T>();
  }

 private:
  static constexpr ReadableKinds enumKinds() {
    if constexpr (DefaultCoding<T>::isRaw)
      return KindsOf<std::underlying_type_t<T>>::kinds();
    else
      return {JSONReader::Kind::string};
  }
};
template <>
struct KindsOf<std::monostate> {
  static constexpr ReadableKinds kinds() { return {JSONReader::Kind::null}; }
  static std::string_view name() { return "null"; }
};
template <class Rep, class Period>
struct KindsOf<std::chrono::duration<Rep, Period>> {
  static constexpr ReadableKinds kinds() { return ReadableKinds::floatingPoint(); }
  static std::string_view name() { return "a number"; }
};
template <class T>
struct KindsOf<std::optional<T>> {
  static constexpr ReadableKinds kinds() {
    return KindsOf<T>::kinds() | ReadableKinds{JSONReader::Kind::null};
  }
  static std::string_view name() { return KindsOf<T>::name(); }
};
template <class... T>
struct KindsOf<std::variant<T...>> {
  static constexpr ReadableKinds kinds() { return (KindsOf<T>::kinds() | ...); }
  static std::string_view name() { return unqualifiedTypeName<std::variant<T...>>(); }
};

struct Alternative {
  ReadableKinds kinds;
  std::string_view (*name)();
};

/// The alternatives that the next value is tried as.
struct FittingAlternatives {
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  FittingAlternatives(const JSONReader& reader, std::span<const Alternative> choice);

  bool contain(std::size_t index) const noexcept {
    return alternatives[index].kinds.contain(kind, decoder);
  }

  std::span<const Alternative> alternatives;
  const JSONDecoder& decoder;
  JSONReader::Kind kind;
  /// The one whose own error tells what is wrong: the last, where all go by the same name.
  std::size_t telling = none;
};

[[noreturn]] void failExpectingOne(JSONReader& reader, std::span<const Alternative> alternatives);

/// The first alternative that can be read; those that the value is of no kind for are not tried.
template <class... T>
struct DefaultCoding<std::variant<T...>> {
  using Variant = std::variant<T...>;

  static Variant decode(JSONReader& reader) requires(JSONReadable<T>&&...) {
    static constexpr std::array<Alternative, sizeof...(T)> alternatives = {
        Alternative{KindsOf<T>::kinds(), KindsOf<T>::name}...};
    std::optional<Variant> value;
    const FittingAlternatives fitting(reader, alternatives);
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      (tryAlternative<I>(reader, fitting, value) || ...);
    }
    (std::index_sequence_for<T...>());
    if (!value) failExpectingOne(reader, alternatives);
    return *std::move(value);
  }
  static void encode(const Variant& value, JSONWriter& writer) requires(JSONWritable<T>&&...) {
    std::visit([&](const auto& alternative) { writer.encode(alternative); }, value);
  }

 private:
  template <std::size_t I>
  static bool tryAlternative(JSONReader& reader, const FittingAlternatives& fitting,
                             std::optional<Variant>& value) {
    using Type = std::variant_alternative_t<I, Variant>;
    const auto read = [&] {
      value.emplace(std::in_place_index<I>, JSONCoding<Type>::decode(reader));
    };
    if (!fitting.contain(I)) return false;
    if (I != fitting.telling) return reader.attempt(read);
    read();
    return true;
  }
};

}  // namespace tarn::detail
