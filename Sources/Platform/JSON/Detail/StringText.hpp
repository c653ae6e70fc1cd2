#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// Appends what the text between the quotes of a string stands for (RFC 8259 section 7); false
/// where an escape sequence is malformed or is half of a surrogate pair.
bool appendUnescaped(std::string& result, std::string_view text);

}  // namespace tarn::detail
