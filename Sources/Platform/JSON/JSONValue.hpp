#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tarn {

/// Any JSON value, for documents whose form is only known at run time.
///
///     const auto document = JSONDecoder().decode<JSONValue>(json);
///     const auto price = document["items"][3]["price"].as<double>();
///     const JSONValue order = JSONValue::Object{{"id", 7}, {"tags",
///     JSONValue::Array{"new", 1.5}}};
///
/// Numbers keep the form they are written in: whole numbers are kept to 64 bits; those beyond, and
/// numbers with a fraction or an exponent, are doubles. So 1 and 1.0 are told apart, and so are two
/// values that are compared; `as` converts.
///
/// A value: copies share nothing. Copying, comparing, reading and writing cost stack for each level
/// of nesting; destroying does not.
class JSONValue {
 public:
  using Kind = JSONReader::Kind;
  using Array = std::vector<JSONValue>;
  /// In the order of the keys' bytes.
  using Object = std::map<std::string, JSONValue, std::less<>>;

  // NOLINTBEGIN(google-explicit-constructor): documents are written with plain values
  /// Null.
  JSONValue() noexcept = default;
  JSONValue(std::nullptr_t) noexcept {}
  template <std::same_as<bool> T>
  JSONValue(T value) noexcept : storage_(value) {}
  template <detail::WholeNumber T>
  JSONValue(T value) noexcept : storage_(stored(value)) {}
  template <std::floating_point T>
  JSONValue(T value) noexcept : storage_(static_cast<double>(value)) {}
  JSONValue(std::string value) noexcept : storage_(std::move(value)) {}
  JSONValue(std::string_view value) : storage_(std::string(value)) {}
  JSONValue(const char* value) : storage_(std::string(value)) {}
  JSONValue(Array elements) noexcept : storage_(std::move(elements)) {}
  JSONValue(Object members) noexcept : storage_(std::move(members)) {}
  // NOLINTEND(google-explicit-constructor)

  JSONValue(const JSONValue&) = default;
  JSONValue(JSONValue&&) noexcept = default;
  /// From a part of the value itself, too.
  JSONValue& operator=(JSONValue other) noexcept {
    storage_.swap(other.storage_);
    return *this;
  }
  ~JSONValue();

  Kind kind() const noexcept;
  bool isNull() const noexcept { return kind() == Kind::null; }
  bool isBoolean() const noexcept { return kind() == Kind::boolean; }
  bool isNumber() const noexcept { return kind() == Kind::number; }
  bool isString() const noexcept { return kind() == Kind::string; }
  bool isArray() const noexcept { return kind() == Kind::array; }
  bool isObject() const noexcept { return kind() == Kind::object; }

  /// The value as a bool, a whole number of any width, a double, a std::string or a
  /// std::string_view, which lives as long as this value stays as it is. Numbers are converted
  /// where that is exact: 12.0 is the int 12, 0.5 none. Nothing for a value of another kind.
  template <class T>
  std::optional<T> as() const {
    static_assert(isScalar<T>,
                  "A JSON value is read as a bool, a whole number, a double or a text.");
    if constexpr (std::same_as<T, bool>)
      return get<bool>();
    else if constexpr (std::same_as<T, double>)
      return floatingPoint();
    else if constexpr (std::same_as<T, std::string>)
      return get<std::string>();
    else if constexpr (std::same_as<T, std::string_view>)
      return get<T, std::string>();
    else if constexpr (std::unsigned_integral<T>)
      return narrowed<T>(unsignedInteger());
    else
      return narrowed<T>(signedInteger());
  }

  /// The elements; none where this is no array.
  const Array& array() const noexcept;
  /// The members; none where this is no object.
  const Object& object() const noexcept;
  /// The elements, to be changed; what is no array becomes an empty one.
  Array& makeArray();
  /// The members, to be changed; what is no object becomes an empty one.
  Object& makeObject();

  /// The value of a member; null where this is no object or has no such key.
  const JSONValue& operator[](std::string_view key) const noexcept;
  const JSONValue& operator[](const char* key) const noexcept {
    return (*this)[std::string_view(key)];
  }
  /// An element; null where this is no array or is shorter.
  const JSONValue& operator[](std::size_t index) const noexcept;
  template <std::integral I>
  const JSONValue& operator[](I index) const noexcept {
    // A negative index is beyond every array's end.
    return (*this)[static_cast<std::size_t>(index)];
  }
  /// The value of a member, which tells a null that stands there from a key that is missing; a null
  /// pointer for the latter.
  const JSONValue* find(std::string_view key) const noexcept;

  friend bool operator==(const JSONValue& left, const JSONValue& right) {
    return left.storage_ == right.storage_;
  }

  /// The JSON text without white space. Numbers that are not finite read "nan", "inf" and "-inf";
  /// for what else JSON has no form for, the message of the EncodingError in angle brackets.
  std::string description() const;

  /// The value as a T, read by `decoder` from the value's text; paths of errors start at this
  /// value. Throws as the decoder does, and EncodingError where JSON has no form for the value.
  template <JSONReadable T>
  T decode(const JSONDecoder& decoder = JSONDecoder()) const {
    return decoder.decode<T>(text(decoder));
  }

  static JSONValue decode(JSONReader& reader);
  void encode(JSONWriter& writer) const;

 private:
  // The larger of the whole numbers only holds what the smaller can't.
  using Storage = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double,
                               std::string, Array, Object>;

  template <class T>
  static constexpr bool isScalar =
      detail::WholeNumber<T> || std::same_as<T, bool> || std::same_as<T, double> ||
      std::same_as<T, std::string> || std::same_as<T, std::string_view>;

  template <class T>
  static Storage stored(T value) noexcept {
    if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
    return static_cast<std::uint64_t>(value);
  }
  template <class T, class Stored = T>
  std::optional<T> get() const {
    const auto* value = std::get_if<Stored>(&storage_);
    return value ? std::optional<T>(*value) : std::nullopt;
  }
  template <class T, class Wide>
  static std::optional<T> narrowed(std::optional<Wide> value) noexcept {
    if (!value || !std::in_range<T>(*value)) return std::nullopt;
    return static_cast<T>(*value);
  }
  std::optional<std::int64_t> signedInteger() const noexcept;
  std::optional<std::uint64_t> unsignedInteger() const noexcept;
  std::optional<double> floatingPoint() const noexcept;
  Data text(const JSONDecoder& decoder) const;

  Storage storage_;
};

}  // namespace tarn
