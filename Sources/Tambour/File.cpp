#include <Platform/Files/Detail/ReadFile.hpp>
#include <Platform/Types/URLError.hpp>
#include <Tambour/File.hpp>

namespace tarn {

Data File::asData() const {
  if (!fileURL_.isFileURL()) {
    throw URLError(URLError::unsupportedURL, "\"" + fileURL_.redacted() + "\" is no file URL.",
                   fileURL_.redacted());
  }
  return detail::readFile(fileURL_.path());
}

}  // namespace tarn
