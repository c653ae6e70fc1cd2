#include <Platform/URLLoading/Curl/ProxySettings.hpp>

#include <cstdlib>
#include <initializer_list>

namespace tarn::detail {

namespace {

std::string firstOf(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return value;
  }
  return {};
}

}  // namespace

ProxySettings ProxySettings::fromEnvironment() {
  return {
      .http = firstOf({"http_proxy", "all_proxy", "ALL_PROXY"}),
      .https = firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}),
      .exceptions = firstOf({"no_proxy", "NO_PROXY"}),
  };
}

}  // namespace tarn::detail
