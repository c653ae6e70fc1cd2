#pragma once

#include <Platform/JSON/JSONCoding.hpp>
#include <Platform/Types/Data.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// Encodes values as JSON (RFC 8259): plain structs, what the standard library offers, and types
/// with a coding of their own.
///
/// A value: its fields are the settings. `encode` may be called from several threads at once.
struct JSONEncoder {
  struct OutputFormatting {
    /// Members by their keys' bytes instead of in the order of their declaration.
    bool sortedKeys = false;
    /// One member or element a line, two spaces a level.
    bool prettyPrinted = false;
  };

  OutputFormatting outputFormatting = {};
  /// Turns the name of a member into the key of the document; none leaves it as it is. Keys of maps
  /// are never converted, nor are those given by `codingKeys`.
  std::function<std::string(std::string_view key)> keyEncodingStrategy = nullptr;
  /// Writes a point in time; a null one stands for the default.
  std::function<void(JSONDate, JSONWriter&)> dateEncodingStrategy = secondsSinceReferenceDate;
  /// Writes bytes; a null one stands for the default.
  std::function<void(const Data&, JSONWriter&)> dataEncodingStrategy = base64;
  /// The texts that stand for numbers that are not finite; none refuses them.
  std::optional<NonConformingFloats> nonConformingFloats = std::nullopt;
  /// The greatest number of objects and arrays inside each other. Each costs stack.
  std::size_t maximumDepth = 512;

  /// Key strategy: the member firstName is "first_name", myURLProperty is "my_url_property".
  static std::string convertToSnakeCase(std::string_view key);

  /// Date strategies; the reference date is 2001-01-01T00:00:00Z. Whole numbers are written as
  /// such, others with a fraction; to the microsecond.
  static void secondsSinceReferenceDate(JSONDate date, JSONWriter& writer);
  static void secondsSince1970(JSONDate date, JSONWriter& writer);
  static void millisecondsSince1970(JSONDate date, JSONWriter& writer);
  /// "2026-11-20T08:30:00Z", with a fraction of a second where there is one (RFC 3339). Throws
  /// outside of the years 0 to 9999.
  static void iso8601(JSONDate date, JSONWriter& writer);

  /// Data strategy: the alphabet of RFC 4648 section 4, with padding.
  static void base64(const Data& bytes, JSONWriter& writer);

  /// Throws EncodingError, and what the coding of a type throws.
  template <JSONWritable T>
  Data encode(const T& value) const {
    return Data(detail::encodeDocument(
        *this,
        [](JSONWriter& writer, const void* object) {
          writer.encode(*static_cast<const T*>(object));
        },
        &value));
  }
};

}  // namespace tarn
