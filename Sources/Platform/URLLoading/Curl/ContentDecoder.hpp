#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace tarn::detail {

/// Undoes the content codings of one body (RFC 9110, 8.4): gzip and deflate, the latter with or
/// without its zlib frame.
///
/// Input comes in pieces; output is pulled into a buffer of the caller, so that a small input can't
/// grow without limit.
class ContentDecoder {
 public:
  /// For a Content-Encoding value. Nothing where there is nothing to undo: no coding, or one that
  /// is unknown, in which case the body is handed over as it came.
  static std::unique_ptr<ContentDecoder> forCodings(std::string_view contentEncoding);

  virtual ~ContentDecoder() = default;
  ContentDecoder(const ContentDecoder&) = delete;
  ContentDecoder& operator=(const ContentDecoder&) = delete;

  /// More of the body, once all before has been used up. The bytes have to live until then, or
  /// until `keepInput()`.
  virtual void feed(const std::uint8_t* bytes, std::size_t size) noexcept = 0;
  /// Copies what is left of the bytes last fed.
  virtual void keepInput() = 0;
  /// Decoded bytes into `buffer`: fewer than `size` only where more input is needed. Nothing where
  /// the body is corrupt.
  virtual std::optional<std::size_t> read(std::uint8_t* buffer, std::size_t size) = 0;
  /// Whether the body may end here: every coding has come to its end, or no byte ever came.
  virtual bool isComplete() const noexcept = 0;

 protected:
  ContentDecoder() = default;
};

}  // namespace tarn::detail
