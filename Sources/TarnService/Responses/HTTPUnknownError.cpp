#include <TarnService/Responses/HTTPUnknownError.hpp>

namespace tarn {

HTTPUnknownError::HTTPUnknownError(Case kind, SourceLocation location,
                                   std::optional<std::string> json,
                                   std::optional<Error> originalError)
    : case_(kind),
      location_(location),
      json_(std::move(json)),
      originalError_(std::move(originalError)) {}

HTTPUnknownError HTTPUnknownError::completionWithoutResponseFromPolling(SourceLocation location) {
  return {Case::completionWithoutResponseFromPolling, location};
}

HTTPUnknownError HTTPUnknownError::futureFailedToMapBody(SourceLocation location) {
  return {Case::futureFailedToMapBody, location};
}

HTTPUnknownError HTTPUnknownError::downloadResponseFailedToConstruct(SourceLocation location) {
  return {Case::downloadResponseFailedToConstruct, location};
}

HTTPUnknownError HTTPUnknownError::jsonResponseFailedToConstruct(SourceLocation location,
                                                                 std::string json) {
  return {Case::jsonResponseFailedToConstruct, location, std::move(json)};
}

HTTPUnknownError HTTPUnknownError::dataResponseFailedToConstruct(SourceLocation location) {
  return {Case::dataResponseFailedToConstruct, location};
}

HTTPUnknownError HTTPUnknownError::unableToParseJSON(std::string json, Error originalError,
                                                     SourceLocation location) {
  return {Case::unableToParseJSON, location, std::move(json), std::move(originalError)};
}

HTTPUnknownError HTTPUnknownError::unknownFutureState(SourceLocation location) {
  return {Case::unknownFutureState, location};
}

std::string HTTPUnknownError::message() const {
  const std::string position =
      "\nFile:" + file() + "\nFunction:" + function() + "\nLine:" + std::to_string(line());
  switch (case_) {
    case Case::completionWithoutResponseFromPolling:
    case Case::unknownFutureState:  // the same text: the two are told apart by their case
      return "Completion without response from polling." + position;
    case Case::futureFailedToMapBody:
      return "Future failed to map body " + position;
    case Case::downloadResponseFailedToConstruct:
      return "Download response failed to construct." + position;
    case Case::jsonResponseFailedToConstruct:
      return "json response failed to construct." + position + "\njson:" + json_.value();
    case Case::dataResponseFailedToConstruct:
      return "Data response failed to construct." + position;
    case Case::unableToParseJSON:
      break;
  }
  return "Unable to parse json: " + json_.value() + position;
}

std::optional<LogDetails> HTTPUnknownError::additionalLogInfo() const {
  LogDetails details{{"file", file()}, {"function", function()}, {"line", line()}};
  if (json_) details.emplace("json", *json_);
  if (originalError_) details.emplace("originalError", *originalError_);
  return details;
}

}  // namespace tarn
