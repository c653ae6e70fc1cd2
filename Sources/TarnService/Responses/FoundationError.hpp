#pragma once

#include <Tambour/AppError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>

#include <cstdint>
#include <string>

namespace tarn {

/// A failure of the transport by its number, with a readable message for every number that is
/// known.
class CFNetworkErrors final : public AppError, public ErrorLoggable {
 public:
  explicit CFNetworkErrors(std::int32_t rawValue) noexcept : rawValue_(rawValue) {}

  std::int32_t rawValue() const noexcept { return rawValue_; }

  std::string message() const override;
  std::string domain() const override { return "CFNetwork.CFNetworkErrors"; }
  /// The number itself.
  std::int64_t code() const noexcept override { return rawValue_; }
  std::string logMessage() const override { return message(); }

  friend bool operator==(const CFNetworkErrors& left, const CFNetworkErrors& right) noexcept {
    return left.rawValue_ == right.rawValue_;
  }

 private:
  std::int32_t rawValue_;
};

}  // namespace tarn
