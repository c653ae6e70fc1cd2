#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// Text of a document as messages show it: in quotes, with quotes and control characters escaped so
/// that it stays on its line; long text is cut after a whole character and ends in "…".
std::string quoted(std::string_view text);

}  // namespace tarn::detail
