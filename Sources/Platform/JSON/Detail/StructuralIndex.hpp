#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace simdjson::internal {
class dom_parser_implementation;
}

namespace tarn::detail {

/// Where the tokens of a text start: every bracket, colon and comma outside of strings, and the
/// first character of every string, number or word. After the last stand two positions of the
/// text's end.
///
/// Holds for texts that pass the first stage of parsing: UTF-8, every string closed, no control
/// characters in strings. The text needs no padding.
class StructuralIndex {
 public:
  StructuralIndex();
  ~StructuralIndex();
  StructuralIndex(const StructuralIndex&) = delete;
  StructuralIndex& operator=(const StructuralIndex&) = delete;

  /// Answers what is wrong with the text, nothing where it passes. Replaces the tokens of the last
  /// text.
  std::optional<std::string_view> build(std::string_view text);
  std::span<const std::uint32_t> tokens() const noexcept;

 private:
  std::unique_ptr<simdjson::internal::dom_parser_implementation> parser_;
};

}  // namespace tarn::detail
