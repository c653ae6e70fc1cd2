#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>

#include <charconv>

namespace tarn {

namespace {

std::int64_t contentLength(const HTTPHeaderFields& fields) noexcept {
  const auto text = fields.value("Content-Length");
  if (!text) return -1;
  std::int64_t length = -1;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), length);
  return error == std::errc() && end == text->data() + text->size() && length >= 0 ? length : -1;
}

}  // namespace

struct HTTPURLResponse::ContentType {
  std::optional<std::string> mimeType;
  std::optional<std::string> charset;

  static ContentType of(const HTTPHeaderFields& fields) {
    const auto text = fields.value("Content-Type");
    if (!text) return {};
    auto parsed = detail::parseParameterizedValue(*text);
    ContentType result;
    if (!parsed.value.empty()) result.mimeType = std::move(parsed.value);
    if (const auto charset = parsed.parameter("charset"); charset && !charset->empty()) {
      result.charset = detail::lowercased(*charset);
    }
    return result;
  }
};

// The fields come by reference, so that reading the other arguments out of them is in order.
HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, std::string&& httpVersion,
                                 HTTPHeaderFields&& headerFields,
                                 std::int64_t expectedContentLength, ContentType contentType)
    : URLResponse(std::move(url), std::move(contentType.mimeType), expectedContentLength,
                  std::move(contentType.charset)),
      statusCode_(statusCode),
      httpVersion_(std::move(httpVersion)),
      headerFields_(std::move(headerFields)) {}

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, std::string httpVersion,
                                 HTTPHeaderFields headerFields, std::int64_t expectedContentLength)
    : HTTPURLResponse(std::move(url), statusCode, std::move(httpVersion), std::move(headerFields),
                      expectedContentLength, ContentType::of(headerFields)) {}

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, std::string httpVersion,
                                 HTTPHeaderFields headerFields)
    : HTTPURLResponse(std::move(url), statusCode, std::move(httpVersion), std::move(headerFields),
                      contentLength(headerFields), ContentType::of(headerFields)) {}

std::optional<std::string> HTTPURLResponse::declaredFilename() const {
  const auto disposition = headerFields_.value("Content-Disposition");
  return disposition ? detail::contentDispositionFilename(*disposition) : std::nullopt;
}

}  // namespace tarn
