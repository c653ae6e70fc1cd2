#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// Bytes as a value: copying shares the storage, and the first change to a shared copy makes it its
/// own.
///
/// Copies may be read and changed on different threads; one object belongs to one thread at a time.
class Data {
 public:
  Data() noexcept = default;
  /// The characters of `text`, copied.
  explicit Data(std::string_view text) : Data(text.data(), text.size()) {}
  /// Takes over a temporary string without copying its characters.
  template <std::same_as<std::string> S>
  explicit Data(S&& text) : storage_(adopt(static_cast<std::string&&>(text))) {}
  /// Takes over the vector without copying a moved-in one.
  explicit Data(std::vector<std::uint8_t> bytes);
  /// Copies `size` bytes; `bytes` may be null where `size` is 0.
  Data(const void* bytes, std::size_t size);

  Data(const Data& other) noexcept;
  Data(Data&& other) noexcept : storage_(other.storage_) { other.storage_ = nullptr; }
  Data& operator=(Data other) noexcept;
  ~Data();

  /// The first byte; null where there are none. Valid until this object is changed or destroyed.
  const std::uint8_t* bytes() const noexcept;
  std::size_t size() const noexcept;
  bool empty() const noexcept { return size() == 0; }
  const std::uint8_t* begin() const noexcept { return bytes(); }
  const std::uint8_t* end() const noexcept { return bytes() + size(); }

  /// Adds bytes at the end; they may lie inside this object's own storage.
  void append(const void* bytes, std::size_t size);
  void append(std::string_view text) { append(text.data(), text.size()); }
  /// Adds `other` at the end; an empty object shares its storage instead of copying.
  void append(const Data& other);
  /// Makes room for `capacity` bytes in all.
  void reserve(std::size_t capacity);
  /// Cuts off at, or fills with zero bytes up to, `size`.
  void resize(std::size_t size);
  /// The first byte, for writing; storage that others share is copied first.
  std::uint8_t* mutableBytes();

  /// The bytes as characters, unchecked. Valid as long as `bytes()`.
  std::string_view view() const noexcept;
  /// The bytes as text; nothing unless they are valid UTF-8.
  std::optional<std::string> utf8() const;
  /// What printing shows: the number of bytes, never their content.
  std::string description() const;
  const Data& asData() const noexcept { return *this; }

  friend bool operator==(const Data& left, const Data& right) noexcept {
    return left.view() == right.view();
  }

 private:
  struct Storage;

  static Storage* adopt(std::string&& text);
  bool isSoleOwner() const noexcept;
  Storage& ownStorage(std::size_t capacity);
  Storage& growTo(std::size_t size);

  Storage* storage_ =
      nullptr;  // null stands for no bytes, so that an empty object allocates nothing
};

/// Whether `text` is strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF (RFC
/// 3629).
bool isValidUTF8(std::string_view text) noexcept;

}  // namespace tarn
