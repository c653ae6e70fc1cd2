#pragma once

#include <Platform/Types/Error.hpp>
#include <TarnLogger/LogEntry.hpp>

#include <optional>
#include <string>

namespace tarn {

/// The face that an error class shows to the log.
class ErrorLoggable {
 public:
  virtual ~ErrorLoggable() = default;
  virtual std::string logMessage() const = 0;
  /// Named values beside the message; absent where there are none.
  virtual std::optional<LogDetails> additionalLogInfo() const { return std::nullopt; }

 protected:
  ErrorLoggable() = default;
  ErrorLoggable(const ErrorLoggable&) = default;
  ErrorLoggable& operator=(const ErrorLoggable&) = default;
};

/// Any error as named values: what it adds itself, beside "message", "domain" and "code".
LogDetails createLogInfoDictionary(const Error& error);

}  // namespace tarn
