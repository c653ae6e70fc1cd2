#pragma once

#include <Platform/Types/Data.hpp>

#include <string>

namespace tarn::detail {

/// The whole content of a regular file. Throws URLError: `fileDoesNotExist`, `fileIsDirectory`,
/// `noPermissionsToReadFile`, `dataLengthExceedsMaximum` where it does not fit into memory,
/// `cannotOpenFile` for everything else.
Data readFile(const std::string& path);

}  // namespace tarn::detail
