#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// A text for logs: the addresses in it lose their user information, everything between "://" and
/// the "@" in front of the host. Where an address is malformed and nobody can tell its host, all up
/// to the last "@" goes.
std::string withoutUserInformation(std::string_view text);

}  // namespace tarn::detail
