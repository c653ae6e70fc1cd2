#include <Platform/Types/Detail/PercentEncoding.hpp>
#include <Platform/Types/Detail/URLRepresentation.hpp>
#include <Platform/Types/Detail/UserInformation.hpp>
#include <Platform/Types/URL.hpp>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace tarn {

using detail::percentDecoded;
using detail::URLPart;
using detail::URLRange;

namespace {

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& character : result) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character | 0x20);
  }
  return result;
}

std::string currentDirectory() {
  std::string path(4096, '\0');
  if (getcwd(path.data(), path.size()) == nullptr) return "/";
  path.resize(path.find('\0'));
  return path;
}

}  // namespace

MalformedURLError::MalformedURLError(std::string_view text, std::string_view reason)
    : message_("malformed URL \"" + detail::printableMalformedAddress(text) +
               "\": " + std::string(reason)) {}

URL::URL(std::shared_ptr<const Representation> representation) noexcept
    : representation_(std::move(representation)) {}

URL::URL(std::string_view text) : representation_() {
  std::string reason;
  auto url = make(std::string(text), nullptr, reason);
  if (!url) throw MalformedURLError(text, reason);
  representation_ = std::move(url->representation_);
}

std::optional<URL> URL::make(std::string text, const URL* base, std::string& reason) {
  if (text.empty() && base == nullptr) {
    reason = "it is empty";
    return std::nullopt;
  }
  auto representation = std::make_shared<Representation>();
  auto parts = detail::URLRanges::parse(text, reason);
  if (!parts) return std::nullopt;
  if (base == nullptr || parts->scheme.exists) {
    representation->absolute = std::move(text);
  } else {
    const Representation& against = *base->representation_;
    representation->absolute =
        detail::resolveReference(against.absolute, against.parts, text, *parts);
    representation->relative = std::move(text);
    representation->base = base->representation_;
    parts = detail::URLRanges::parse(representation->absolute, reason);
    if (!parts) return std::nullopt;
  }
  representation->parts = *parts;
  return URL(std::move(representation));
}

std::optional<URL> URL::parse(std::string_view text) {
  std::string reason;
  return make(std::string(text), nullptr, reason);
}

std::optional<URL> URL::parse(std::string_view text, const URL& relativeTo) {
  std::string reason;
  return make(std::string(text), &relativeTo, reason);
}

URL URL::fileURL(std::string_view path) {
  std::string absolute;
  if (!path.starts_with('/')) {
    absolute = currentDirectory();
    if (!absolute.ends_with('/')) absolute += '/';
  }
  absolute += path;
  return URL("file://" + detail::percentEncoded(absolute, URLPart::path));
}

const URL& URL::empty() {
  static const URL& url = *new URL("/");
  return url;
}

const std::string& URL::absoluteString() const noexcept { return representation_->absolute; }

const std::string& URL::relativeString() const noexcept {
  return representation_->base ? representation_->relative : representation_->absolute;
}

std::optional<URL> URL::baseURL() const {
  if (!representation_->base) return std::nullopt;
  return URL(representation_->base);
}

URL URL::absoluteURL() const {
  if (!representation_->base) return *this;
  auto absolute = std::make_shared<Representation>();
  absolute->absolute = representation_->absolute;
  absolute->parts = representation_->parts;
  return URL(std::move(absolute));
}

std::optional<std::string> URL::scheme() const {
  const URLRange& range = representation_->parts.scheme;
  if (!range.exists) return std::nullopt;
  return lowered(representation_->part(range));
}

std::optional<std::string> URL::decoded(const URLRange& range) const {
  if (!range.exists) return std::nullopt;
  return percentDecoded(representation_->part(range));
}

std::optional<std::string> URL::encoded(const URLRange& range) const {
  if (!range.exists) return std::nullopt;
  return std::string(representation_->part(range));
}

std::optional<std::string> URL::user() const { return decoded(representation_->parts.user); }
std::optional<std::string> URL::password() const {
  return decoded(representation_->parts.password);
}

std::optional<std::string> URL::host() const {
  if (representation_->parts.host.size == 0) return std::nullopt;
  return decoded(representation_->parts.host);
}

std::optional<int> URL::port() const noexcept { return representation_->parts.port; }
std::string URL::path() const {
  return percentDecoded(representation_->part(representation_->parts.path));
}
std::string URL::percentEncodedPath() const {
  return std::string(representation_->part(representation_->parts.path));
}
std::optional<std::string> URL::query() const { return encoded(representation_->parts.query); }
std::optional<std::string> URL::fragment() const {
  return encoded(representation_->parts.fragment);
}

std::vector<std::string> URL::pathComponents() const {
  std::vector<std::string> components;
  std::string_view path = representation_->part(representation_->parts.path);
  if (path.starts_with('/')) components.emplace_back("/");
  while (!path.empty()) {
    const std::string_view segment = path.substr(0, path.find('/'));
    if (!segment.empty()) components.push_back(percentDecoded(segment));
    path.remove_prefix(std::min(segment.size() + 1, path.size()));
  }
  return components;
}

std::string URL::lastPathComponent() const {
  std::string_view path = representation_->part(representation_->parts.path);
  const std::size_t lastOfName = path.find_last_not_of('/');
  if (lastOfName == std::string_view::npos) return std::string(path.substr(0, 1));
  path = path.substr(0, lastOfName + 1);
  return percentDecoded(path.substr(path.rfind('/') + 1));
}

std::string URL::pathExtension() const {
  const std::string name = lastPathComponent();
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

// This URL with another encoded path, absolute.
URL URL::replacingPath(std::string path) const {
  const auto& [scheme, authority, user, password, host, range, query, fragment, port] =
      representation_->parts;
  // Where nothing stands in front of it, a path must neither be empty nor look like a scheme or a
  // host.
  if (!scheme.exists && !authority.exists) {
    if (path.empty() || path.find(':') < path.find('/') || path.starts_with("//"))
      path.insert(0, "./");
  }
  std::string text = representation_->absolute;
  text.replace(range.begin, range.size, path);
  return URL(text);
}

URL URL::appendingPathComponent(std::string_view component) const {
  std::string path = percentEncodedPath();
  while (component.starts_with('/')) component.remove_prefix(1);
  const bool startsPath = path.empty() && !representation_->parts.authority.exists;
  if (!path.ends_with('/') && !startsPath) path += '/';
  detail::appendPercentEncoded(path, component, URLPart::path);
  return replacingPath(std::move(path));
}

URL URL::deletingLastPathComponent() const {
  std::string path = percentEncodedPath();
  const std::size_t lastOfName = path.find_last_not_of('/');
  if (lastOfName == std::string::npos) return absoluteURL();
  path.resize(path.rfind('/', lastOfName) + 1);
  return replacingPath(std::move(path));
}

bool URL::isFileURL() const noexcept {
  const std::string_view scheme = representation_->part(representation_->parts.scheme);
  return scheme.size() == 4 && (scheme[0] | 0x20) == 'f' && (scheme[1] | 0x20) == 'i' &&
         (scheme[2] | 0x20) == 'l' && (scheme[3] | 0x20) == 'e';
}

std::string URL::redacted() const {
  const auto& parts = representation_->parts;
  std::string text = representation_->absolute;
  if (parts.user.exists)
    text.erase(parts.authority.begin, parts.host.begin - parts.authority.begin);
  return text;
}

bool operator==(const URL& left, const URL& right) noexcept {
  auto first = left.representation_.get();
  auto second = right.representation_.get();
  while (first != second) {
    if (first == nullptr || second == nullptr) return false;
    if ((first->base == nullptr) != (second->base == nullptr)) return false;
    if ((first->base ? first->relative : first->absolute) !=
        (second->base ? second->relative : second->absolute)) {
      return false;
    }
    first = first->base.get();
    second = second->base.get();
  }
  return true;
}

}  // namespace tarn

std::size_t std::hash<tarn::URL>::operator()(const tarn::URL& url) const noexcept {
  return std::hash<std::string>()(url.relativeString());
}
