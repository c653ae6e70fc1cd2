#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// The MIME type of files with this extension, given without its dot and in either case ("PNG");
/// nothing where none is known.
///
/// From the shared MIME-info database of the system and its user, in the folders that XDG_DATA_HOME
/// and XDG_DATA_DIRS name, read once, on the first call; what it does not know comes from a small
/// table of common types. Callable from any thread.
std::optional<std::string> preferredMIMEType(std::string_view filenameExtension);

}  // namespace tarn
