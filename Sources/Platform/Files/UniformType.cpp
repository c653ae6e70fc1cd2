#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/Detail/MIMEDatabase.hpp>
#include <Platform/Files/UniformType.hpp>

#include <cstdlib>

namespace tarn {
namespace {

std::string_view environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Never destroyed: requests of other threads may still ask while the process ends.
const detail::MIMEDatabase& database() {
  const detail::NoForkScope scope;  // not while it is being made
  static const auto& database = *new detail::MIMEDatabase(
      detail::dataDirectories(environmentValue("XDG_DATA_HOME"), environmentValue("HOME"),
                              environmentValue("XDG_DATA_DIRS")));
  return database;
}

}  // namespace

std::optional<std::string> preferredMIMEType(std::string_view filenameExtension) {
  if (filenameExtension.empty()) return std::nullopt;
  return database().type(filenameExtension);
}

}  // namespace tarn
