#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// A universally unique identifier (RFC 9562).
class UUID {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  /// A new random one (version 4), from the operating system's secure generator.
  UUID();
  explicit UUID(const Bytes& bytes) noexcept : bytes_(bytes) {}

  /// Nothing unless `text` has the form 8-4-4-4-12 of hexadecimal digits, in either case.
  static std::optional<UUID> parse(std::string_view text) noexcept;

  /// The form 8-4-4-4-12, in upper case.
  std::string uuidString() const;
  std::string description() const { return uuidString(); }
  const Bytes& bytes() const noexcept { return bytes_; }

  friend auto operator<=>(const UUID&, const UUID&) = default;

 private:
  Bytes bytes_;
};

}  // namespace tarn

template <>
struct std::hash<tarn::UUID> {
  std::size_t operator()(const tarn::UUID& uuid) const noexcept;
};
