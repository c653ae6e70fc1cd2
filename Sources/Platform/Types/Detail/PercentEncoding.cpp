#include <Platform/Types/Detail/PercentEncoding.hpp>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>

namespace tarn::detail {
namespace {

constexpr std::uint8_t bit(URLPart part) {
  return static_cast<std::uint8_t>(1u << static_cast<unsigned>(part));
}

// For each byte, the parts in which it stands for itself.
constexpr std::array<std::uint8_t, 256> plainParts = [] {
  std::array<std::uint8_t, 256> table{};
  const auto allow = [&table](std::string_view characters, auto... parts) {
    for (const char character : characters) {
      auto& entry = table[static_cast<unsigned char>(character)];
      ((entry = static_cast<std::uint8_t>(entry | bit(parts))), ...);
    }
  };
  using enum URLPart;
  allow("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~", user, host, path,
        query, queryItem);
  allow("!$'()*,", user, host, path, query, queryItem);
  // In a query item these would separate, or mean a space to a form decoder.
  allow("&=+;", user, host, path, query);
  allow(":@/", path, query, queryItem);
  allow("?", query, queryItem);
  return table;
}();

}  // namespace

bool isPlain(char character, URLPart part) noexcept {
  return (plainParts[static_cast<unsigned char>(character)] & bit(part)) != 0;
}

void appendPercentEncoded(std::string& target, std::string_view text, URLPart part) {
  constexpr char digits[] = "0123456789ABCDEF";
  for (const char character : text) {
    if (isPlain(character, part)) {
      target += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      target += '%';
      target += digits[byte >> 4];
      target += digits[byte & 0x0F];
    }
  }
}

std::string percentEncoded(std::string_view text, URLPart part) {
  std::string encoded;
  encoded.reserve(text.size());
  appendPercentEncoded(encoded, text, part);
  return encoded;
}

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  while (!text.empty()) {
    const std::size_t percent = text.find('%');
    decoded += text.substr(0, percent);
    if (percent == std::string_view::npos) break;
    text.remove_prefix(percent);
    std::uint8_t byte = 0;
    const auto digits = text.substr(1, 2);
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (digits.size() == 2 && result.ptr == digits.data() + 2) {
      decoded += static_cast<char>(byte);
      text.remove_prefix(3);
    } else {
      decoded += '%';
      text.remove_prefix(1);
    }
  }
  return decoded;
}

}  // namespace tarn::detail
