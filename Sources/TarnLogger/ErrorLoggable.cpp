#include <TarnLogger/ErrorLoggable.hpp>

namespace tarn {

LogDetails createLogInfoDictionary(const Error& error) {
  LogDetails details{
      {"message", error.message()}, {"domain", error.domain()}, {"code", error.code()}};
  if (const auto* loggable = error.as<ErrorLoggable>()) {
    if (auto added = loggable->additionalLogInfo()) details.merge(*added);
  }
  return details;
}

}  // namespace tarn
