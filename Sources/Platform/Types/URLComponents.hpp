#pragma once

#include <Platform/Types/URL.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

/// One name of a query, with its value where it has an "=".
struct URLQueryItem {
  std::string name;
  std::optional<std::string> value;

  friend bool operator==(const URLQueryItem&, const URLQueryItem&) = default;
};

/// The parts of a URL, for taking one apart and for putting one together.
///
/// The plain accessors speak decoded text and encode what their part may not hold; those named
/// `percentEncoded...` take and give the text as it stands in the URL. Setters never fail: parts
/// that make no URL show in `url()` answering nothing.
class URLComponents {
 public:
  URLComponents() = default;
  /// The parts of `url`, either of its resolved form or of its own relative text.
  static std::optional<URLComponents> from(const URL& url, bool resolvingAgainstBaseURL = true);
  /// Nothing where `text` is no URI reference.
  static std::optional<URLComponents> from(std::string_view text);

  const std::optional<std::string>& scheme() const noexcept { return scheme_; }
  std::optional<std::string> user() const;
  std::optional<std::string> password() const;
  /// An IPv6 address comes with brackets.
  std::optional<std::string> host() const;
  std::optional<int> port() const noexcept { return port_; }
  std::string path() const;
  const std::string& percentEncodedPath() const noexcept { return path_; }
  std::optional<std::string> query() const;
  const std::optional<std::string>& percentEncodedQuery() const noexcept { return query_; }
  std::optional<std::string> fragment() const;
  /// Decoded names and values; "+" stays "+". Nothing where the URL has no "?".
  std::optional<std::vector<URLQueryItem>> queryItems() const;

  void setScheme(std::optional<std::string> scheme) {
    scheme_ = std::move(scheme);
    origin_.reset();
  }
  void setUser(const std::optional<std::string>& user);
  void setPassword(const std::optional<std::string>& password);
  /// An IPv6 address may come with or without brackets.
  void setHost(const std::optional<std::string>& host);
  void setPort(std::optional<int> port) noexcept {
    port_ = port;
    origin_.reset();
  }
  /// Slashes separate; "%" stands for itself.
  void setPath(std::string_view path);
  void setPercentEncodedPath(std::string path) {
    path_ = std::move(path);
    origin_.reset();
  }
  void setQuery(const std::optional<std::string>& query);
  void setPercentEncodedQuery(std::optional<std::string> query) {
    query_ = std::move(query);
    origin_.reset();
  }
  void setFragment(const std::optional<std::string>& fragment);
  /// Replaces the query: nothing removes it, an empty list leaves "?" alone. "&", "=", "+", ";" and
  /// spaces are encoded too, so that RFC 3986 and form decoders read the same.
  void setQueryItems(const std::optional<std::vector<URLQueryItem>>& items);

  /// Nothing where the parts make no valid URL: a path without leading slash beside a host, one
  /// that starts with "//" without a host, a scheme or an encoded part with characters it may not
  /// hold.
  std::optional<URL> url() const;
  std::optional<std::string> string() const;

 private:
  std::string text() const;
  std::optional<URL> urlLikeOrigin() const;

  // As they stand in the URL, all but the port encoded.
  std::optional<std::string> scheme_;
  std::optional<std::string> user_;
  std::optional<std::string> password_;
  std::optional<std::string> host_;
  std::optional<int> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
  // Where the parts come from, as long as they make a URL with its scheme and authority whatever
  // path, query and fragment, encoded here, they have.
  std::shared_ptr<const URL::Representation> origin_;
};

}  // namespace tarn
