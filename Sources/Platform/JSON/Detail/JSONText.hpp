#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace tarn::detail {

/// The most characters that stand for one byte of a string.
constexpr std::size_t longestEscape = 6;

/// Writes a byte of a string as it stands between quotes, and returns the end.
char* writeEscaped(char c, char* out) noexcept;

/// The text of a document while it grows. Short documents need no storage of their own; longer ones
/// double theirs. (A std::string would fill with zeros what is about to be written.)
class JSONText {
 public:
  JSONText() noexcept {}  // NOLINT(cppcoreguidelines-pro-type-member-init): `first_` stays as it is
  JSONText(const JSONText&) = delete;
  JSONText& operator=(const JSONText&) = delete;

  std::size_t size() const noexcept { return size_; }
  std::string_view view() const noexcept { return {data_, size_}; }
  /// Takes back all from `size` on.
  void truncate(std::size_t size) noexcept { size_ = size; }

  /// The end of the text, with room for `count` more characters; `finish` says where they end.
  char* room(std::size_t count) {
    if (capacity_ - size_ < count) grow(size_, count);
    return data_ + size_;
  }
  void finish(const char* end) noexcept { size_ = offset(end); }
  std::size_t offset(const char* place) const noexcept {
    return static_cast<std::size_t>(place - data_);
  }

  static constexpr std::size_t block = 16;
  /// The room that finishBlocks() needs.
  static std::size_t blockSize(std::string_view text) noexcept { return text.size() + block; }
  /// Writes a short text, whose storage is filled up to whole blocks, to `place`, and finishes.
  void finishBlocks(char* place, std::string_view text) noexcept {
    for (std::size_t i = 0; i < text.size(); i += block)
      std::memcpy(place + i, text.data() + i, block);
    finish(place + text.size());
  }

  void append(char c) {
    *room(1) = c;
    ++size_;
  }
  void append(std::string_view text);
  /// A comma or bracket's line break, and the indentation of the line.
  void appendLine(std::size_t indentation);
  /// A string with its quotes. False, and nothing is added, where `text` is no UTF-8.
  bool appendString(std::string_view text);
  void append(std::int64_t value);
  void append(std::uint64_t value);
  /// Finite numbers.
  void append(double value);
  void append(float value);

 private:
  void grow(std::size_t used, std::size_t count);
  char* roomFrom(char* end, std::size_t count);
  char* writeEscapedPart(std::string_view part, char* out, std::size_t rest);
  template <class Float>
  void appendShortest(Float value);
  bool appendDecimal(double value);

  char* data_ = first_;
  std::size_t size_ = 0;
  std::size_t capacity_ = sizeof first_;
  std::unique_ptr<char[]> storage_;
  char first_[4096];
};

}  // namespace tarn::detail
