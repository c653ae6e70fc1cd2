#include <Platform/Files/Locale.hpp>
#include <Platform/Types/URLComponents.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>

#include <algorithm>
#include <vector>

namespace tarn::detail {
namespace {

constexpr std::size_t maximumLanguages = 6;

std::string joinedPath(const URL& baseURL, std::string_view path) {
  std::string joined;
  const auto components = baseURL.pathComponents();
  for (std::size_t index = 1; index < components.size(); ++index) {
    if (components[index] != "/") joined += "/" + components[index];
  }
  if (path.empty() || path.front() != '/') joined += '/';
  return joined += path;
}

std::string acceptLanguage() {
  const auto languages = Locale::preferredLanguages();
  std::string text;
  for (std::size_t index = 0; index < std::min(languages.size(), maximumLanguages); ++index) {
    if (index > 0) text += ", ";
    const double quality = 1.0 + static_cast<double>(index) * -0.1;
    text += languages[index] + ";q=" + AnyValue(quality).description();
  }
  return text;
}

}  // namespace

std::optional<URL> buildURL(const URL& baseURL, std::string_view path,
                            const HTTPQueryItems& queryItems) {
  auto components = URLComponents::from(baseURL);
  if (!components) return std::nullopt;
  components->setPath(joinedPath(baseURL, path));
  // A query of the base URL's own never counts, whether the request has query items or not.
  std::optional<std::vector<URLQueryItem>> items;
  for (const auto& [name, value] : queryItems) {
    if (!items) items.emplace();
    items->push_back({name, value.description()});
  }
  components->setQueryItems(items);
  return components->url();
}

std::string urlString(const URL& baseURL, std::string_view path, const HTTPQueryItems& queryItems) {
  std::string text = baseURL.absoluteString() + std::string(path);
  const char* separator = "";
  for (const auto& [name, value] : queryItems) {
    text += separator + name + "=" + value.description();
    separator = ",";
  }
  return text;
}

URLRequest makeURLRequest(URL url, URLRequest::CachePolicy cachePolicy,
                          TimeInterval timeoutInterval, const HTTPMediaType& acceptType,
                          const HTTPHeaders& headers, const HTTPMethod& method) {
  URLRequest request(std::move(url), cachePolicy, timeoutInterval);
  HTTPHeaders fields{{"Accept", acceptType.rawValue},
                     {"User-Agent", userAgent()},
                     {"Accept-Language", acceptLanguage()},
                     {"Accept-Encoding", "gzip;q=1.0, compress;q=0.5"}};
  for (const auto& [name, value] : headers) fields.insert_or_assign(name, value);
  request.setAllHTTPHeaderFields(std::move(fields));
  request.setHTTPMethod(method.rawValue);
  return request;
}

void setBody(URLRequest& request, Data body, const std::optional<HTTPContentEncoderType>& encoder) {
  if (!encoder) return request.setHTTPBody(std::move(body));
  auto encoded = encoder->encode(std::move(body));
  request.setHTTPBody(std::move(encoded.data));
  request.setValue(encoded.encodingType.rawValue, "Content-Encoding");
}

}  // namespace tarn::detail
