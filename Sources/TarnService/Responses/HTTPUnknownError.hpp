#pragma once

#include <Platform/Types/SourceLocation.hpp>
#include <Tambour/AppError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>

#include <optional>
#include <string>

namespace tarn {

/// A state that should not occur, with the source position that found it.
class HTTPUnknownError final : public AppError, public ErrorLoggable {
 public:
  enum class Case {
    completionWithoutResponseFromPolling,
    futureFailedToMapBody,
    downloadResponseFailedToConstruct,
    jsonResponseFailedToConstruct,
    dataResponseFailedToConstruct,
    unableToParseJSON,
    unknownFutureState,
  };

  static HTTPUnknownError completionWithoutResponseFromPolling(SourceLocation location);
  static HTTPUnknownError futureFailedToMapBody(SourceLocation location);
  static HTTPUnknownError downloadResponseFailedToConstruct(SourceLocation location);
  static HTTPUnknownError jsonResponseFailedToConstruct(SourceLocation location, std::string json);
  static HTTPUnknownError dataResponseFailedToConstruct(SourceLocation location);
  static HTTPUnknownError unableToParseJSON(std::string json, Error originalError,
                                            SourceLocation location);
  static HTTPUnknownError unknownFutureState(SourceLocation location);

  Case kind() const noexcept { return case_; }
  std::string file() const { return location_.file; }
  std::string function() const { return location_.function; }
  int line() const noexcept { return location_.line; }
  /// The text of `jsonResponseFailedToConstruct` and `unableToParseJSON`.
  const std::optional<std::string>& json() const noexcept { return json_; }
  /// What `unableToParseJSON` was thrown.
  const std::optional<Error>& originalError() const noexcept { return originalError_; }

  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(case_); }
  std::string logMessage() const override { return message(); }
  std::optional<LogDetails> additionalLogInfo() const override;

 private:
  HTTPUnknownError(Case kind, SourceLocation location, std::optional<std::string> json = {},
                   std::optional<Error> originalError = {});

  Case case_;
  SourceLocation location_;  // its texts are literals of the program
  std::optional<std::string> json_;
  std::optional<Error> originalError_;
};

}  // namespace tarn
