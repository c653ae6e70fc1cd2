#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/UUID.hpp>

#include <cerrno>
#include <cstring>
#include <sys/random.h>

namespace tarn {
namespace {

constexpr bool hasHyphenBefore(std::size_t byteIndex) {
  return byteIndex == 4 || byteIndex == 6 || byteIndex == 8 || byteIndex == 10;
}

int hexDigit(char character) noexcept {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

}  // namespace

// One call of the system for each UUID: random bytes kept in stock would be dealt out twice after a
// fork.
UUID::UUID() {
  ssize_t count = -1;
  do {
    count = getrandom(bytes_.data(), bytes_.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count != static_cast<ssize_t>(bytes_.size())) fatalError("no random bytes from the system");
  bytes_[6] = static_cast<std::uint8_t>((bytes_[6] & 0x0Fu) | 0x40u);  // version 4
  bytes_[8] = static_cast<std::uint8_t>((bytes_[8] & 0x3Fu) | 0x80u);  // the variant of RFC 9562
}

std::optional<UUID> UUID::parse(std::string_view text) noexcept {
  if (text.size() != 36) return std::nullopt;
  Bytes bytes{};
  std::size_t position = 0;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (hasHyphenBefore(index) && text[position++] != '-') return std::nullopt;
    const int high = hexDigit(text[position++]);
    const int low = hexDigit(text[position++]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[index] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t index = 0; index < bytes_.size(); ++index) {
    if (hasHyphenBefore(index)) text += '-';
    text += digits[bytes_[index] >> 4];
    text += digits[bytes_[index] & 0x0F];
  }
  return text;
}

}  // namespace tarn

std::size_t std::hash<tarn::UUID>::operator()(const tarn::UUID& uuid) const noexcept {
  const auto& bytes = uuid.bytes();
  return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}
