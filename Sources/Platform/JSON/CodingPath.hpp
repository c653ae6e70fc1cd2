#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

/// One step of the way to a value inside a document: a key of an object or an index of an array.
class CodingKey {
 public:
  explicit CodingKey(std::string key) : stringValue_(std::move(key)) {}
  explicit CodingKey(std::size_t index) : stringValue_(std::to_string(index)), intValue_(index) {}

  const std::string& stringValue() const noexcept { return stringValue_; }
  /// The index of an array's element; nothing for a key.
  std::optional<std::size_t> intValue() const noexcept { return intValue_; }

  friend bool operator==(const CodingKey&, const CodingKey&) = default;

 private:
  std::string stringValue_;
  std::optional<std::size_t> intValue_;
};

/// The way from the root of a document to a value; empty for the root itself.
using CodingPath = std::vector<CodingKey>;

/// The form that messages show: "items[3].price"; keys that are no identifiers read ["odd key"].
std::string description(const CodingPath& path);

namespace detail {

/// A coding path while it is walked: frames on the stack, so that keeping it costs nothing.
struct CodingFrame {
  const CodingFrame* outer = nullptr;
  std::string_view key;
  std::size_t index = 0;
  bool isIndex = false;
};

CodingPath codingPath(const CodingFrame* innermost);

/// The message of an error: the path, a colon and the reason; at the root the reason alone.
std::string located(const CodingPath& path, const std::string& reason);

}  // namespace detail
}  // namespace tarn
