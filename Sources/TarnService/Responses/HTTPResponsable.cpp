#include <TarnService/Responses/HTTPResponsable.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>

#include <type_traits>
#include <typeinfo>

namespace tarn {

HTTPResponseMetadata::HTTPResponseMetadata(std::shared_ptr<const URLResponse> response) {
  if (!response) return;
  if (const auto* http = detail::httpResponse(response.get())) {
    headers = http->allHeaderFields();
    status = tarn::status(*http);
  }
  expectedContentLength = response->expectedContentLength();
  suggestedFilename = response->suggestedFilename();
  mimeType = response->mimeType();
  textEncodingName = response->textEncodingName();
  url = response->url();
  urlResponse = std::move(response);
}

const HTTPURLResponse* detail::httpResponse(const URLResponse* response) noexcept {
  // Several times for each answer: as the class is final, this tells what a dynamic_cast would.
  static_assert(std::is_final_v<HTTPURLResponse>);
  if (response == nullptr || typeid(*response) != typeid(HTTPURLResponse)) return nullptr;
  return static_cast<const HTTPURLResponse*>(response);
}

std::string detail::debugStatusAndHeaders(TypeReference type,
                                          const HTTPResponseMetadata& metadata) {
  std::string text = "Type: " + type.description() +
                     "\n\nHTTP Status: " + std::string(metadata.status.description()) +
                     "\n\nHeaders: \n";
  if (metadata.headers) {
    for (const auto& [name, value] : *metadata.headers) {
      text.append(name).append(": ").append(value).append("\n");
    }
  }
  return text;
}

std::optional<Error> detail::failureOf(const HTTPURLResponse* http,
                                       const std::optional<Error>& error) {
  if (error) return error;
  // Fixed in the record on purpose: what the request itself accepts is judged before, and arrives
  // here as an error.
  if (http && !tarn::status(*http).isAcceptableByDefault()) {
    return HTTPResponseError::unacceptableStatus(tarn::status(*http));
  }
  return std::nullopt;
}

}  // namespace tarn
