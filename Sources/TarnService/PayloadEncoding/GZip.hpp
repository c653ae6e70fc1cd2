#pragma once

#include <Platform/Types/Data.hpp>
#include <TarnService/RequestModel/HTTPContentEncoder.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace tarn {

/// How hard to compress: a level of zlib's, -1 to 9.
struct GZipCompression {
  std::int32_t rawValue;

  explicit constexpr GZipCompression(std::int32_t rawValue) noexcept : rawValue(rawValue) {}
  friend bool operator==(GZipCompression, GZipCompression) = default;

  static const GZipCompression none;
  static const GZipCompression bestSpeed;
  static const GZipCompression bestCompression;
  static const GZipCompression default_;
};

inline constexpr GZipCompression GZipCompression::none{0};
inline constexpr GZipCompression GZipCompression::bestSpeed{1};
inline constexpr GZipCompression GZipCompression::bestCompression{9};
inline constexpr GZipCompression GZipCompression::default_{-1};

/// Compresses bytes to one gzip member (RFC 1952).
struct GZipArchiver {
  Data uncompressedData;

  explicit GZipArchiver(Data data) : uncompressedData(std::move(data)) {}

  /// The member; data that is empty or begins with the gzip signature comes back unchanged.
  ///
  /// Throws GZipError: `stream` for a level that zlib does not know. Callable from any thread.
  Data zip(GZipCompression with) const;
};

/// Decompresses a gzip member (RFC 1952).
struct GZipUnarchiver {
  Data compressedData;

  explicit GZipUnarchiver(Data data) : compressedData(std::move(data)) {}

  /// The content of the first member; data that is empty or does not begin with the gzip signature
  /// comes back unchanged, so that a caller may unzip whatever came.
  ///
  /// What follows the first member, further members included, is ignored. Give `maximumSize`, in
  /// bytes of content, wherever the data comes from somebody else: a member may unpack to a
  /// thousand times its size, and with a maximum no more than that is ever held.
  ///
  /// Throws GZipError: `data` for damage, `buffer` for a member that is cut short and for content
  /// over the maximum, the latter with a message that names it. Callable from any thread.
  Data unzip(std::optional<std::size_t> maximumSize = std::nullopt) const;
};

/// Sends a body gzip-compressed, at the default level: a request's `contentEncoder` answers
/// `HTTPContentEncoderType::of<HTTPGzipContentEncoder>()`.
///
/// `encodedData()` throws GZipError. Callable from any thread.
struct HTTPGzipContentEncoder : HTTPContentEncoderDefaults<HTTPGzipContentEncoder> {
  Data originalData;

  explicit HTTPGzipContentEncoder(Data originalData) : originalData(std::move(originalData)) {}

  HTTPContentEncodingType encodingType() const { return HTTPContentEncodingType::gzip; }
  Data encodedData() const { return GZipArchiver(originalData).zip(GZipCompression::default_); }
};

}  // namespace tarn
