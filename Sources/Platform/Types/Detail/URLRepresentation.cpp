#include <Platform/Types/Detail/PercentEncoding.hpp>
#include <Platform/Types/Detail/URLRepresentation.hpp>

#include <boost/url/parse.hpp>

#include <charconv>

namespace tarn::detail {
namespace {

URLRange rangeOf(std::string_view text, boost::urls::string_view part, bool exists) {
  if (!exists) return {};
  return {static_cast<std::size_t>(part.data() - text.data()), part.size(), true};
}

// A host that decodes to a delimiter or a control character would be read as something else further
// on.
bool isUsableHost(std::string_view encoded) {
  if (encoded.find('%') == std::string_view::npos) return true;
  for (const char character : percentDecoded(encoded)) {
    const bool isControl = static_cast<unsigned char>(character) <= 0x20 || character == 0x7F;
    if (isControl || std::string_view("/?#@:[]\\%<>^|").find(character) != std::string_view::npos)
      return false;
  }
  return true;
}

// Nothing for no port, also for the empty one of "http://host:/".
bool parsePort(std::string_view digits, std::optional<int>& port) {
  if (digits.empty()) return true;
  int number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (result.ec != std::errc() || number > 65535) return false;
  port = number;
  return true;
}

std::string_view partOf(std::string_view text, const URLRange& range) {
  return text.substr(range.begin, range.size);
}

std::string removingDotSegments(std::string_view path) {
  std::string result;
  result.reserve(path.size());
  const auto dropSegment = [&result] {
    const std::size_t slash = result.rfind('/');
    result.resize(slash == std::string::npos ? 0 : slash);
  };
  while (!path.empty()) {
    if (path.starts_with("../")) {
      path.remove_prefix(3);
    } else if (path.starts_with("./")) {
      path.remove_prefix(2);
    } else if (path.starts_with("/./")) {
      path.remove_prefix(2);
    } else if (path == "/.") {
      path = "/";
    } else if (path.starts_with("/../")) {
      path.remove_prefix(3);
      dropSegment();
    } else if (path == "/..") {
      path = "/";
      dropSegment();
    } else if (path == "." || path == "..") {
      path = "";
    } else {
      const std::size_t end = path.find('/', 1);
      result += path.substr(0, end);
      path.remove_prefix(end == std::string_view::npos ? path.size() : end);
    }
  }
  return result;
}

std::string mergedPath(std::string_view basePath, bool baseHasAuthority, std::string_view path) {
  if (path.starts_with('/')) return std::string(path);
  if (baseHasAuthority && basePath.empty()) return "/" + std::string(path);
  return std::string(basePath.substr(0, basePath.rfind('/') + 1)) + std::string(path);
}

}  // namespace

std::optional<URLRanges> URLRanges::parse(std::string_view text, std::string& reason) {
  for (const char character : text) {
    if (character <= 0x20 || character == 0x7F) {
      reason = "a character has to be percent-encoded";
      return std::nullopt;
    }
  }
  const auto parsed = boost::urls::parse_uri_reference({text.data(), text.size()});
  if (!parsed) {
    reason = "not a URI reference: " + parsed.error().message();
    return std::nullopt;
  }
  const auto& view = *parsed;
  URLRanges parts;
  parts.scheme = rangeOf(text, view.scheme(), view.has_scheme());
  parts.authority = rangeOf(text, view.encoded_authority(), view.has_authority());
  parts.user = rangeOf(text, view.encoded_user(), view.has_userinfo());
  parts.password = rangeOf(text, view.encoded_password(), view.has_password());
  parts.host = rangeOf(text, view.encoded_host(), view.has_authority());
  parts.path = rangeOf(text, view.encoded_path(), true);
  parts.query = rangeOf(text, view.encoded_query(), view.has_query());
  parts.fragment = rangeOf(text, view.encoded_fragment(), view.has_fragment());
  // The parser lets "//host:80x" pass, as a path that starts with "x".
  if (parts.authority.exists && parts.path.size > 0 && text[parts.path.begin] != '/') {
    reason = "the host and port are followed by something else than a path";
    return std::nullopt;
  }
  if (!parsePort({view.port().data(), view.port().size()}, parts.port)) {
    reason = "the port is above 65535";
    return std::nullopt;
  }
  if (!isUsableHost(partOf(text, parts.host))) {
    reason = "the host holds a delimiter or a control character";
    return std::nullopt;
  }
  return parts;
}

std::string resolveReference(std::string_view base, const URLRanges& baseParts,
                             std::string_view reference, const URLRanges& parts) {
  const bool takesAuthority = parts.authority.exists;
  const bool takesPath = takesAuthority || parts.path.size > 0;
  const bool takesQuery = takesPath || parts.query.exists;

  std::string text;
  text.reserve(base.size() + reference.size());
  text += base.substr(0, baseParts.scheme.exists ? baseParts.scheme.end() + 1 : 0);
  const bool hasAuthority = takesAuthority || baseParts.authority.exists;
  if (hasAuthority) {
    text += "//";
    text += takesAuthority ? partOf(reference, parts.authority) : partOf(base, baseParts.authority);
  }
  const std::string_view basePath = partOf(base, baseParts.path);
  if (takesPath) {
    const std::string_view path = partOf(reference, parts.path);
    const std::string merged = removingDotSegments(
        takesAuthority ? std::string(path)
                       : mergedPath(basePath, baseParts.authority.exists, path));
    // Without an authority "//" would start one.
    if (!hasAuthority && merged.starts_with("//")) text += "/.";
    text += merged;
  } else {
    text += basePath;
  }
  const auto appendPart = [&text](char mark, const URLRange& range, std::string_view whole) {
    if (range.exists) (text += mark) += partOf(whole, range);
  };
  if (takesQuery) {
    appendPart('?', parts.query, reference);
  } else {
    appendPart('?', baseParts.query, base);
  }
  appendPart('#', parts.fragment, reference);
  return text;
}

}  // namespace tarn::detail
