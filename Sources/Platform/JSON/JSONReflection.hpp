#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/JSON/StructMembers.hpp>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

namespace detail {

/// A list that a struct can hold as a static constant; an initializer_list as such can't be one.
template <class T>
class MemberList {
 public:
  constexpr MemberList(std::initializer_list<T> list) : size_(list.size()) {
    std::ranges::copy(list, elements_.begin());
  }
  constexpr const T* begin() const noexcept { return elements_.data(); }
  constexpr const T* end() const noexcept { return elements_.data() + size_; }

 private:
  std::array<T, mostMembers> elements_{};
  std::size_t size_;
};

}  // namespace detail

/// The keys of the members whose own names can't be it. They stand in the document as they are
/// given here: no key strategy converts them. In the struct:
///
///     static constexpr tarn::JSONKeys codingKeys = {{"identifier", "_id"}};
struct JSONKey {
  std::string_view member;
  std::string_view key;
};
using JSONKeys = detail::MemberList<JSONKey>;

/// The members that keep their initial value where the document lacks their key; the others have to
/// be there or, where they are optional, are empty then. In the struct:
///
///     static constexpr tarn::JSONMembers defaultedMembers = {"page", "pageSize"};
using JSONMembers = detail::MemberList<std::string_view>;

namespace detail {

/// A struct that is read and written member by member, as it is declared.
template <class T>
concept ReflectedStruct = std::is_class_v<T> && std::is_aggregate_v<T> && !DecodesItself<T> &&
                          !EncodesItself<T> && !requires(T & value) {
  typename T::value_type;
  value.begin();
};

template <class T>
constexpr bool isOptional = false;
template <class T>
constexpr bool isOptional<std::optional<T>> = true;

template <class T>
consteval bool hasMember(std::string_view name) {
  return [name]<std::size_t... I>(std::index_sequence<I...>) {
    return ((memberName<T, I>() == name) || ...);
  }
  (MemberIndices<T>());
}

template <class T>
consteval bool namesOnlyMembers() {
  if constexpr (requires { T::codingKeys; })
    for (const auto& [member, key] : T::codingKeys)
      if (!hasMember<T>(member)) return false;
  if constexpr (requires { T::defaultedMembers; })
    for (const auto member : T::defaultedMembers)
      if (!hasMember<T>(member)) return false;
  return true;
}

/// The key that `codingKeys` gives to a member; empty where it gives none.
template <class T>
consteval std::optional<std::string_view> givenKey(std::string_view name) {
  if constexpr (requires { T::codingKeys; })
    for (const auto& [member, key] : T::codingKeys)
      if (member == name) return key;
  return std::nullopt;
}

template <class T, std::size_t I>
consteval std::string_view keyOf() {
  return givenKey<T>(memberName<T, I>()).value_or(memberName<T, I>());
}

template <class T, std::size_t I>
consteval bool isKeyGiven() {
  return givenKey<T>(memberName<T, I>()).has_value();
}

template <class T>
consteval bool hasDistinctKeys() {
  return []<std::size_t... I>(std::index_sequence<I...>) {
    std::array<std::string_view, sizeof...(I)> keys{keyOf<T, I>()...};
    std::ranges::sort(keys);
    return std::ranges::adjacent_find(keys) == keys.end();
  }
  (MemberIndices<T>());
}

template <class T>
concept HasDefaultedMembers = requires {
  T::defaultedMembers;
};

template <class T, std::size_t I>
consteval bool isDefaulted() {
  if constexpr (HasDefaultedMembers<T>)
    for (const auto member : T::defaultedMembers)
      if (member == memberName<T, I>()) return true;
  return false;
}

/// Whether T can be read or written.
template <class T>
consteval bool isSound() {
  if constexpr (hasMembers<T>()) {
    constexpr bool isNamed = namesOnlyMembers<T>();
    constexpr bool isDistinct = hasDistinctKeys<T>();
    static_assert(isNamed, "`codingKeys` and `defaultedMembers` name members of the struct.");
    static_assert(isDistinct, "Two members of a struct can't have the same key.");
    return isNamed && isDistinct;
  }
  return false;
}

// Filled up with zeros, so that whole blocks can be copied.
constexpr std::size_t keyTextBlock = 16;

template <class T, std::size_t I>
inline constexpr auto keyText = [] {
  constexpr std::string_view key = keyOf<T, I>();
  std::array<char, (key.size() + 3 + keyTextBlock - 1) / keyTextBlock * keyTextBlock> text{'"'};
  std::ranges::copy(key, text.begin() + 1);
  text[key.size() + 1] = '"';
  text[key.size() + 2] = ':';
  return text;
}();

constexpr bool isPlainKey(std::string_view key) {
  return !key.empty() && std::ranges::all_of(key, [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
}

/// The key between quotes, and the colon; empty where the key is, or has to be escaped.
template <class T, std::size_t I>
constexpr std::string_view textOfKey() {
  constexpr std::string_view key = keyOf<T, I>();
  return {keyText<T, I>.data(), isPlainKey(key) ? key.size() + 3 : 0};
}

// What the code that is no template needs to know of a member.
struct DecodedMember {
  std::string_view key;
  /// As textOfKey() says.
  std::string_view text;
  /// `again`: the value is not new, an earlier one has to go.
  void (*decode)(JSONReader& reader, void* object, bool again);
  /// For an optional member the document lacks; null where it keeps its initial value.
  void (*clear)(void* object);
  bool isRequired;
  /// Whether the key is the document's, to which no key strategy applies.
  bool isKeyGiven;
  /// Its place among the members.
  std::uint8_t index;
};
struct EncodedMember {
  std::string_view key;
  bool isKeyGiven;
  /// As textOfKey() says.
  std::string_view text;
  void (*encode)(JSONWriter& writer, const void* object);
  /// Whether there is nothing to be written; null where there always is.
  bool (*isAbsent)(const void* object);
};

void decodeMembers(JSONReader& reader, void* object, std::span<const DecodedMember> members);
void encodeMembers(JSONWriter& writer, const void* object, std::span<const EncodedMember> members);

template <class T, std::size_t I>
void decodeMember(JSONReader& reader, void* object, bool again) {
  constexpr bool isConst = std::is_const_v<DeclaredMember<T, I>>;
  constexpr bool isReadable = JSONReadable<Member<T, I>>;
  static_assert(!isConst, "A const member of a struct can't be read, only written.");
  static_assert(isReadable, "A member of this struct is of a type that no JSON is read as.");
  if constexpr (!isConst && isReadable) {
    auto& member = memberOf<I>(*static_cast<T*>(object));
    if (again)
      member = JSONCoding<Member<T, I>>::decode(reader);
    else
      decodeInto(reader, member);
  }
}

template <class T, std::size_t I>
constexpr DecodedMember decodedMember() {
  constexpr bool isDefault = isDefaulted<T, I>();
  constexpr bool isCleared = isOptional<Member<T, I>> && !isDefault;
  void (*clear)(void*) = nullptr;
  if constexpr (isCleared && !std::is_const_v<DeclaredMember<T, I>>)
    clear = [](void* object) { memberOf<I>(*static_cast<T*>(object)).reset(); };
  return {keyOf<T, I>(),  textOfKey<T, I>(),        decodeMember<T, I>,
          clear,          !isCleared && !isDefault, isKeyGiven<T, I>(),
          std::uint8_t{I}};
}

template <class T, std::size_t I>
void encodeMember(JSONWriter& writer, const void* object) {
  constexpr bool isWritable = JSONWritable<Member<T, I>>;
  static_assert(isWritable, "A member of this struct is of a type that is not written as JSON.");
  if constexpr (isWritable) writer.encode(memberOf<I>(*static_cast<const T*>(object)));
}

template <class T, std::size_t I>
constexpr EncodedMember encodedMember() {
  bool (*isAbsent)(const void*) = nullptr;
  if constexpr (isOptional<Member<T, I>>)
    isAbsent = [](const void* object) {
      return !memberOf<I>(*static_cast<const T*>(object)).has_value();
    };
  return {keyOf<T, I>(), isKeyGiven<T, I>(), textOfKey<T, I>(), encodeMember<T, I>, isAbsent};
}

template <ReflectedStruct T>
struct DefaultCoding<T> {
  static T decode(JSONReader& reader) {
    static_assert(
        !hasMembers<T>() || requires { T{}; },
        "Every member of a struct that JSON is read as needs an initial value: one that "
        "its type gives, or an initialiser.");
    T value{};
    fill(reader, value);
    return value;
  }
  static void decodeInto(JSONReader& reader, T& value) {
    // What holds it may have given it other values; all other members are set in any case.
    if constexpr (HasDefaultedMembers<T>) value = T{};
    fill(reader, value);
  }
  static void encode(const T& value, JSONWriter& writer) {
    if constexpr (isSound<T>()) {
      static constexpr auto members = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<EncodedMember, sizeof...(I)>{encodedMember<T, I>()...};
      }
      (MemberIndices<T>());
      encodeMembers(writer, &value, members);
    }
  }

 private:
  static void fill(JSONReader& reader, T& value) {
    if constexpr (isSound<T>()) {
      static constexpr auto members = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<DecodedMember, sizeof...(I)>{decodedMember<T, I>()...};
      }
      (MemberIndices<T>());
      decodeMembers(reader, &value, members);
    }
  }
};

}  // namespace detail
}  // namespace tarn
