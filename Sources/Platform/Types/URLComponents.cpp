#include <Platform/Types/Detail/PercentEncoding.hpp>
#include <Platform/Types/Detail/URLRepresentation.hpp>
#include <Platform/Types/URLComponents.hpp>

#include <algorithm>

namespace tarn {

using detail::percentDecoded;
using detail::percentEncoded;
using detail::URLPart;
using detail::URLRange;

namespace {

std::optional<std::string> decoded(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return percentDecoded(*text);
}

std::optional<std::string> encoded(const std::optional<std::string>& text, URLPart part) {
  if (!text) return std::nullopt;
  return percentEncoded(*text, part);
}

}  // namespace

std::optional<URLComponents> URLComponents::from(const URL& url, bool resolvingAgainstBaseURL) {
  const auto& representation = *url.representation_;
  if (!resolvingAgainstBaseURL && representation.base) return from(representation.relative);
  const auto text = [&representation](const URLRange& range) -> std::optional<std::string> {
    if (!range.exists) return std::nullopt;
    return std::string(representation.part(range));
  };
  std::optional<URLComponents> result(std::in_place);
  result->scheme_ = text(representation.parts.scheme);
  result->user_ = text(representation.parts.user);
  result->password_ = text(representation.parts.password);
  result->host_ = text(representation.parts.host);
  result->port_ = representation.parts.port;
  result->path_ = representation.part(representation.parts.path);
  result->query_ = text(representation.parts.query);
  result->fragment_ = text(representation.parts.fragment);
  if (representation.parts.authority.exists) result->origin_ = url.representation_;
  return result;
}

std::optional<URLComponents> URLComponents::from(std::string_view text) {
  if (text.empty()) return URLComponents();
  const auto url = URL::parse(text);
  if (!url) return std::nullopt;
  return from(*url);
}

std::optional<std::string> URLComponents::user() const { return decoded(user_); }
std::optional<std::string> URLComponents::password() const { return decoded(password_); }
std::optional<std::string> URLComponents::host() const { return decoded(host_); }
std::string URLComponents::path() const { return percentDecoded(path_); }
std::optional<std::string> URLComponents::query() const { return decoded(query_); }
std::optional<std::string> URLComponents::fragment() const { return decoded(fragment_); }

std::optional<std::vector<URLQueryItem>> URLComponents::queryItems() const {
  if (!query_) return std::nullopt;
  std::vector<URLQueryItem> items;
  std::string_view rest = *query_;
  while (!rest.empty()) {
    const std::string_view item = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(item.size() + 1, rest.size()));
    const std::size_t equals = item.find('=');
    items.push_back({percentDecoded(item.substr(0, equals)), std::nullopt});
    if (equals != std::string_view::npos)
      items.back().value = percentDecoded(item.substr(equals + 1));
  }
  return items;
}

void URLComponents::setUser(const std::optional<std::string>& user) {
  user_ = encoded(user, URLPart::user);
  origin_.reset();
}

void URLComponents::setPassword(const std::optional<std::string>& password) {
  password_ = encoded(password, URLPart::user);
  origin_.reset();
}

void URLComponents::setHost(const std::optional<std::string>& host) {
  origin_.reset();
  if (!host || host->find(':') == std::string::npos) {
    host_ = encoded(host, URLPart::host);
  } else {
    // Only an IPv6 address holds colons; whether it is one, url() finds out.
    host_ = host->starts_with('[') ? *host : '[' + *host + ']';
  }
}

void URLComponents::setPath(std::string_view path) { path_ = percentEncoded(path, URLPart::path); }

void URLComponents::setQuery(const std::optional<std::string>& query) {
  query_ = encoded(query, URLPart::query);
}

void URLComponents::setFragment(const std::optional<std::string>& fragment) {
  fragment_ = encoded(fragment, URLPart::query);
}

void URLComponents::setQueryItems(const std::optional<std::vector<URLQueryItem>>& items) {
  query_.reset();
  if (!items) return;
  std::string& query = query_.emplace();
  bool isFirst = true;
  for (const auto& [name, value] : *items) {
    if (!std::exchange(isFirst, false)) query += '&';
    detail::appendPercentEncoded(query, name, URLPart::queryItem);
    if (!value) continue;
    query += '=';
    detail::appendPercentEncoded(query, *value, URLPart::queryItem);
  }
}

std::string URLComponents::text() const {
  std::string text;
  text.reserve(64 + path_.size() + (query_ ? query_->size() : 0));
  if (scheme_) (text += *scheme_) += ':';
  if (host_ || user_ || password_ || port_) {
    text += "//";
    if (user_) text += *user_;
    if (password_) (text += ':') += *password_;
    if (user_ || password_) text += '@';
    if (host_) text += *host_;
    if (port_) (text += ':') += std::to_string(*port_);
  }
  text += path_;
  if (query_) (text += '?') += *query_;
  if (fragment_) (text += '#') += *fragment_;
  return text;
}

// What was a URL before and has an encoded path behind its authority is one again, and need not be
// parsed.
std::optional<URL> URLComponents::urlLikeOrigin() const {
  if (!origin_ || (!path_.empty() && path_.front() != '/')) return std::nullopt;
  const auto& former = origin_->parts;
  const std::string_view start =
      std::string_view(origin_->absolute).substr(0, former.authority.end());
  // A port may have been written otherwise than text() does.
  if (start.substr(former.host.end()) != (port_ ? ':' + std::to_string(*port_) : "")) {
    return std::nullopt;
  }
  auto made = std::make_shared<URL::Representation>();
  made->absolute.reserve(start.size() + path_.size() + (query_ ? query_->size() + 1 : 0) +
                         (fragment_ ? fragment_->size() + 1 : 0));
  made->absolute = start;
  made->parts = former;
  made->parts.path = {start.size(), path_.size(), true};
  made->absolute += path_;
  const auto append = [&made](char mark, const std::optional<std::string>& part) -> URLRange {
    if (!part) return {};
    made->absolute += mark;
    const std::size_t begin = made->absolute.size();
    made->absolute += *part;
    return {begin, part->size(), true};
  };
  made->parts.query = append('?', query_);
  made->parts.fragment = append('#', fragment_);
  return URL(std::move(made));
}

std::optional<URL> URLComponents::url() const {
  if (auto url = urlLikeOrigin()) return url;
  auto url = URL::parse(text());
  if (!url) return std::nullopt;
  // Each part has to come out as it went in: one with a delimiter in it would have moved the
  // borders.
  const auto& parts = url->representation_->parts;
  const auto isKept = [](const std::optional<std::string>& part, const URLRange& range) {
    return part ? range.exists && range.size == part->size() : !range.exists || range.size == 0;
  };
  const bool isWhole = isKept(scheme_, parts.scheme) && isKept(user_, parts.user) &&
                       isKept(password_, parts.password) && isKept(host_, parts.host) &&
                       parts.port == port_ && isKept(path_, parts.path) &&
                       isKept(query_, parts.query) && isKept(fragment_, parts.fragment);
  return isWhole ? url : std::nullopt;
}

std::optional<std::string> URLComponents::string() const {
  const auto result = url();
  if (!result) return std::nullopt;
  return result->absoluteString();
}

}  // namespace tarn
