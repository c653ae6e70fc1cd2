#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <algorithm>

namespace tarn {

namespace {

void checkField(const std::string& name, const std::string& value) {
  // A refused name is not repeated either: it may hold anything.
  if (!detail::isToken(name)) throw InvalidRequestError("a header field's name is not a token");
  const auto endsLine = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
  if (std::any_of(value.begin(), value.end(), endsLine)) {
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

const URLRequest::HeaderFields& URLRequest::allHTTPHeaderFields() const noexcept {
  if (headerFields_) return *headerFields_;
  const detail::NoForkScope scope;  // not while it is being made
  static const auto& none = *new HeaderFields;
  return none;
}

void URLRequest::setAllHTTPHeaderFields(HeaderFields fields) {
  for (const auto& [name, value] : fields) checkField(name, value);
  headerFields_ = std::make_shared<const HeaderFields>(std::move(fields));
}

void URLRequest::setValue(std::string value, std::string forHTTPHeaderField) {
  checkField(forHTTPHeaderField, value);
  HeaderFields fields = allHTTPHeaderFields();
  fields.insert_or_assign(std::move(forHTTPHeaderField), std::move(value));
  headerFields_ = std::make_shared<const HeaderFields>(std::move(fields));
}

std::optional<std::string_view> URLRequest::value(
    std::string_view forHTTPHeaderField) const noexcept {
  for (const auto& [name, value] : allHTTPHeaderFields()) {
    if (equalsIgnoringCase(name, forHTTPHeaderField)) return value;
  }
  return std::nullopt;
}

}  // namespace tarn
