#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Files/Locale.hpp>
#include <Platform/Types/URLComponents.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>

#include <algorithm>
#include <array>
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

std::string acceptLanguage(const std::vector<std::string>& languages) {
  std::string text;
  for (std::size_t index = 0; index < std::min(languages.size(), maximumLanguages); ++index) {
    if (index > 0) text += ", ";
    const double quality = 1.0 + static_cast<double>(index) * -0.1;
    text += languages[index] + ";q=" + AnyValue(quality).description();
  }
  return text;
}

URLRequest::HeaderFields makeFields(const HTTPMediaType& acceptType, const HTTPHeaders& headers,
                                    const std::vector<std::string>& languages) {
  URLRequest::HeaderFields fields{{"Accept", acceptType.rawValue},
                                  {"User-Agent", userAgent()},
                                  {"Accept-Language", acceptLanguage(languages)},
                                  {"Accept-Encoding", "gzip;q=1.0, compress;q=0.5"}};
  for (const auto& [name, value] : headers) fields.insert_or_assign(name, value);
  return fields;
}

/// The requests of an application mostly have the same few sets of header fields. Those made last
/// are remembered, so that equal ones share theirs: one set then stands for all the requests that
/// are kept in the records of their tasks.
class RecentFields {
 public:
  /// A request without a URL that has the fields made of these.
  URLRequest request(const HTTPMediaType& acceptType, const HTTPHeaders& headers,
                     std::vector<std::string> languages) TARN_EXCLUDES(mutex_) {
    {
      const MutexLock lock(mutex_);
      for (const auto& entry : entries_) {
        if (entry && entry->acceptType == acceptType && entry->headers == headers &&
            entry->languages == languages) {
          return entry->request;
        }
      }
    }
    URLRequest request{URL()};
    request.setAllHTTPHeaderFields(makeFields(acceptType, headers, languages));
    auto entry =
        std::make_unique<const Entry>(Entry{acceptType, headers, std::move(languages), request});
    const MutexLock lock(mutex_);
    entries_[next_].swap(entry);
    next_ = (next_ + 1) % entries_.size();
    return request;
  }

 private:
  struct Entry {
    HTTPMediaType acceptType;
    HTTPHeaders headers;
    std::vector<std::string> languages;
    URLRequest request;
  };

  Mutex mutex_;
  std::array<std::unique_ptr<const Entry>, 4> entries_ TARN_GUARDED_BY(mutex_);
  std::size_t next_ TARN_GUARDED_BY(mutex_) = 0;
};

RecentFields& recentFields() {
  const NoForkScope scope;  // not while they are being made
  static auto& fields = *new RecentFields;
  return fields;
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
  URLRequest request = recentFields().request(acceptType, headers, Locale::preferredLanguages());
  request.setURL(std::move(url));
  request.setCachePolicy(cachePolicy);
  request.setTimeoutInterval(timeoutInterval);
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
