#pragma once

#include <Tambour/AppError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>

#include <cstdint>
#include <string>

namespace tarn {

/// Why zlib could not compress or decompress.
class GZipError final : public AppError, public ErrorLoggable {
 public:
  enum class Case { stream, data, memory, buffer, version, unknown };

  /// From a zlib return code and zlib's message; a null message, or one that is no UTF-8, reads
  /// "unknown gzip error".
  GZipError(std::int32_t code, const char* message);

  Case kind() const noexcept { return case_; }
  /// What zlib said.
  const std::string& zlibMessage() const noexcept { return zlibMessage_; }
  /// What zlib returned.
  std::int32_t zlibCode() const noexcept { return zlibCode_; }

  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(case_); }
  std::string logMessage() const override { return message(); }

 private:
  Case case_;
  std::int32_t zlibCode_;
  std::string zlibMessage_;
};

}  // namespace tarn
