#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

namespace tarn {

namespace {

void checkField(const std::string& name, const std::string& value) {
  // A refused name is not repeated either: it may hold anything.
  if (!detail::isToken(name)) throw InvalidRequestError("a header field's name is not a token");
  if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
    throw InvalidRequestError("the value of header field " + name + " holds CR, LF or NUL");
  }
}

}  // namespace

URLRequest::URLRequest(URL url, CachePolicy cachePolicy, TimeInterval timeoutInterval)
    : url_(std::move(url)), cachePolicy_(cachePolicy), timeoutInterval_(timeoutInterval) {}

void URLRequest::setHTTPMethod(std::string method) {
  if (!detail::isToken(method)) throw InvalidRequestError("the HTTP method is not a token");
  httpMethod_ = std::move(method);
}

void URLRequest::setAllHTTPHeaderFields(HeaderFields fields) {
  for (const auto& [name, value] : fields) checkField(name, value);
  headerFields_ = std::move(fields);
}

void URLRequest::setValue(std::string value, std::string forHTTPHeaderField) {
  checkField(forHTTPHeaderField, value);
  headerFields_.insert_or_assign(std::move(forHTTPHeaderField), std::move(value));
}

std::optional<std::string_view> URLRequest::value(
    std::string_view forHTTPHeaderField) const noexcept {
  for (const auto& [name, value] : headerFields_) {
    if (equalsIgnoringCase(name, forHTTPHeaderField)) return value;
  }
  return std::nullopt;
}

}  // namespace tarn
