#pragma once

#include <Tambour/AppError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>

#include <string>

namespace tarn {

/// A request could not be turned into a URL request.
class HTTPRequestError final : public AppError, public ErrorLoggable {
 public:
  enum class Case { malformedURL };

  /// No usable URL can be built; carries the address as a text for people.
  static HTTPRequestError malformedURL(std::string urlText);

  Case kind() const noexcept { return Case::malformedURL; }
  const std::string& urlText() const noexcept { return urlText_; }

  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(kind()); }
  std::string logMessage() const override { return message(); }
  std::optional<LogDetails> additionalLogInfo() const override;

 private:
  explicit HTTPRequestError(std::string urlText) : urlText_(std::move(urlText)) {}

  std::string urlText_;
};

}  // namespace tarn
