#include <Platform/JSON/Detail/NumberText.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <cmath>
#include <iterator>
#include <limits>
#include <new>

namespace tarn {
namespace {

const JSONValue& nothing() {
  static const JSONValue& null = *new JSONValue();
  return null;
}

template <class... F>
struct Overloaded : F... {
  using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

bool hasParts(const JSONValue& value) noexcept {
  return !value.array().empty() || !value.object().empty();
}

/// Moves those parts of a value to `parts` that have parts themselves.
void takeParts(JSONValue& value, std::vector<JSONValue>& parts) {
  const auto take = [&parts](JSONValue& part) {
    if (hasParts(part)) parts.push_back(std::move(part));
  };
  if (value.isArray())
    for (auto& element : value.makeArray()) take(element);
  else if (value.isObject())
    for (auto& [key, member] : value.makeObject()) take(member);
}

/// The whole number of exactly this value; the bounds are those of T, whose upper one has no exact
/// double, while the power of two above it has.
template <class T>
std::optional<T> wholeNumber(double value) noexcept {
  constexpr double least = static_cast<double>(std::numeric_limits<T>::min());
  constexpr double beyond = 2.0 * static_cast<double>(std::numeric_limits<T>::max() / 2 + 1);
  if (!(value >= least && value < beyond) || std::trunc(value) != value) return std::nullopt;
  return static_cast<T>(value);
}

JSONValue decodeNumber(JSONReader& reader) {
  const auto text = reader.text();
  const detail::Number number(text);
  if (text.find_first_of(".eE") == text.npos) {
    if (std::int64_t value = 0; detail::wholeNumber(number, value)) return value;
    if (std::uint64_t value = 0; detail::wholeNumber(number, value)) return value;
  }
  if (double value = 0; detail::floatingPoint(number, value)) return value;
  reader.failCorrupted("the number " + detail::shortened(text) + " is out of range");
}

}  // namespace

JSONValue::~JSONValue() {
  if (!hasParts(*this)) return;
  try {
    // Level by level, so that deep nesting needs no deep stack.
    std::vector<JSONValue> parts;
    takeParts(*this, parts);
    while (!parts.empty()) {
      JSONValue part = std::move(parts.back());
      parts.pop_back();
      takeParts(part, parts);
    }
  } catch (const std::bad_alloc&) {
    // What is left goes the way of all members.
  }
}

JSONValue::Kind JSONValue::kind() const noexcept {
  constexpr Kind kinds[] = {Kind::null,   Kind::boolean, Kind::number, Kind::number,
                            Kind::number, Kind::string,  Kind::array,  Kind::object};
  static_assert(std::size(kinds) == std::variant_size_v<Storage>);
  return kinds[storage_.index()];
}

std::optional<std::int64_t> JSONValue::signedInteger() const noexcept {
  if (const auto* value = std::get_if<double>(&storage_)) return wholeNumber<std::int64_t>(*value);
  return get<std::int64_t>();
}

std::optional<std::uint64_t> JSONValue::unsignedInteger() const noexcept {
  if (const auto* value = std::get_if<double>(&storage_)) return wholeNumber<std::uint64_t>(*value);
  if (const auto* value = std::get_if<std::uint64_t>(&storage_)) return *value;
  return narrowed<std::uint64_t>(get<std::int64_t>());
}

std::optional<double> JSONValue::floatingPoint() const noexcept {
  const auto exactly = [](auto whole) -> std::optional<double> {
    const auto value = static_cast<double>(whole);
    return wholeNumber<decltype(whole)>(value) == whole ? std::optional(value) : std::nullopt;
  };
  if (const auto value = get<std::int64_t>()) return exactly(*value);
  if (const auto value = get<std::uint64_t>()) return exactly(*value);
  return get<double>();
}

const JSONValue::Array& JSONValue::array() const noexcept {
  static const Array& none = *new Array();
  const auto* elements = std::get_if<Array>(&storage_);
  return elements ? *elements : none;
}

const JSONValue::Object& JSONValue::object() const noexcept {
  static const Object& none = *new Object();
  const auto* members = std::get_if<Object>(&storage_);
  return members ? *members : none;
}

JSONValue::Array& JSONValue::makeArray() {
  if (!isArray()) *this = Array();
  return std::get<Array>(storage_);
}

JSONValue::Object& JSONValue::makeObject() {
  if (!isObject()) *this = Object();
  return std::get<Object>(storage_);
}

const JSONValue* JSONValue::find(std::string_view key) const noexcept {
  const auto& members = object();
  const auto member = members.find(key);
  return member == members.end() ? nullptr : &member->second;
}

const JSONValue& JSONValue::operator[](std::string_view key) const noexcept {
  const auto* value = find(key);
  return value ? *value : nothing();
}

const JSONValue& JSONValue::operator[](std::size_t index) const noexcept {
  const auto& elements = array();
  return index < elements.size() ? elements[index] : nothing();
}

std::string JSONValue::description() const {
  JSONEncoder encoder;
  encoder.nonConformingFloats = {"inf", "-inf", "nan"};
  try {
    return std::string(encoder.encode(*this).view());
  } catch (const EncodingError& error) {
    return '<' + error.message() + '>';
  }
}

Data JSONValue::text(const JSONDecoder& decoder) const {
  JSONEncoder encoder;
  encoder.maximumDepth = decoder.maximumDepth;
  encoder.nonConformingFloats = decoder.nonConformingFloats;
  return encoder.encode(*this);
}

JSONValue JSONValue::decode(JSONReader& reader) {
  switch (reader.kind()) {
    case Kind::null:
      if (reader.null()) return {};
      break;
    case Kind::boolean:
      return reader.boolean();
    case Kind::number:
      return decodeNumber(reader);
    case Kind::string:
      return reader.string();
    case Kind::array: {
      Array elements;
      reader.array([&] { elements.push_back(decode(reader)); });
      return elements;
    }
    case Kind::object: {
      Object members;
      reader.object([&](std::string_view key) {
        members.insert_or_assign(std::string(key), decode(reader));
      });
      return members;
    }
  }
  reader.failExpecting("a value");
}

void JSONValue::encode(JSONWriter& writer) const {
  std::visit(
      Overloaded{[&](std::nullptr_t) { writer.null(); }, [&](bool value) { writer.boolean(value); },
                 [&](std::int64_t value) { writer.integer(value); },
                 [&](std::uint64_t value) { writer.integer(value); },
                 [&](double value) { writer.floatingPoint(value); },
                 [&](const std::string& value) { writer.string(value); },
                 [&](const Array& elements) {
                   writer.array([&] {
                     for (const auto& element : elements) writer.element(element);
                   });
                 },
                 [&](const Object& members) {
                   writer.object([&] {
                     for (const auto& [key, value] : members) writer.member(key, value);
                   });
                 }},
      storage_);
}

}  // namespace tarn
