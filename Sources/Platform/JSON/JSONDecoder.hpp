#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/Types/Data.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {
namespace detail {

void decodeDocument(std::string_view json, const JSONDecoder& decoder,
                    void (*decode)(JSONReader&, void*), void* value);

}  // namespace detail

/// Decodes JSON (RFC 8259) into values: plain structs, what the standard library offers, and types
/// with a coding of their own.
///
/// A value: its fields are the settings. `decode` may be called from several threads at once.
struct JSONDecoder {
  /// Turns the key of a document into the name of a member; none leaves it as it is. Keys given by
  /// `codingKeys` are compared with the document's as they are.
  std::function<std::string(std::string_view key)> keyDecodingStrategy = nullptr;
  /// Reads a point in time; a null one stands for the default.
  std::function<JSONDate(JSONReader&)> dateDecodingStrategy = secondsSinceReferenceDate;
  /// Reads bytes; a null one stands for the default.
  std::function<Data(JSONReader&)> dataDecodingStrategy = base64;
  /// The texts that stand for numbers that are not finite; none refuses them.
  std::optional<NonConformingFloats> nonConformingFloats = std::nullopt;
  /// The greatest number of objects and arrays inside each other. Each costs stack.
  std::size_t maximumDepth = 512;

  /// Key strategy: "first_name" is the member firstName. Underscores at either end stay.
  static std::string convertFromSnakeCase(std::string_view key);

  /// Date strategies. Seconds may have a fraction; the reference date is 2001-01-01T00:00:00Z.
  static JSONDate secondsSinceReferenceDate(JSONReader& reader);
  static JSONDate secondsSince1970(JSONReader& reader);
  static JSONDate millisecondsSince1970(JSONReader& reader);
  /// "2026-11-20T08:30:00Z", with a fraction of a second and an offset where there are any (RFC
  /// 3339).
  static JSONDate iso8601(JSONReader& reader);

  /// Data strategy: the alphabet of RFC 4648 section 4, with padding.
  static Data base64(JSONReader& reader);

  /// Throws DecodingError, and what the coding of a type throws. Keys that a type doesn't know are
  /// passed over; of a key that comes twice the last counts. A text that is no JSON is
  /// `dataCorrupted`, whatever else is wrong with it. A byte order mark in front is passed over.
  template <JSONReadable T>
  T decode(std::string_view json) const {
    std::optional<T> value;
    detail::decodeDocument(
        json, *this,
        [](JSONReader& reader, void* result) {
          static_cast<std::optional<T>*>(result)->emplace(reader.decode<T>());
        },
        &value);
    return *std::move(value);
  }
  template <JSONReadable T>
  T decode(const Data& json) const {
    return decode<T>(json.view());
  }
};

}  // namespace tarn
