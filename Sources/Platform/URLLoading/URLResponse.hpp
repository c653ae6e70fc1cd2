#pragma once

#include <Platform/Types/URL.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace tarn {

/// What is known of an answer beside its bytes. Immutable; shared between threads.
class URLResponse {
 public:
  /// `expectedContentLength` is -1 where it is unknown.
  URLResponse(URL url, std::optional<std::string> mimeType, std::int64_t expectedContentLength,
              std::optional<std::string> textEncodingName);
  virtual ~URLResponse() = default;
  URLResponse(const URLResponse&) = delete;
  URLResponse& operator=(const URLResponse&) = delete;

  const URL& url() const noexcept { return url_; }
  /// Lower case, without parameters; absent where the answer does not say.
  const std::optional<std::string>& mimeType() const noexcept { return mimeType_; }
  /// Bytes of the body, or -1 where they are unknown, as for a decoded content coding.
  std::int64_t expectedContentLength() const noexcept { return expectedContentLength_; }
  /// The charset of the answer in lower case; absent where the answer does not say.
  const std::optional<std::string>& textEncodingName() const noexcept { return textEncodingName_; }
  /// A name under which the body can be saved: never empty, never a path, at most 255 bytes.
  std::string suggestedFilename() const;

 protected:
  /// The name that the answer itself gives, before it is made safe.
  virtual std::optional<std::string> declaredFilename() const { return std::nullopt; }

 private:
  URL url_;
  std::optional<std::string> mimeType_;
  std::int64_t expectedContentLength_;
  std::optional<std::string> textEncodingName_;
};

}  // namespace tarn
