#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace tarn::detail::property {

/// A whole number is said as one: a fraction would be lost.
template <class From, class To>
concept Says = std::convertible_to<From, To> &&
    (!std::same_as<To, std::int64_t> || std::integral<std::remove_cvref_t<From>>);

// How the library reads what a request type says of all its values: a static member function
// without arguments or a static member of the same name. None of them throws.
#define TARN_TYPE_PROPERTY(name, Type)                                        \
  template <class R>                                                          \
  concept name##IsSaid = requires {                                           \
    { R::name() } -> Says<Type>;                                              \
  }                                                                           \
  || requires {                                                               \
    { R::name } -> Says<Type>;                                                \
    requires std::is_pointer_v<decltype(&R::name)>;                           \
    requires !std::is_function_v<std::remove_reference_t<decltype(R::name)>>; \
  };                                                                          \
  template <class R>                                                          \
  Type name() {                                                               \
    if constexpr (requires { R::name(); }) {                                  \
      return R::name();                                                       \
    } else {                                                                  \
      return R::name;                                                         \
    }                                                                         \
  }

TARN_TYPE_PROPERTY(retryInterval, double)
TARN_TYPE_PROPERTY(retryLimit, std::int64_t)
TARN_TYPE_PROPERTY(retryDelta, std::int64_t)
TARN_TYPE_PROPERTY(pollingRate, double)
TARN_TYPE_PROPERTY(shouldFirePoll, bool)
#undef TARN_TYPE_PROPERTY

}  // namespace tarn::detail::property
