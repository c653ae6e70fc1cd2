#pragma once

#include <boost/pfr/core.hpp>

#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

// The members of a plain struct: how many, which and of what name.
namespace tarn::detail {

// As far as Boost.PFR goes.
constexpr std::size_t mostMembers = 100;

// Boost.PFR's own count is not asked: GCC 12 can't compile it for members such as
// `std::vector<std::string> names = {"a"}`.

// The conversions are never called; Clang wants them defined for types without linkage.

/// A value of any type but T and its bases.
template <class T>
struct AnyMember {
  template <class U>
  requires(!std::is_base_of_v<U, T>) operator U() const { throw; }
};
template <class T, std::size_t>
using AnyMemberAt = AnyMember<T>;

template <class T>
struct AnyBase {
  template <class U>
  requires(std::is_base_of_v<U, T> && !std::same_as<U, T>) operator U() const { throw; }
};

/// Whether T can be initialised with `count` members.
template <class T, std::size_t count>
consteval bool takesMembers() {
  return []<std::size_t... I>(std::index_sequence<I...>) {
    return requires { T{AnyMemberAt<T, I>{}...}; };
  }
  (std::make_index_sequence<count>());
}

/// The greatest count that T takes; it takes `taken`, but not `tooMany`.
template <class T, std::size_t taken, std::size_t tooMany>
consteval std::size_t greatestCount() {
  constexpr std::size_t middle = (taken + tooMany) / 2;
  if constexpr (middle == taken)
    return taken;
  else if constexpr (takesMembers<T, middle>())
    return greatestCount<T, middle, tooMany>();
  else
    return greatestCount<T, taken, middle>();
}

constexpr std::size_t uncountable = mostMembers + 2;

template <class T, std::size_t least = 0>
consteval std::size_t countMembers() {
  if constexpr (least == uncountable)
    return uncountable;
  else if constexpr (takesMembers<T, least>())
    return greatestCount<T, least, uncountable>();
  else  // as long as a member without an initial value is to come
    return countMembers<T, least + 1>();
}

template <class T>
constexpr std::size_t memberCount = countMembers<T>();

/// Whether a C array begins at I: it counts with each of its elements, but takes one `{}`.
template <class T, std::size_t I>
consteval bool startsArray() {
  return []<std::size_t... Before, std::size_t... After>(std::index_sequence<Before...>,
                                                         std::index_sequence<After...>) {
    return requires { T{AnyMemberAt<T, Before>{}..., {}}; }
    &&!requires { T{AnyMemberAt<T, Before>{}..., {}, AnyMemberAt<T, After>{}...}; };
  }
  (std::make_index_sequence<I>(), std::make_index_sequence<memberCount<T> - I - 1>());
}

struct Unrelated {};

/// Whether T begins with a base; a member that can be anything is none.
template <class T>
concept HasBase = requires {
  T{AnyBase<T>{}};
}
&&!requires { T{Unrelated{}}; };

/// The I-th member.
template <std::size_t I, class T>
constexpr auto& memberOf(T& object) noexcept {
  using Count = boost::pfr::detail::size_t_<memberCount<std::remove_const_t<T>>>;
  return boost::pfr::detail::sequence_tuple::get<I>(
      boost::pfr::detail::tie_as_tuple(object, Count{}));
}

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
  std::string_view text = spelled<MemberPointer{&memberOf<I>(undefined<T>.value)}>();
  // GCC ends in "::name)}; std::string_view = ...]", Clang in ".name}]".
  text = text.substr(0, text.rfind('}'));
  if (text.ends_with(')')) text.remove_suffix(1);
  return text.substr(text.find_last_of(".:") + 1);
}
#ifdef __clang__
#pragma clang diagnostic pop
#endif

template <class T>
using MemberIndices = std::make_index_sequence<memberCount<T>>;
template <class T, std::size_t I>
using DeclaredMember = std::remove_reference_t<decltype(memberOf<I>(std::declval<T&>()))>;
template <class T, std::size_t I>
using Member = std::remove_const_t<DeclaredMember<T, I>>;

template <class T>
consteval bool holdsArray() {
  return []<std::size_t... I>(std::index_sequence<I...>) {
    if constexpr ((startsArray<T, I>() || ...))
      return true;
    else  // those of one element, which don't disturb the count
      return (std::is_array_v<DeclaredMember<T, I>> || ...);
  }
  (MemberIndices<T>());
}

/// Whether the members of T can be told apart; each obstacle has its sentence.
template <class T>
consteval bool hasMembers() {
  constexpr bool hasBase = HasBase<T>;
  static_assert(!hasBase, "A struct that is read or written member by member has no base.");
  if constexpr (!hasBase) {
    constexpr bool isCountable = memberCount<T> != uncountable;
    static_assert(isCountable,
                  "The members of this struct can't be counted: a reference can't be a member.");
    if constexpr (isCountable) {
      constexpr bool areFew = memberCount<T> <= mostMembers;
      static_assert(areFew,
                    "A struct has at most 100 members; a C array counts with each element.");
      if constexpr (areFew) {
        constexpr bool isArray = holdsArray<T>();
        static_assert(!isArray, "A C array can't be a member: take a `std::array`.");
        return !isArray;
      }
    }
  }
  return false;
}

}  // namespace tarn::detail
