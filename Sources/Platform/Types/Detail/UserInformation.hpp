#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// A text for logs: the addresses in it lose their user information, everything between "://" and
/// the "@" in front of the host. Where an address is malformed and nobody can tell its host, all up
/// to the last "@" goes.
std::string withoutUserInformation(std::string_view text);

/// For a text that is no URL, and of which so nobody knows where its user information ends:
/// everything up to the last "@" goes. Characters that would break a line of a log are escaped.
std::string printableMalformedAddress(std::string_view text);

}  // namespace tarn::detail
