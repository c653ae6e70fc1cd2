#include <Platform/JSON/JSONValue.hpp>
#include <Platform/Types/SourceLocation.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Responses/JSONResponse.hpp>

#include <algorithm>
#include <string_view>

namespace tarn::detail {
namespace {

constexpr const char* function = "init(data:url:response:error:)";

std::string textOf(const std::optional<Data>& data) {
  return data ? data->utf8().value_or("") : "";
}

void logFailure(std::string_view what, TypeReference type, const std::string& json) {
  if (!Logger::isEnabled(LogLevel::debug)) return;
  logger().debug(std::string(what) + type.description() + " with json: \n " + json, {}, {},
                 SourceLocation::in(function));
}

/// What `decode` throws becomes a failure here, outside of the catch block: the handle on it goes
/// to other threads.
Error failureToDecode(Error thrown, TypeReference type, std::string json) {
  if (thrown.as<DecodingError>()) {
    logFailure("Error decoding json of type ", type, json);
    return HTTPResponseError::jsonDecoding(type, std::move(thrown), std::move(json));
  }
  logFailure("Unknown error decoding json of type ", type, json);
  return HTTPUnknownError::unableToParseJSON(std::move(json), std::move(thrown),
                                             SourceLocation::in(function));
}

}  // namespace

std::optional<Error> decodeAnswer(const std::optional<Data>& data, const URLResponse* response,
                                  const std::optional<Error>& error, TypeReference type,
                                  void (*decode)(const Data& json, void* body), void* body) {
  const auto* http = httpResponse(response);
  if (auto failure = failureOf(http, error)) return failure;
  if (!http) {
    return HTTPUnknownError::jsonResponseFailedToConstruct(SourceLocation::in(function),
                                                           textOf(data));
  }
  // A 204 has no body to decode, even where a server sends one.
  if (!data || data->empty() || status(*http) == HTTPStatus::noContent) return std::nullopt;
  std::optional<Error> thrown;
  try {
    decode(*data, body);
  } catch (...) {
    thrown = Error::current();
  }
  if (thrown) return failureToDecode(*std::move(thrown), type, textOf(data));
  return std::nullopt;
}

std::string jsonDescription(const std::optional<Data>& data) {
  if (!data || data->empty()) return {};
  try {
    const auto json = jsonDecoder().decode<JSONValue>(*data);
    if (!json.isObject()) return {};
    std::string text = "\nJSON:\n" + json.description();
    std::erase(text, '\\');  // people read it: "https:\/\/" is plain there
    return text;
  } catch (const DecodingError&) {
    return {};  // no JSON; the bytes are still in the record
  }
}

}  // namespace tarn::detail
