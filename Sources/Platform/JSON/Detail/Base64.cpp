#include <Platform/JSON/Detail/Base64.hpp>

#include <array>
#include <cstddef>

namespace tarn::detail {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t invalid = 0x80;

constexpr auto values = [] {
  std::array<std::uint8_t, 256> table{};
  table.fill(invalid);
  for (std::size_t i = 0; i < alphabet.size(); ++i)
    table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
  return table;
}();

std::uint32_t valueOf(char c) noexcept { return values[static_cast<unsigned char>(c)]; }
char letter(std::uint32_t bits) noexcept { return alphabet[bits & 0x3F]; }
std::uint8_t byte(std::uint32_t bits) noexcept { return static_cast<std::uint8_t>(bits & 0xFF); }

}  // namespace

std::string base64(std::span<const std::uint8_t> bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '=');
  char* out = text.data();
  std::size_t i = 0;
  for (; bytes.size() - i >= 3; i += 3) {
    const std::uint32_t bits = std::uint32_t{bytes[i]} << 16 | std::uint32_t{bytes[i + 1]} << 8 |
                               std::uint32_t{bytes[i + 2]};
    *out++ = letter(bits >> 18);
    *out++ = letter(bits >> 12);
    *out++ = letter(bits >> 6);
    *out++ = letter(bits);
  }
  const std::size_t rest = bytes.size() - i;
  if (rest == 0) return text;
  const std::uint32_t bits =
      std::uint32_t{bytes[i]} << 16 | (rest == 2 ? std::uint32_t{bytes[i + 1]} << 8 : 0);
  *out++ = letter(bits >> 18);
  *out++ = letter(bits >> 12);
  if (rest == 2) *out = letter(bits >> 6);
  return text;
}

std::optional<std::vector<std::uint8_t>> base64Bytes(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);

  std::vector<std::uint8_t> bytes(text.size() * 3 / 4);
  std::uint8_t* out = bytes.data();
  std::uint32_t seen = 0;
  std::size_t i = 0;
  for (; text.size() - i >= 4; i += 4) {
    const std::uint32_t a = valueOf(text[i]), b = valueOf(text[i + 1]), c = valueOf(text[i + 2]),
                        d = valueOf(text[i + 3]);
    seen |= a | b | c | d;
    const std::uint32_t bits = a << 18 | b << 12 | c << 6 | d;
    *out++ = byte(bits >> 16);
    *out++ = byte(bits >> 8);
    *out++ = byte(bits);
  }
  if (padding != 0) {
    const std::uint32_t a = valueOf(text[i]), b = valueOf(text[i + 1]);
    const std::uint32_t c = padding == 1 ? valueOf(text[i + 2]) : 0;
    seen |= a | b | c;
    const std::uint32_t bits = a << 18 | b << 12 | c << 6;
    *out++ = byte(bits >> 16);
    if (padding == 1) *out = byte(bits >> 8);
    // Bits of the last character that no byte takes have to be zero (section 3.5).
    if ((bits & (padding == 1 ? 0xFFu : 0xFFFFu)) != 0) return std::nullopt;
  }
  if ((seen & invalid) != 0) return std::nullopt;
  return bytes;
}

}  // namespace tarn::detail
