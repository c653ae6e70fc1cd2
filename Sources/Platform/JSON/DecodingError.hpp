#pragma once

#include <Platform/JSON/CodingPath.hpp>
#include <Platform/Types/Error.hpp>

#include <cstdint>
#include <string>

namespace tarn {

/// Why a document could not be decoded, and where: "items[3].price: expected a number, found the
/// string \"12,50\"".
class DecodingError : public CodedError {
 public:
  enum class Case {
    /// A value of another kind stands there.
    typeMismatch,
    /// null stands where a value is needed.
    valueNotFound,
    /// An object lacks a key.
    keyNotFound,
    /// The text is no JSON, or a value has the right kind but no meaning: a number out of range, a
    /// date that is none.
    dataCorrupted,
  };

  static DecodingError typeMismatch(CodingPath path, std::string reason);
  static DecodingError valueNotFound(CodingPath path, std::string reason);
  /// `path` leads to the object.
  static DecodingError keyNotFound(std::string key, CodingPath path);
  static DecodingError dataCorrupted(CodingPath path, std::string reason);

  Case kind() const noexcept { return case_; }
  /// To the value, or to the object that lacks the key.
  const CodingPath& codingPath() const noexcept { return path_; }
  /// The missing key of `keyNotFound`; empty otherwise.
  const std::string& key() const noexcept { return key_; }
  /// The message without the path.
  const std::string& reason() const noexcept { return reason_; }

  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override;

 private:
  DecodingError(Case kind, CodingPath path, std::string key, std::string reason);

  Case case_;
  CodingPath path_;
  std::string key_;
  std::string reason_;
};

}  // namespace tarn
