#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Files/Locale.hpp>
#include <Platform/Types/URLComponents.hpp>
#include <Platform/URLLoading/Detail/SharedHeaderFields.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
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

/// The fields that every request has, in the order of a map.
using LibraryFields = std::array<std::pair<std::string_view, std::string_view>, 4>;

LibraryFields libraryFields(const HTTPMediaType& acceptType, std::string_view acceptLanguage) {
  return {{{"Accept", acceptType.rawValue},
           {"Accept-Encoding", "gzip;q=1.0, compress;q=0.5"},
           {"Accept-Language", acceptLanguage},
           {"User-Agent", userAgent()}}};
}

URLRequest::HeaderFields makeFields(const LibraryFields& library, const HTTPHeaders& headers) {
  URLRequest::HeaderFields fields = headers;
  for (const auto& [name, value] : library) fields.emplace(name, value);
  return fields;
}

/// Whether makeFields() would answer these fields.
bool areMadeOf(const URLRequest::HeaderFields& fields, const LibraryFields& library,
               const HTTPHeaders& headers) {
  auto ours = library.begin();
  auto own = headers.begin();
  for (const auto& [name, value] : fields) {
    const bool isOurs = ours != library.end() && ours->first == name;
    const bool isOwn = own != headers.end() && own->first == name;
    if (isOwn ? value != own->second : !isOurs || value != ours->second) return false;
    if (isOurs) ++ours;
    if (isOwn) ++own;
  }
  return ours == library.end() && own == headers.end();
}

/// The requests of an application mostly have the same few sets of header fields. Those made last
/// are remembered for as long as a request has them, so that equal ones share theirs: one set then
/// stands for all the requests that are kept in the records of their tasks.
class RecentFields {
 public:
  void setFields(URLRequest& request, const HTTPMediaType& acceptType, const HTTPHeaders& headers)
      TARN_EXCLUDES(mutex_) {
    auto languages = preferredLanguages();
    MutexLock lock(mutex_);
    if (languages != languages_) {
      acceptLanguage_ = std::make_shared<const std::string>(acceptLanguage(*languages));
      languages_ = std::move(languages);
    }
    const auto languageText = acceptLanguage_;
    const auto library = libraryFields(acceptType, *languageText);
    for (auto set = sets_.begin(); set != sets_.end(); ++set) {
      if (!set->shareWith(request)) continue;
      if (!areMadeOf(request.allHTTPHeaderFields(), library, headers)) continue;
      std::rotate(sets_.begin(), set, set + 1);
      return;
    }
    lock.unlock();
    request.setAllHTTPHeaderFields(makeFields(library, headers));
    lock.lock();
    // Behind those that have been used again, so that sets with a value of their own each time do
    // not drive those out.
    const auto place = sets_.begin() + sets_.size() / 2;
    std::move_backward(place, sets_.end() - 1, sets_.end());
    *place = SharedHeaderFields(request);
  }

 private:
  Mutex mutex_;
  LanguageList languages_ TARN_GUARDED_BY(mutex_);
  std::shared_ptr<const std::string> acceptLanguage_ TARN_GUARDED_BY(mutex_);  // of the languages
  std::array<SharedHeaderFields, 8> sets_ TARN_GUARDED_BY(mutex_);
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
  URLRequest request(std::move(url), cachePolicy, timeoutInterval);
  recentFields().setFields(request, acceptType, headers);
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
