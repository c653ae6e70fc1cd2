#include <Platform/Types/Detail/PercentEncoding.hpp>
#include <Platform/Types/Detail/UserInformation.hpp>

#include <algorithm>
#include <cctype>

namespace tarn::detail {

namespace {

constexpr std::string_view slashes = "://";

// Of a text that begins after the slashes. A password with a slash or a space in it looks like a
// port at first.
bool mayEndWithinPassword(std::string_view authority, std::string_view rest) noexcept {
  const auto colon = authority.rfind(':');
  if (colon == std::string_view::npos) return false;
  const auto port = authority.substr(colon + 1);
  if (port.empty()) return !rest.empty() && rest.front() != '/';
  if (port.back() == ']') return false;  // of an IPv6 address
  return !std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A quotation mark ends the text that an address stands in, unless the text goes on within a word:
// then it is a part of a password.
std::size_t closingQuote(std::string_view text, std::size_t from) noexcept {
  for (auto quote = text.find('"', from); quote < text.size(); quote = text.find('"', quote + 1)) {
    const bool ends = quote + 1 == text.size();
    const auto next = static_cast<unsigned char>(ends ? '"' : text[quote + 1]);
    if (std::isalnum(next) == 0 && next < 0x80) return quote;
  }
  return text.size();
}

/// How much of `address` is user information, where `pastLastAt` is all up to its last "@".
std::size_t userInformationSize(std::string_view address, std::size_t pastLastAt) noexcept {
  const auto authority = address.substr(0, address.find_first_of("/?# \t\r\n<>"));
  const auto at = authority.rfind('@');
  if (at != std::string_view::npos) return at + 1;
  return mayEndWithinPassword(authority, address.substr(authority.size())) ? pastLastAt : 0;
}

}  // namespace

std::string withoutUserInformation(std::string_view text) {
  std::string result;
  std::size_t begin = 0;  // of what is still to be looked at
  // The next quotation mark, which no address goes beyond, and where the last "@" before it ends.
  // Looked for once for all addresses up to there: a hostile text has very many.
  std::size_t quote = 0;
  std::size_t pastLastAt = 0;
  for (auto found = text.find(slashes); found != std::string_view::npos;
       found = text.find(slashes, begin)) {
    const auto address = found + slashes.size();
    if (address > quote) {
      quote = closingQuote(text, address);
      const auto at = text.substr(address, quote - address).rfind('@');
      pastLastAt = at == std::string_view::npos ? 0 : address + at + 1;
    }
    result += text.substr(begin, address - begin);
    begin = address + userInformationSize(text.substr(address, quote - address),
                                          std::max(pastLastAt, address) - address);
  }
  return result += text.substr(begin);
}

std::string printableMalformedAddress(std::string_view text) {
  std::string result;
  const std::size_t at = text.rfind('@');
  if (at != std::string_view::npos) {
    const std::size_t start = text.substr(0, at).find("//");
    if (start != std::string_view::npos)
      result = percentEncoded(text.substr(0, start + 2), URLPart::query);
    text.remove_prefix(at + 1);
  }
  for (const char character : text) {
    const bool isControl = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    if (isControl)
      appendPercentEncoded(result, {&character, 1}, URLPart::query);
    else
      result += character;
  }
  return result;
}

}  // namespace tarn::detail
