#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace tarn::detail {

/// Seconds as caches write them: digits only, and so many that they do not fit count as 2^31 (RFC
/// 9111, 1.2.2). Nothing for all else.
std::optional<std::chrono::seconds> parseDeltaSeconds(std::string_view text) noexcept;

/// What a Cache-Control field says to a private cache, in a request or in an answer (RFC 9111,
/// 5.2). Other directives count for nothing: those for shared caches, `stale-while-revalidate` and
/// `stale-if-error` among them.
struct CacheControl {
  bool noStore = false;
  bool noCache = false;  ///< also where it names fields
  bool mustRevalidate = false;
  bool onlyIfCached = false;
  bool isPublic = false;
  bool isPrivate = false;
  // Of two of the same name the first counts; a number that can't be read is taken for the
  // strictest.
  std::optional<std::chrono::seconds> maxAge;
  std::optional<std::chrono::seconds> minFresh;
  std::optional<std::chrono::seconds> maxStale;  ///< 2^31 where any staleness will do

  static CacheControl parse(std::string_view fieldValue);
};

}  // namespace tarn::detail
