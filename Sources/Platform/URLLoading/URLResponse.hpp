#pragma once

#include <Platform/Types/URL.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// What is known of an answer beside its bytes. Immutable; shared between threads.
class URLResponse {
 public:
  /// `expectedContentLength` is -1 where it is unknown.
  URLResponse(URL url, std::optional<std::string> mimeType, std::int64_t expectedContentLength,
              std::optional<std::string> textEncodingName);
  virtual ~URLResponse();
  URLResponse(const URLResponse&) = delete;
  URLResponse& operator=(const URLResponse&) = delete;

  const URL& url() const noexcept { return url_; }
  /// A copy in lower case, without parameters; absent where the answer does not say.
  std::optional<std::string> mimeType() const;
  /// Bytes of the body, or -1 where they are unknown, as for a decoded content coding.
  std::int64_t expectedContentLength() const noexcept { return expectedContentLength_; }
  /// A copy of the charset in lower case; absent where the answer does not say.
  virtual std::optional<std::string> textEncodingName() const;
  /// A name under which the body can be saved: never empty, never a path, at most 255 bytes.
  std::string suggestedFilename() const;

 protected:
  /// Of an answer that tells its type by itself.
  URLResponse(URL url, std::int64_t expectedContentLength);

  /// The type as the answer gives it, without parameters; empty where it does not say.
  virtual std::string_view declaredType() const noexcept;
  /// The name that the answer itself gives, before it is made safe.
  virtual std::optional<std::string> declaredFilename() const { return std::nullopt; }

 private:
  struct Type;

  URL url_;
  std::int64_t expectedContentLength_;
  std::unique_ptr<const Type> type_;  // null where the answer tells it by itself
};

}  // namespace tarn
