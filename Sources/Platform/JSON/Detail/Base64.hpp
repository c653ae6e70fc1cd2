#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::detail {

/// RFC 4648 section 4, with padding.
std::string base64(std::span<const std::uint8_t> bytes);

/// Nothing unless `text` is what base64() makes of some bytes.
std::optional<std::vector<std::uint8_t>> base64Bytes(std::string_view text);

}  // namespace tarn::detail
