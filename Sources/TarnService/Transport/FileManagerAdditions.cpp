#include <Platform/Files/Detail/LocalFile.hpp>
#include <Platform/Types/UUID.hpp>
#include <TarnService/Transport/FileManagerAdditions.hpp>

#include <unistd.h>

namespace tarn {

URL makeTemporaryDirectory(const FileManager& fileManager) {
  const URL directory =
      fileManager.temporaryDirectory().appendingPathComponent("TarnService-" + UUID().uuidString());
  fileManager.createDirectory(directory, true);
  return directory;
}

void detail::copyPassingFile(const FileManager& fileManager, const URL& at, const URL& to) {
  // A second name leaves the same once the first is gone, and spares writing gigabytes twice.
  if (isLocalFile(at) && isLocalFile(to) && ::link(at.path().c_str(), to.path().c_str()) == 0) {
    return;
  }
  fileManager.copyItem(at, to);
}

}  // namespace tarn
