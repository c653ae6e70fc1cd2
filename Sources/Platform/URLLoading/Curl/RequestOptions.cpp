#include <Platform/URLLoading/Curl/RequestOptions.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <array>
#include <new>

namespace tarn::detail {

namespace {

// How the message is framed, and what the connection does after it, is not the request's to say.
bool belongsToEngine(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 9> names{
      "Content-Length",   "Expect", "HTTP2-Settings", "Keep-Alive",
      "Proxy-Connection", "TE",     "Trailer",        "Transfer-Encoding",
      "Upgrade"};
  return std::any_of(names.begin(), names.end(),
                     [name](auto own) { return equalsIgnoringCase(name, own); });
}

bool expectsBody(const std::string& method) noexcept {
  return method == "POST" || method == "PUT" || method == "PATCH";
}

// The size of a body is the transfer's to tell.
void setMethod(CURL* easy, const std::string& method, bool sendsBody) {
  if (method == "HEAD") {
    setOption(easy, CURLOPT_NOBODY, 1L);
  } else if (sendsBody || expectsBody(method)) {
    setOption(easy, CURLOPT_POST, 1L);
    setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{0});
    if (!sendsBody) setOption(easy, CURLOPT_POSTFIELDS, "");
    if (method != "POST") setOption(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method != "GET") {
    setOption(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  }
}

}  // namespace

void append(HeaderLines& lines, const char* line) {
  curl_slist* longer = curl_slist_append(lines.get(), line);
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(lines.release());
  lines.reset(longer);
}

HeaderLines headerLines(const URLRequest& request, bool sendsBody,
                        const std::string& authorization) {
  HeaderLines lines;
  std::string line;
  for (const auto& [name, value] : request.allHTTPHeaderFields()) {
    if (belongsToEngine(name) || equalsIgnoringCase(name, "Cookie")) continue;
    if (!authorization.empty() && equalsIgnoringCase(name, "Authorization")) continue;
    line = name;
    // libcurl's notation for a field without a value; with a colon it would mean "leave this field
    // out".
    line.append(value.find_first_not_of(" \t") == std::string::npos ? ";" : ": ");
    if (line.back() == ' ') line.append(value);
    append(lines, line.c_str());
  }
  if (!authorization.empty()) append(lines, ("Authorization: " + authorization).c_str());
  if (!request.value("Accept")) append(lines, "Accept:");
  if (sendsBody || expectsBody(request.httpMethod())) {
    append(lines, "Expect:");
    if (!request.value("Content-Type")) append(lines, "Content-Type:");
  }
  return lines;
}

void setRequestOptions(CURL* easy, const std::string& method, bool sendsBody, const Origin& origin,
                       const ProxySettings& proxies) {
  constexpr long uploadBuffer = 512 * 1024;
  constexpr long never = 2'000'000'000;     // milliseconds: our own timers decide
  setOption(easy, CURLOPT_PATH_AS_IS, 1L);  // dot segments are the request's to resolve
  setOption(easy, CURLOPT_NOSIGNAL, 1L);
  setOption(easy, CURLOPT_QUICK_EXIT, 1L);
  setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  setOption(easy, CURLOPT_CONNECTTIMEOUT_MS, never);
  // Both are always set, or libcurl would read the environment for each transfer.
  setOption(easy, CURLOPT_PROXY, proxies.proxyFor(origin).c_str());
  setOption(easy, CURLOPT_NOPROXY, "");
  if (origin.secure) {
    setOption(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
    setOption(easy, CURLOPT_PIPEWAIT, 1L);
    // Trust is judged by our own store; libcurl's would be read anew for each connection.
    setOption(easy, CURLOPT_CAINFO, static_cast<const char*>(nullptr));
    setOption(easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    // A resumed session would skip the look at the certificate.
    setOption(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
  }
  if (sendsBody) setOption(easy, CURLOPT_UPLOAD_BUFFERSIZE, uploadBuffer);
  setMethod(easy, method, sendsBody);
}

}  // namespace tarn::detail
