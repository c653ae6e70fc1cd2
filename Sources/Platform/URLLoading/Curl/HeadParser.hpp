#pragma once

#include <Platform/URLLoading/Detail/HeaderFieldsBuilder.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::detail {

/// Puts the head of an answer together from the lines that libcurl hands over: interim answers are
/// passed over, what follows the final head are trailers and ignored, all of it within limits.
class HeadParser {
 public:
  enum class Event { none, headComplete, refused };

  /// One line with its line end. After `refused` no more lines may come; `refusal()` says why.
  Event line(std::string_view text);

  /// A status line has been seen, be it an interim one.
  bool started() const noexcept { return started_; }
  /// The blank line of the final head has been seen.
  bool complete() const noexcept { return complete_; }

  int statusCode() const noexcept { return statusCode_; }
  const std::string& httpVersion() const noexcept { return httpVersion_; }
  /// None before the head is complete.
  const HTTPHeaderFields& fields() const noexcept { return fields_; }
  HTTPHeaderFields takeFields() noexcept { return std::move(fields_); }
  /// What the head says of the length of the body; nothing where it says nothing or the body is
  /// chunked.
  std::optional<std::int64_t> announcedLength() const noexcept;
  /// Over HTTP/1.x only the end of the connection shows that of a body without a length.
  bool bodyEndsWithConnection() const noexcept;
  const char* refusal() const noexcept { return refusal_; }

 private:
  Event startBlock(std::string_view line);
  Event endBlock();
  Event addField(std::string_view line);
  Event refuse(const char* reason) noexcept;

  bool started_ = false;
  bool complete_ = false;
  int statusCode_ = 0;
  std::string httpVersion_;
  HTTPHeaderFields fields_;
  std::unique_ptr<HeaderFieldsBuilder> block_;  // the block being read; null between two
  bool mayFold_ = false;                        // whether the last field may go on in the next line
  std::optional<std::int64_t> contentLength_;
  bool transferCoded_ = false;
  std::size_t lines_ = 0;
  std::size_t bytes_ = 0;
  const char* refusal_ = "";
};

}  // namespace tarn::detail
