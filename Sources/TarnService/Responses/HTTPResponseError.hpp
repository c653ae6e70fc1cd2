#pragma once

#include <Tambour/AppError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>
#include <TarnService/Responses/HTTPStatus.hpp>
#include <TarnService/Responses/TypeReference.hpp>

#include <optional>
#include <string>
#include <variant>

namespace tarn {

/// A well-formed answer that the caller must treat as a failure, or a cancelled request.
class HTTPResponseError final : public AppError, public ErrorLoggable {
 public:
  enum class Case { unacceptableStatus, malformedData, jsonDecoding, taskCancelled };

  static HTTPResponseError unacceptableStatus(HTTPStatus status);
  static HTTPResponseError malformedData(TypeReference type);
  static HTTPResponseError jsonDecoding(TypeReference type, Error decodingError, std::string json);
  static HTTPResponseError taskCancelled();

  Case kind() const noexcept { return static_cast<Case>(payload_.index()); }
  /// The status of `unacceptableStatus`.
  std::optional<HTTPStatus> status() const noexcept;
  /// The type of `malformedData` and `jsonDecoding`.
  std::optional<TypeReference> type() const;
  /// The decoding error of `jsonDecoding`.
  std::optional<Error> decodingError() const;
  /// The text that `jsonDecoding` could not decode.
  std::optional<std::string> json() const;

  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(kind()); }
  std::string logMessage() const override { return message(); }
  std::optional<LogDetails> additionalLogInfo() const override;

 private:
  struct JSONDecoding {
    TypeReference type;
    Error error;
    std::string json;
  };
  // The alternatives stand in the order of Case.
  using Payload = std::variant<HTTPStatus, TypeReference, JSONDecoding, std::monostate>;

  explicit HTTPResponseError(Payload payload) : payload_(std::move(payload)) {}

  Payload payload_;
};

}  // namespace tarn
