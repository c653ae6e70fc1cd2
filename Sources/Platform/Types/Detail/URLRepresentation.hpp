#pragma once

#include <Platform/Types/URL.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {
namespace detail {

/// Where one part of a URL stands in its text.
struct URLRange {
  std::size_t begin = 0;
  std::size_t size = 0;
  bool exists = false;

  std::size_t end() const noexcept { return begin + size; }
};

/// Where the parts of a URL stand in its text; all encoded.
struct URLRanges {
  URLRange scheme;
  URLRange authority;
  URLRange user;
  URLRange password;
  URLRange host;  // exists with the authority
  URLRange path;  // always exists
  URLRange query;
  URLRange fragment;
  std::optional<int> port;

  /// Nothing where `text` is no URI reference; `reason` then says why.
  static std::optional<URLRanges> parse(std::string_view text, std::string& reason);
};

/// The text of `reference`, which has no scheme, resolved against an absolute URL (RFC 3986,
/// section 5.2.2).
std::string resolveReference(std::string_view base, const URLRanges& baseParts,
                             std::string_view reference, const URLRanges& parts);

}  // namespace detail

// What all copies of a URL share.
struct URL::Representation {
  std::string_view part(const detail::URLRange& range) const noexcept {
    return std::string_view(absolute).substr(range.begin, range.size);
  }

  std::string absolute;
  detail::URLRanges parts;                     // of `absolute`
  std::string relative;                        // only beside a base
  std::shared_ptr<const Representation> base;  // null for none
};

}  // namespace tarn
