#pragma once

#include <string>
#include <utility>

namespace tarn {

/// A media type: one of the named ones or any other text (RFC 9110, 8.3.1).
struct HTTPMediaType {
  std::string rawValue;

  explicit HTTPMediaType(std::string rawValue) : rawValue(std::move(rawValue)) {}
  friend bool operator==(const HTTPMediaType&, const HTTPMediaType&) = default;

  static const HTTPMediaType json;
  static const HTTPMediaType textPlain;
  static const HTTPMediaType multipartFormData;
  static const HTTPMediaType applicationOctetStream;
  static const HTTPMediaType imagePNG;
  static const HTTPMediaType imageJPEG;
  static const HTTPMediaType pdf;
  static const HTTPMediaType gzip;
  static const HTTPMediaType xml;
  static const HTTPMediaType any;
};

inline const HTTPMediaType HTTPMediaType::json{"application/json"};
inline const HTTPMediaType HTTPMediaType::textPlain{"text/plain"};
inline const HTTPMediaType HTTPMediaType::multipartFormData{"multipart/form-data"};
inline const HTTPMediaType HTTPMediaType::applicationOctetStream{"application/octet-stream"};
inline const HTTPMediaType HTTPMediaType::imagePNG{"image/png"};
// Not "image/jpeg": kept, servers are set up for this text.
inline const HTTPMediaType HTTPMediaType::imageJPEG{"application/jpeg"};
inline const HTTPMediaType HTTPMediaType::pdf{"application/pdf"};
inline const HTTPMediaType HTTPMediaType::gzip{"application/gzip"};
inline const HTTPMediaType HTTPMediaType::xml{"application/xml"};
inline const HTTPMediaType HTTPMediaType::any{"*/*"};

}  // namespace tarn
