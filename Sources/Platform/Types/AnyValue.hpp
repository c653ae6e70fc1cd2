#pragma once

#include <any>
#include <concepts>
#include <cstddef>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn {
namespace detail {

std::string describeSigned(long long value);
std::string describeUnsigned(unsigned long long value);
std::string describeFloat(float value);
std::string describeDouble(double value);

template <class T>
concept HasDescription = requires(const T& value) {
  { value.description() } -> std::convertible_to<std::string>;
};
template <class T>
concept HasDebugDescription = requires(const T& value) {
  { value.debugDescription() } -> std::convertible_to<std::string>;
};
template <class T>
concept HasMessage = requires(const T& value) {
  { value.message() } -> std::convertible_to<std::string>;
};
template <class T>
concept Text = std::convertible_to<const T&, std::string_view> && !std::same_as<T, std::nullptr_t>;

// Declared together and defined below, so that containers nest in any order.
template <class T>
struct Description;

/// A type that has a textual description.
template <class T>
concept Describable = requires(const T& value) {
  { Description<T>::of(value) } -> std::convertible_to<std::string>;
};

template <>
struct Description<bool> {
  static std::string of(bool value) { return value ? "true" : "false"; }
};
template <>
struct Description<char> {
  static std::string of(char value) { return std::string(1, value); }
};
template <std::integral T>
struct Description<T> {
  static std::string of(T value) {
    if constexpr (std::signed_integral<T>)
      return describeSigned(value);
    else
      return describeUnsigned(value);
  }
};
template <>
struct Description<float> {
  static std::string of(float value) { return describeFloat(value); }
};
template <>
struct Description<double> {
  static std::string of(double value) { return describeDouble(value); }
};
template <>
struct Description<std::nullopt_t> {
  static std::string of(std::nullopt_t) { return "nil"; }
};
template <class T>
requires(std::is_class_v<T> || Text<T>) struct Description<T> {
  static std::string of(const T& value) requires(Text<T> || HasDescription<T> ||
                                                 HasDebugDescription<T> || HasMessage<T> ||
                                                 std::derived_from<T, std::exception>) {
    if constexpr (HasDescription<T>)
      return value.description();
    else if constexpr (HasDebugDescription<T>)
      return value.debugDescription();
    else if constexpr (HasMessage<T>)
      return value.message();
    else if constexpr (std::is_pointer_v<T>)
      return value != nullptr ? value : "nil";
    else if constexpr (Text<T>)
      return std::string(static_cast<std::string_view>(value));
    else
      return value.what();
  }
};
template <Describable T>
struct Description<std::optional<T>> {
  static std::string of(const std::optional<T>& value) {
    return value ? Description<T>::of(*value) : "nil";
  }
};
template <Describable T>
struct Description<std::vector<T>> {
  static std::string of(const std::vector<T>& values) {
    std::string text = "[";
    for (const auto& value : values) {
      if (text.size() > 1) text += ", ";
      text += Description<T>::of(value);
    }
    return text += ']';
  }
};
template <Describable K, Describable V>
struct Description<std::map<K, V>> {
  static std::string of(const std::map<K, V>& values) {
    if (values.empty()) return "[:]";
    std::string text = "[";
    for (const auto& [key, value] : values) {
      if (text.size() > 1) text += ", ";
      text += Description<K>::of(key) + ": " + Description<V>::of(value);
    }
    return text += ']';
  }
};

}  // namespace detail

/// A value of any type, together with its textual description: what printing the value would show.
///
/// Booleans read "true" and "false"; floating point numbers in the shortest form that reads back
/// the same, with ".0" where they are integral; an absent optional "nil"; lists "[a, b]". A type
/// describes itself by a member `description()`, `debugDescription()` or `message()`, in this
/// order.
class AnyValue {
 public:
  /// Keeps a copy of the value; any text is kept as a `std::string`.
  template <class T, class V = std::decay_t<T>>
  requires(!std::same_as<V, AnyValue> && detail::Describable<V>)
      AnyValue(T&& value)  // NOLINT(google-explicit-constructor): maps of values are written with
                           // plain values
      : description_(detail::Description<V>::of(value)) {
    if constexpr (detail::Text<V> && !std::is_class_v<V>)
      value_ = description_;
    else if constexpr (std::same_as<V, std::string_view>)
      value_ = description_;
    else
      value_ = V(std::forward<T>(value));
  }

  const std::string& description() const noexcept { return description_; }
  /// The value, where it is exactly a `T`; null otherwise. Lives as long as this object.
  template <class T>
  const T* as() const noexcept {
    return std::any_cast<T>(&value_);
  }

  friend bool operator==(const AnyValue& left, const AnyValue& right) noexcept {
    return left.description_ == right.description_;
  }

 private:
  std::any value_;
  std::string description_;
};

}  // namespace tarn
