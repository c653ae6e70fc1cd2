#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {
class HTTPURLResponse;
}

namespace tarn::detail {

/// What it takes to go on with a download: lines of text, so that it can be read where it is found.
struct ResumeData {
  URLRequest request;      // without the fields that ask for a range
  std::string validator;   // what If-Range says: a strong entity tag or a date
  std::int64_t byteCount;  // of the kept file, at least 1
  std::string file;        // its name in the temporary directory

  Data encoded() const;
  /// Nothing unless it is whole and sound: it may come from anywhere.
  static std::optional<ResumeData> decode(const Data& data);

  /// The request for the bytes that are missing.
  URLRequest rangeRequest() const;
};

/// What If-Range would have to say to go on with this answer; nothing where that is not possible.
std::optional<std::string> resumeValidator(const URLRequest& request,
                                           const HTTPURLResponse& answer);

/// Where an answer to a request for a range goes on.
struct ContentRange {
  std::int64_t first;
  std::int64_t last;
  std::int64_t total;  // -1 where it is unknown

  /// "bytes 5-9/10" (RFC 9110, 14.4); nothing for all else.
  static std::optional<ContentRange> parse(std::string_view value) noexcept;
};

}  // namespace tarn::detail
