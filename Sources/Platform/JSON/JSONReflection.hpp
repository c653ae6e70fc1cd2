#pragma once

#include <Platform/JSON/JSONCoding.hpp>

#include <boost/pfr/core.hpp>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

namespace detail {

// As far as Boost.PFR goes.
constexpr std::size_t mostMembers = 100;

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

/// The keys of the members whose own names can't be it. In the struct:
///
///     static constexpr tarn::JSONKeys codingKeys = {{"identifier", "_id"}};
struct JSONKey {
  std::string_view member;
  std::string_view key;
};
using JSONKeys = detail::MemberList<JSONKey>;

/// The members that keep their initial value where the document lacks their key. In the struct:
///
///     static constexpr tarn::JSONMembers defaultedMembers = {"page", "pageSize"};
using JSONMembers = detail::MemberList<std::string_view>;

namespace detail {

/// A struct that is read and written member by member, as it is declared.
template <class T>
concept ReflectedStruct = std::is_class_v<T> && std::is_aggregate_v<T> && !DecodesItself<T> &&
                          !EncodesItself<T> && !requires {
  typename T::value_type;
};

template <class T>
struct Wrapped {
  T value;
};
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wundefined-internal"
#pragma clang diagnostic ignored "-Wundefined-var-template"
#endif
// Never defined: only the addresses of its members are spelled out, by the compiler.
template <class T>
extern const Wrapped<T> undefined;

template <class P>
struct MemberPointer {
  P pointer;
};
template <class P>
MemberPointer(P) -> MemberPointer<P>;

template <auto P>
consteval std::string_view spelled() {
  return __PRETTY_FUNCTION__;
}

/// The identifier of the I-th member.
template <class T, std::size_t I>
consteval std::string_view memberName() {
  std::string_view text = spelled<MemberPointer{&boost::pfr::get<I>(undefined<T>.value)}>();
  // GCC ends in "::name)}; std::string_view = ...]", Clang in ".name}]".
  text = text.substr(0, text.rfind('}'));
  if (text.ends_with(')')) text.remove_suffix(1);
  return text.substr(text.find_last_of(".:") + 1);
}
#ifdef __clang__
#pragma clang diagnostic pop
#endif

template <class T>
using MemberIndices = std::make_index_sequence<boost::pfr::tuple_size_v<T>>;
template <class T, std::size_t I>
using Member = boost::pfr::tuple_element_t<I, T>;

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

template <class T, std::size_t I>
consteval std::string_view keyOf() {
  if constexpr (requires { T::codingKeys; })
    for (const auto& [member, key] : T::codingKeys)
      if (member == memberName<T, I>()) return key;
  return memberName<T, I>();
}

template <class T, std::size_t I>
consteval bool isRequired() {
  if constexpr (requires { T::defaultedMembers; })
    for (const auto member : T::defaultedMembers)
      if (member == memberName<T, I>()) return false;
  return !isOptional<Member<T, I>>;
}

// What the code that is no template needs to know of a member.
struct DecodedMember {
  std::string_view key;
  /// `again`: the value is not new, an earlier one has to go.
  void (*decode)(JSONReader& reader, void* object, bool again);
  bool isRequired;
};
struct EncodedMember {
  std::string_view key;
  /// The key between quotes, and the colon; empty where the key has to be escaped.
  std::string_view text;
  void (*encode)(JSONWriter& writer, const void* object);
  /// Whether there is nothing to be written; null where there always is.
  bool (*isAbsent)(const void* object);
};

void decodeMembers(JSONReader& reader, void* object, std::span<const DecodedMember> members);
void encodeMembers(JSONWriter& writer, const void* object, std::span<const EncodedMember> members);

template <class T, std::size_t I>
void decodeMember(JSONReader& reader, void* object, bool again) {
  static_assert(JSONReadable<Member<T, I>>,
                "A member of this struct is of a type that no JSON is read as.");
  auto& member = boost::pfr::get<I>(*static_cast<T*>(object));
  if (again)
    member = JSONCoding<Member<T, I>>::decode(reader);
  else
    decodeInto(reader, member);
}

template <class T, std::size_t I>
void encodeMember(JSONWriter& writer, const void* object) {
  static_assert(JSONWritable<Member<T, I>>,
                "A member of this struct is of a type that is not written as JSON.");
  writer.encode(boost::pfr::get<I>(*static_cast<const T*>(object)));
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
  return std::ranges::all_of(key,
                             [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

template <class T, std::size_t I>
constexpr EncodedMember encodedMember() {
  bool (*isAbsent)(const void*) = nullptr;
  if constexpr (isOptional<Member<T, I>>)
    isAbsent = [](const void* object) {
      return !boost::pfr::get<I>(*static_cast<const T*>(object)).has_value();
    };
  constexpr std::string_view key = keyOf<T, I>();
  const std::size_t textSize = isPlainKey(key) ? key.size() + 3 : 0;
  return {key, {keyText<T, I>.data(), textSize}, encodeMember<T, I>, isAbsent};
}

template <ReflectedStruct T>
struct DefaultCoding<T> {
  static T decode(JSONReader& reader) {
    static_assert(
        requires { T{}; },
        "Every member of a struct that JSON is read as needs an initial value: one that "
        "its type gives, or an initialiser.");
    T value{};
    decodeInto(reader, value);
    return value;
  }
  static void decodeInto(JSONReader& reader, T& value) {
    check();
    static constexpr auto members = []<std::size_t... I>(std::index_sequence<I...>) {
      return std::array<DecodedMember, sizeof...(I)>{
          DecodedMember{keyOf<T, I>(), decodeMember<T, I>, isRequired<T, I>()}...};
    }
    (MemberIndices<T>());
    decodeMembers(reader, &value, members);
  }
  static void encode(const T& value, JSONWriter& writer) {
    check();
    static constexpr auto members = []<std::size_t... I>(std::index_sequence<I...>) {
      return std::array<EncodedMember, sizeof...(I)>{encodedMember<T, I>()...};
    }
    (MemberIndices<T>());
    encodeMembers(writer, &value, members);
  }

 private:
  static constexpr void check() {
    static_assert(boost::pfr::tuple_size_v<T> <= mostMembers, "A struct has at most 100 members.");
    static_assert(namesOnlyMembers<T>(),
                  "`codingKeys` and `defaultedMembers` name members of the struct.");
  }
};

}  // namespace detail
}  // namespace tarn
