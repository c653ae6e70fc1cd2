#include <Platform/Types/SourceLocation.hpp>
#include <Tambour/File.hpp>
#include <TarnService/Responses/DownloadResponse.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>

namespace tarn::detail {

std::optional<Error> readAnswer(const std::optional<URL>& location, const URLResponse* response,
                                const std::optional<Error>& error, TypeReference type,
                                bool (*read)(const URL& location, void* body), void* body) {
  const auto* http = detail::httpResponse(response);
  if (auto failure = failureOf(http, error)) return failure;
  // A 204 has no body to read, even where there is a file.
  if (http && status(*http) == HTTPStatus::noContent) return std::nullopt;
  if (!http || !location) {
    return HTTPUnknownError::downloadResponseFailedToConstruct(
        SourceLocation::in("init(data:url:response:error:)"));
  }
  try {
    if (read(*location, body)) return std::nullopt;
  } catch (...) {
    return Error::current();
  }
  return HTTPResponseError::malformedData(type);
}

std::optional<Data> readBytes(const URL& location) {
  Data bytes = File(location).asData();
  if (bytes.empty()) return std::nullopt;
  return bytes;
}

}  // namespace tarn::detail
