#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// What is wrong with the includes and the length of one file, one sentence per fault.
///
/// `path` is relative to the project's folder, as in "Sources/Platform/Types/URL.hpp".
std::vector<std::string> includeFaults(std::string_view path, std::string_view text);

}  // namespace tarn
