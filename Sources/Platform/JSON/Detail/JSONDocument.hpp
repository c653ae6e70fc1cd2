#pragma once

#include <Platform/JSON/Detail/StructuralIndex.hpp>
#include <Platform/JSON/JSONReader.hpp>

#include <cstddef>
#include <string_view>

namespace tarn::detail {

/// A text and where its tokens are; what readers are made from.
class JSONDocument {
 public:
  /// Throws `dataCorrupted` where the text does not pass the first stage.
  JSONDocument(std::string_view text, const JSONDecoder& decoder);

  /// Calls `decode` with a reader in front of the root, and throws `dataCorrupted` where the text
  /// does not end behind it.
  void read(void (*decode)(JSONReader&, void*), void* value) const;
  /// Throws `dataCorrupted` unless the whole text is one value.
  void check() const;

 private:
  std::string_view text_;
  const JSONDecoder& decoder_;
  StructuralIndex index_;
};

/// Whether the text is one JSON value, with at most so many objects and arrays inside each other.
bool isDocument(std::string_view json, std::size_t maximumDepth);

}  // namespace tarn::detail
