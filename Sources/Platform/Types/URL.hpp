#pragma once

#include <Platform/Types/Error.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {
namespace detail {
struct URLRange;
}

/// Text that is not a URL: carries the parser's reason, and the text without user information.
class MalformedURLError : public CodedError {
 public:
  MalformedURLError(std::string_view text, std::string_view reason);

  std::string message() const override { return message_; }
  std::int64_t code() const noexcept override { return 0; }

 private:
  std::string message_;
};

/// An immutable URI reference (RFC 3986), with the base that it is relative to where it has one.
///
/// Copying shares one representation and `absoluteString()` answers a reference, so URLs are cheap
/// to pass around. The text is kept as given; nothing is normalised, except that dot segments go
/// when a relative reference is resolved against a base. Callable from any thread.
class URL {
 public:
  /// Throws `MalformedURLError` where `parse` answers nothing.
  explicit URL(std::string_view text);
  /// empty()
  URL() noexcept : URL(empty()) {}
  // Only copies: a moved-from URL would have no representation.
  URL(const URL&) noexcept = default;
  URL& operator=(const URL&) noexcept = default;
  ~URL() = default;

  /// Nothing where `text` is empty or no URI reference, or has a port above 65535. Characters
  /// outside of ASCII, spaces and control characters have to come percent-encoded.
  static std::optional<URL> parse(std::string_view text);
  /// As above, resolved against `base` by RFC 3986 section 5.2; text with a scheme of its own
  /// leaves the base aside, and empty text stands for the base without its fragment.
  static std::optional<URL> parse(std::string_view text, const URL& relativeTo);
  /// "file:///..." of a path of the file system; a relative path starts at the current directory.
  static URL fileURL(std::string_view path);
  /// "/": stands for the address of a request that has no usable one.
  static const URL& empty();

  const std::string& absoluteString() const noexcept;
  const std::string& relativeString() const noexcept;
  std::optional<URL> baseURL() const;
  URL absoluteURL() const;

  /// The parts of the resolved URL, percent-decoded unless said otherwise.
  std::optional<std::string> scheme() const;  ///< in lower case
  std::optional<std::string> user() const;
  std::optional<std::string> password() const;
  std::optional<std::string> host() const;  ///< an IPv6 address in brackets; never empty
  std::optional<int> port() const noexcept;
  std::string path() const;  ///< a trailing slash stays
  std::string percentEncodedPath() const;
  std::optional<std::string> query() const;     ///< still encoded
  std::optional<std::string> fragment() const;  ///< still encoded

  /// "/" for an absolute path, then the decoded segments; repeated and trailing slashes add none.
  std::vector<std::string> pathComponents() const;
  /// "/" for the root, empty for an empty path.
  std::string lastPathComponent() const;
  /// Without the dot; empty where there is none.
  std::string pathExtension() const;
  /// This URL, absolute, with a decoded component (slashes in it separate) at the end of its path.
  URL appendingPathComponent(std::string_view component) const;
  /// This URL, absolute, up to the slash in front of its last component; a root stays.
  URL deletingLastPathComponent() const;

  bool isFileURL() const noexcept;
  /// `absoluteString()` without user and password, for logs and errors.
  std::string redacted() const;
  /// What printing shows: `absoluteString()`.
  const std::string& description() const noexcept { return absoluteString(); }

  /// Equal: the same text relative to an equal base.
  friend bool operator==(const URL& left, const URL& right) noexcept;

 private:
  struct Representation;
  friend class URLComponents;

  explicit URL(std::shared_ptr<const Representation> representation) noexcept;
  static std::optional<URL> make(std::string text, const URL* base, std::string& reason);
  std::optional<std::string> decoded(const detail::URLRange& range) const;
  std::optional<std::string> encoded(const detail::URLRange& range) const;
  URL replacingPath(std::string path) const;

  std::shared_ptr<const Representation> representation_;
};

}  // namespace tarn

template <>
struct std::hash<tarn::URL> {
  std::size_t operator()(const tarn::URL& url) const noexcept;
};
