#include <Platform/Types/Detail/UserInformation.hpp>

#include <algorithm>

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

std::size_t userInformationSize(std::string_view text) noexcept {
  const auto address = text.substr(0, text.find('"'));
  const auto authority = address.substr(0, address.find_first_of("/?# \t\r\n<>"));
  auto at = authority.rfind('@');
  if (at == std::string_view::npos &&
      mayEndWithinPassword(authority, address.substr(authority.size()))) {
    at = address.rfind('@');
  }
  return at == std::string_view::npos ? 0 : at + 1;
}

}  // namespace

std::string withoutUserInformation(std::string_view text) {
  std::string result;
  auto found = text.find(slashes);
  for (; found != std::string_view::npos; found = text.find(slashes)) {
    result += text.substr(0, found + slashes.size());
    text.remove_prefix(found + slashes.size());
    text.remove_prefix(userInformationSize(text));
  }
  return result += text;
}

}  // namespace tarn::detail
