#pragma once

#include <Platform/URLLoading/HTTPHeaderFields.hpp>
#include <Platform/URLLoading/URLResponse.hpp>

#include <string_view>

namespace tarn {

/// The head of an HTTP answer. Immutable; shared between threads.
class HTTPURLResponse final : public URLResponse {
 public:
  /// Type, charset and length are taken from the header fields; `httpVersion` is "HTTP/1.1",
  /// "HTTP/2" and the like.
  HTTPURLResponse(URL url, int statusCode, std::string httpVersion, HTTPHeaderFields headerFields);
  /// As above, with a length that the fields do not tell: -1 where the body is decoded on its way.
  HTTPURLResponse(URL url, int statusCode, std::string httpVersion, HTTPHeaderFields headerFields,
                  std::int64_t expectedContentLength);

  int statusCode() const noexcept { return statusCode_; }
  const std::string& httpVersion() const noexcept { return httpVersion_; }
  const HTTPHeaderFields& allHeaderFields() const noexcept { return headerFields_; }
  std::optional<std::string> textEncodingName() const override;

 private:
  std::string_view contentType() const noexcept;
  std::string_view declaredType() const noexcept override;
  std::optional<std::string> declaredFilename() const override;

  int statusCode_;
  std::string httpVersion_;
  HTTPHeaderFields headerFields_;
};

}  // namespace tarn
