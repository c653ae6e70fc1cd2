#pragma once

#include <Platform/Files/FileManager.hpp>

namespace tarn {

/// Makes a fresh directory, named "TarnService-" and a UUID, in the temporary directory, which is
/// made too where it is missing. Nothing of the library removes it. Throws FileError.
URL makeTemporaryDirectory(const FileManager& fileManager = FileManager::default_());

namespace detail {

/// FileManager::copyItem() for a file that is removed soon after, and shares its bytes until then.
void copyPassingFile(const FileManager& fileManager, const URL& at, const URL& to);

}  // namespace detail
}  // namespace tarn
