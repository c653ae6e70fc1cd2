#pragma once

#include <Platform/Types/Data.hpp>
#include <Tambour/DataRepresentable.hpp>

#include <concepts>
#include <string>
#include <utility>

namespace tarn {

/// The name of a content coding (RFC 9110, 8.4.1).
struct HTTPContentEncodingType {
  std::string rawValue;

  explicit HTTPContentEncodingType(std::string rawValue) : rawValue(std::move(rawValue)) {}
  friend bool operator==(const HTTPContentEncodingType&, const HTTPContentEncodingType&) = default;

  static const HTTPContentEncodingType gzip;
};

inline const HTTPContentEncodingType HTTPContentEncodingType::gzip{"gzip"};

/// A transformation of body bytes: made from the plain bytes, answers the encoded ones and their
/// coding's name. Making one and encoding may throw.
template <class T>
concept HTTPContentEncoder = DataRepresentable<T> && std::constructible_from<T, Data> &&
    requires(const T& encoder) {
  { encoder.encodingType() } -> std::convertible_to<HTTPContentEncodingType>;
  { encoder.encodedData() } -> std::convertible_to<Data>;
};

/// Supplies what every encoder does alike: its bytes are the encoded ones.
template <class Self>
struct HTTPContentEncoderDefaults {
  Data asData() const { return static_cast<const Self&>(*this).encodedData(); }
};

/// The type of a content encoder as a value, so that a request can choose one as it runs.
class HTTPContentEncoderType {
 public:
  struct Encoded {
    Data data;
    HTTPContentEncodingType encodingType;
  };

  template <HTTPContentEncoder Encoder>
  static HTTPContentEncoderType of() {
    return HTTPContentEncoderType([](Data plain) {
      const Encoder encoder(std::move(plain));
      return Encoded{encoder.asData(), encoder.encodingType()};
    });
  }

  /// Makes an encoder of the type on the plain bytes and encodes them. Throws what the encoder
  /// throws.
  Encoded encode(Data plain) const { return encode_(std::move(plain)); }

 private:
  explicit HTTPContentEncoderType(Encoded (*encode)(Data)) : encode_(encode) {}

  Encoded (*encode_)(Data);
};

}  // namespace tarn
