#include <TarnLogger/ErrorLoggable.hpp>

namespace tarn {

std::string logMessage(const Error& error) {
  const auto* loggable = error.as<ErrorLoggable>();
  return loggable ? loggable->logMessage() : error.message();
}

LogDetails createLogInfoDictionary(const Error& error) {
  LogDetails details{
      {"message", logMessage(error)}, {"domain", error.domain()}, {"code", error.code()}};
  if (const auto* loggable = error.as<ErrorLoggable>()) {
    if (auto added = loggable->additionalLogInfo()) details.merge(*added);
  }
  return details;
}

}  // namespace tarn
