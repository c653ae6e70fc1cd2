#include <Platform/Types/Detail/UserInformation.hpp>
#include <TarnService/Responses/HTTPRequestError.hpp>

namespace tarn {

HTTPRequestError HTTPRequestError::malformedURL(std::string urlText) {
  return HTTPRequestError(std::move(urlText));
}

std::string HTTPRequestError::message() const { return "Malformed URL: " + urlText_; }

std::string HTTPRequestError::logMessage() const {
  return "Malformed URL: " + detail::printableMalformedAddress(urlText_);
}

std::optional<LogDetails> HTTPRequestError::additionalLogInfo() const {
  return LogDetails{{"malformedURL", detail::printableMalformedAddress(urlText_)}};
}

}  // namespace tarn
