#include <Platform/Files/Detail/LocalFile.hpp>
#include <Platform/Files/Detail/ReadFile.hpp>
#include <Platform/Types/URLError.hpp>
#include <Tambour/File.hpp>

namespace tarn {

Data File::asData() const {
  if (!detail::isLocalFile(fileURL_)) {
    throw URLError(URLError::unsupportedURL,
                   "\"" + fileURL_.redacted() + "\" is no URL of a local file.",
                   fileURL_.redacted());
  }
  return detail::readFile(fileURL_.path());
}

}  // namespace tarn
