#include <Platform/Files/UniformType.hpp>
#include <Tambour/FileRepresentable.hpp>

namespace tarn {

std::string mimeType(const URL& fileURL) {
  return preferredMIMEType(fileURL.pathExtension()).value_or("application/octet-stream");
}

}  // namespace tarn
