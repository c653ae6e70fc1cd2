#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/ProcessInfo.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>

#include <map>
#include <optional>

namespace tarn {
namespace {

using Dictionary = std::map<std::string, AnyValue>;

std::string text(const Dictionary& dictionary, const char* key) {
  const auto entry = dictionary.find(key);
  if (entry == dictionary.end()) return "Unknown";
  const auto* value = entry->second.as<std::string>();
  return value ? *value : "Unknown";
}

std::string operatingSystem() {
  const auto version = ProcessInfo::processInfo().operatingSystemVersion();
  // "iOS " on every platform: kept, services tell this client by it.
  return "iOS " + std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
         std::to_string(version.patch);
}

std::string libraryVersion() {
  const auto dictionary = Bundle::library().infoDictionary();
  if (!dictionary) return "Unknown";
  const auto version = dictionary->find("CFBundleShortVersionString");
  if (version == dictionary->end()) return "Unknown";
  return "TarnService/" + version->second.description();
}

std::string computeUserAgent() {
  const auto dictionary = Bundle::main().infoDictionary();
  if (!dictionary) return "TarnService";
  return text(*dictionary, kCFBundleExecutableKey) + "/" +
         text(*dictionary, "CFBundleShortVersionString") + " (" +
         text(*dictionary, kCFBundleIdentifierKey) +
         "; build:" + text(*dictionary, kCFBundleVersionKey) + "; " + operatingSystem() + ") " +
         libraryVersion();
}

}  // namespace

const std::string& userAgent() {
  const detail::NoForkScope scope;  // not while it is being made
  static const std::string& value = *new std::string(computeUserAgent());
  return value;
}

}  // namespace tarn
