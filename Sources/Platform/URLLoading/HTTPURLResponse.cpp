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

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, std::string httpVersion,
                                 HTTPHeaderFields headerFields, std::int64_t expectedContentLength)
    : URLResponse(std::move(url), expectedContentLength),
      statusCode_(statusCode),
      httpVersion_(std::move(httpVersion)),
      headerFields_(std::move(headerFields)) {}

HTTPURLResponse::HTTPURLResponse(URL url, int statusCode, std::string httpVersion,
                                 HTTPHeaderFields headerFields)
    : URLResponse(std::move(url), contentLength(headerFields)),
      statusCode_(statusCode),
      httpVersion_(std::move(httpVersion)),
      headerFields_(std::move(headerFields)) {}

std::string_view HTTPURLResponse::contentType() const noexcept {
  return headerFields_.value("Content-Type").value_or("");
}

std::string_view HTTPURLResponse::declaredType() const noexcept {
  return detail::withoutParameters(contentType());
}

std::optional<std::string> HTTPURLResponse::textEncodingName() const {
  for (const auto& [name, value] : detail::parametersOf(contentType())) {
    if (name == "charset") return detail::lowercasedUnlessEmpty(value);
  }
  return std::nullopt;
}

std::optional<std::string> HTTPURLResponse::declaredFilename() const {
  const auto disposition = headerFields_.value("Content-Disposition");
  return disposition ? detail::contentDispositionFilename(*disposition) : std::nullopt;
}

}  // namespace tarn
