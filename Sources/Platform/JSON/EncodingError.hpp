#pragma once

#include <Platform/JSON/CodingPath.hpp>
#include <Platform/Types/Error.hpp>

#include <cstdint>
#include <string>

namespace tarn {

/// A value that JSON has no form for: a number that is not finite, an enum value without a name,
/// values nested too deeply.
class EncodingError : public CodedError {
 public:
  static EncodingError invalidValue(CodingPath path, std::string reason);

  const CodingPath& codingPath() const noexcept { return path_; }
  /// The message without the path.
  const std::string& reason() const noexcept { return reason_; }

  std::string message() const override;
  std::int64_t code() const noexcept override { return 0; }

 private:
  EncodingError(CodingPath path, std::string reason);

  CodingPath path_;
  std::string reason_;
};

}  // namespace tarn
