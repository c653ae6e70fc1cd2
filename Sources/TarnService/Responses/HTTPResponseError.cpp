#include <TarnService/Responses/HTTPResponseError.hpp>

namespace tarn {

HTTPResponseError HTTPResponseError::unacceptableStatus(HTTPStatus status) {
  return HTTPResponseError(Payload(status));
}

HTTPResponseError HTTPResponseError::malformedData(TypeReference type) {
  return HTTPResponseError(Payload(type));
}

HTTPResponseError HTTPResponseError::jsonDecoding(TypeReference type, Error decodingError,
                                                  std::string json) {
  return HTTPResponseError(JSONDecoding{type, std::move(decodingError), std::move(json)});
}

HTTPResponseError HTTPResponseError::taskCancelled() { return HTTPResponseError(std::monostate()); }

std::optional<HTTPStatus> HTTPResponseError::status() const noexcept {
  const auto* status = std::get_if<HTTPStatus>(&payload_);
  return status ? std::optional(*status) : std::nullopt;
}

std::optional<TypeReference> HTTPResponseError::type() const {
  if (const auto* type = std::get_if<TypeReference>(&payload_)) return *type;
  if (const auto* decoding = std::get_if<JSONDecoding>(&payload_)) return decoding->type;
  return std::nullopt;
}

std::optional<Error> HTTPResponseError::decodingError() const {
  const auto* decoding = std::get_if<JSONDecoding>(&payload_);
  return decoding ? std::optional(decoding->error) : std::nullopt;
}

std::optional<std::string> HTTPResponseError::json() const {
  const auto* decoding = std::get_if<JSONDecoding>(&payload_);
  return decoding ? std::optional(decoding->json) : std::nullopt;
}

std::string HTTPResponseError::message() const {
  switch (kind()) {
    case Case::unacceptableStatus: {
      const HTTPStatus status = std::get<HTTPStatus>(payload_);
      return "HTTPStatus: " + std::string(status.description()) + ":" +
             std::to_string(status.rawValue()) + " is unacceptable";
    }
    case Case::malformedData:
      return "Data was malformed for type: " + type()->description();
    case Case::jsonDecoding:
      return "JSON decoding failure for type: " + type()->description() + " with json:\n" +
             std::get<JSONDecoding>(payload_).json;
    case Case::taskCancelled:
      break;
  }
  return "Task has been cancelled";
}

std::optional<LogDetails> HTTPResponseError::additionalLogInfo() const {
  switch (kind()) {
    case Case::unacceptableStatus:
      return LogDetails{{"HTTPStatusCode", status()->rawValue()}};
    case Case::malformedData:
      return LogDetails{{"Type", *type()}};
    case Case::jsonDecoding: {
      const auto& decoding = std::get<JSONDecoding>(payload_);
      return LogDetails{{"Type", decoding.type},
                        {"DecodingError", createLogInfoDictionary(decoding.error)},
                        {"json", decoding.json}};
    }
    case Case::taskCancelled:
      break;
  }
  return std::nullopt;
}

}  // namespace tarn
