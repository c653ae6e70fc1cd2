#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// What messages show of a document: its control characters are escaped, so that it stays on its
/// line; long text is cut after a whole character and ends in "…".
std::string shortened(std::string_view text);

/// The same in quotes, for text that is not escaped yet: its quotes and backslashes are escaped
/// too.
std::string quoted(std::string_view text);

}  // namespace tarn::detail
