#pragma once

#include <Platform/URLLoading/Curl/ProxySettings.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <curl/curl.h>

#include <memory>
#include <string>

namespace tarn::detail {

struct CurlDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, CurlDeleter>;
using HeaderLines = std::unique_ptr<curl_slist, CurlDeleter>;

/// Sets one option; throws std::bad_alloc, the only way in which a right option can fail.
template <class T>
void setOption(CURL* easy, CURLoption option, T value) {
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) throw std::bad_alloc();
}

/// Adds a copy of `line`, "Name: value". Throws std::bad_alloc.
void append(HeaderLines& lines, const char* line);

/// The header fields as libcurl wants them. Left out are those by which the engine itself frames
/// the message. `authorization`, if any, takes the place of the request's own.
HeaderLines headerLines(const URLRequest& request, bool sendsBody,
                        const std::string& authorization);

/// What does not depend on the transfer: the method, limits, proxies, protocol versions.
void setRequestOptions(CURL* easy, const std::string& method, bool sendsBody, const Origin& origin,
                       const ProxySettings& proxies);

}  // namespace tarn::detail
