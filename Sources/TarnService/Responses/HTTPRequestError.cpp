#include <TarnService/Responses/HTTPRequestError.hpp>

namespace tarn {

HTTPRequestError HTTPRequestError::malformedURL(std::string urlText) {
  return HTTPRequestError(std::move(urlText));
}

std::string HTTPRequestError::message() const { return "Malformed URL: " + urlText_; }

std::optional<LogDetails> HTTPRequestError::additionalLogInfo() const {
  return LogDetails{{"malformedURL", urlText_}};
}

}  // namespace tarn
