#include <Platform/URLLoading/Curl/Origin.hpp>
#include <Platform/URLLoading/Curl/Redirects.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <memory>

namespace tarn::detail {

namespace {

struct CurlFree {
  void operator()(char* text) const noexcept { curl_free(text); }
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};

// The scheme of an absolute reference (RFC 3986, 3.1); empty for a relative one.
std::string_view schemeOf(std::string_view reference) noexcept {
  const auto end = reference.find_first_of(":/?#");
  if (end == std::string_view::npos || reference[end] != ':') return {};
  return reference.substr(0, end);
}

// libcurl would make a "+" of a space in a query, which only a form means by it.
std::string withoutSpaces(std::string_view location) {
  std::string result;
  for (const char c : location) c == ' ' ? result.append("%20") : result.append(1, c);
  return result;
}

// libcurl resolves as browsers do: non-ASCII bytes are encoded instead of refused.
std::optional<URL> resolve(const URL& base, const std::string& location) {
  const std::unique_ptr<CURLU, CurlFree> url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, base.absoluteString().c_str(), 0) != CURLUE_OK)
    return std::nullopt;
  if (curl_url_set(url.get(), CURLUPART_URL, withoutSpaces(location).c_str(), CURLU_URLENCODE) !=
      CURLUE_OK)
    return std::nullopt;
  curl_url_set(url.get(), CURLUPART_USER, nullptr, 0);
  curl_url_set(url.get(), CURLUPART_PASSWORD, nullptr, 0);
  if (location.find('#') == std::string::npos) {
    const auto fragment = base.fragment();
    curl_url_set(url.get(), CURLUPART_FRAGMENT, fragment ? fragment->c_str() : nullptr, 0);
  }
  char* text = nullptr;
  if (curl_url_get(url.get(), CURLUPART_URL, &text, CURLU_URLENCODE) != CURLUE_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<char, CurlFree> owned(text);
  return URL::parse(text);
}

bool turnsIntoGet(int statusCode, const std::string& method) noexcept {
  if (statusCode == 303) return method != "GET" && method != "HEAD";
  return (statusCode == 301 || statusCode == 302) && method == "POST";
}

void removeFields(URLRequest& request, bool (*unwanted)(std::string_view) noexcept) {
  auto fields = request.allHTTPHeaderFields();
  if (std::erase_if(fields, [unwanted](const auto& field) { return unwanted(field.first); }) > 0) {
    request.setAllHTTPHeaderFields(std::move(fields));
  }
}

bool describesBody(std::string_view name) noexcept {
  return equalsIgnoringCase(name.substr(0, 8), "Content-") ||
         equalsIgnoringCase(name, "Transfer-Encoding");
}

}  // namespace

bool isRedirect(int statusCode, const HTTPHeaderFields& fields) noexcept {
  switch (statusCode) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308: {
      const auto location = fields.value("Location");
      return location && !location->empty();
    }
    default:
      return false;
  }
}

bool belongsToOrigin(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 4> names{"Authorization", "Cookie", "Host",
                                                  "Proxy-Authorization"};
  return std::any_of(names.begin(), names.end(),
                     [name](auto secret) { return equalsIgnoringCase(name, secret); });
}

std::variant<URLRequest, URLError> redirectedRequest(const URLRequest& request,
                                                     const HTTPURLResponse& response) {
  const std::string location(response.allHeaderFields().value("Location").value_or(""));
  const auto failingURL = request.url().redacted();
  const auto scheme = lowercased(schemeOf(location));
  if (!scheme.empty() && scheme != "http" && scheme != "https") {
    return URLError(URLError::unsupportedURL, "The redirect leads to an unsupported scheme.",
                    failingURL);
  }
  const auto target = resolve(request.url(), location);
  const auto origin = target ? Origin::of(*target) : std::nullopt;
  if (!origin) {
    return URLError(URLError::badURL, "The redirect leads to a bad address.", failingURL);
  }
  URLRequest next = request;
  next.setURL(*target);
  if (turnsIntoGet(response.statusCode(), request.httpMethod())) {
    next.setHTTPMethod("GET");
    next.setHTTPBody(std::nullopt);
    removeFields(next, describesBody);
  }
  if (origin != Origin::of(request.url())) removeFields(next, belongsToOrigin);
  return next;
}

}  // namespace tarn::detail
