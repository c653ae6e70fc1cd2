#pragma once

#include <Platform/JSON/JSONCoding.hpp>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

/// The text that stands for a value of an enum.
///
/// By default an enum with a fixed underlying type, as each `enum class` has one, is read and
/// written as the name of its enumerator; that reaches values from -128 to 127. Of two names for
/// one value the first is read and written. For other texts and values, or for the underlying
/// numbers as they are, declare beside the enum one of
///
///     constexpr auto jsonCases(Colour) {
///       return std::to_array<tarn::JSONCase<Colour>>({{Colour::red, "RED"}, ...});
///     }
///     constexpr tarn::JSONRawValues jsonCases(Colour) { return {}; }
template <class E>
struct JSONCase {
  E value;
  std::string_view name;
};
struct JSONRawValues {};

namespace detail {

template <class E>
concept FixedEnum = std::is_enum_v<E> && requires {
  E{0};
};

template <class E, E... values>
consteval std::string_view spelledValues() {
  return __PRETTY_FUNCTION__;
}

/// Goes through the compiler's list of values, entry by entry.
struct SpelledList {
  std::string_view rest;

  /// Up to the next comma outside of brackets.
  constexpr std::string_view next() {
    int depth = 0;
    std::size_t end = 0;
    for (; end < rest.size(); ++end) {
      const char c = rest[end];
      if (c == '(' || c == '<' || c == '[' || c == '{') ++depth;
      if (c == ')' || c == '>' || c == ']' || c == '}') --depth;
      if (depth < 0 || (depth == 0 && c == ',')) break;
    }
    const auto entry = rest.substr(0, end);
    rest.remove_prefix(std::min(rest.size(), end + 2));
    return entry;
  }
};

/// "red" of "shop::Colour::red"; empty for "(shop::Colour)3", a value without a name.
constexpr std::string_view enumeratorOf(std::string_view entry) {
  const auto name = entry.substr(entry.rfind(':') + 1);
  return name.find(')') == name.npos ? name : std::string_view();
}

template <class E>
struct ReflectedCases {
  using Raw = std::underlying_type_t<E>;
  static constexpr int first = std::is_signed_v<Raw> ? -128 : 0;
  static constexpr std::size_t count = std::is_same_v<Raw, bool> ? 2 : 128 - first;

  static consteval SpelledList list() {
    constexpr auto text = []<std::size_t... I>(std::index_sequence<I...>) {
      return spelledValues<E, static_cast<E>(static_cast<Raw>(first + static_cast<int>(I)))...>();
    }
    (std::make_index_sequence<count>());
    // GCC spells "values = {...}", Clang "values = <...>".
    constexpr std::string_view start = "values = ";
    return {text.substr(text.find(start) + start.size() + 1)};
  }
  static consteval std::size_t named() {
    auto entries = list();
    std::size_t found = 0;
    for (std::size_t i = 0; i < count; ++i) found += !enumeratorOf(entries.next()).empty();
    return found;
  }
  static consteval auto cases() {
    std::array<JSONCase<E>, named()> result{};
    auto entries = list();
    for (std::size_t i = 0, found = 0; i < count; ++i) {
      if (const auto name = enumeratorOf(entries.next()); !name.empty())
        result[found++] = {static_cast<E>(static_cast<Raw>(first + static_cast<int>(i))), name};
    }
    return result;
  }
};

template <class E>
consteval auto casesOf() {
  if constexpr (requires { jsonCases(E{}); }) {
    return jsonCases(E{});
  } else {
    static_assert(ReflectedCases<E>::named() > 0,
                  "No value of this enum from -128 to 127 has a name: declare `jsonCases`.");
    return ReflectedCases<E>::cases();
  }
}

/// The number that a raw value is; of characters their code.
template <class Raw>
consteval auto numberOf() {
  if constexpr (std::same_as<Raw, bool>)
    return false;
  else if constexpr (std::is_signed_v<Raw>)
    return std::make_signed_t<Raw>();
  else
    return std::make_unsigned_t<Raw>();
}

[[noreturn]] void failUnknownCase(JSONReader& reader, std::string_view found,
                                  std::span<const std::string_view> names);

template <FixedEnum E>
struct DefaultCoding<E> {
  using Number = decltype(numberOf<std::underlying_type_t<E>>());
  static constexpr auto cases = casesOf<E>();
  static constexpr bool isRaw = std::same_as<decltype(casesOf<E>()), JSONRawValues>;

  static E decode(JSONReader& reader) {
    if constexpr (isRaw) {
      return static_cast<E>(JSONCoding<Number>::decode(reader));
    } else {
      const std::string text = reader.string();
      for (const auto& [value, name] : cases)
        if (name == text) return value;
      std::array<std::string_view, cases.size()> names;
      std::ranges::transform(cases, names.begin(), &JSONCase<E>::name);
      failUnknownCase(reader, text, names);
    }
  }
  static void encode(E value, JSONWriter& writer) {
    if constexpr (isRaw) {
      writer.encode(static_cast<Number>(value));
    } else {
      for (const auto& [known, name] : cases)
        if (known == value) return writer.string(name);
      writer.failInvalid("the value " + std::to_string(static_cast<Number>(value)) +
                         " of this enum has no name");
    }
  }
};

}  // namespace detail
}  // namespace tarn
