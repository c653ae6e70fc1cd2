#pragma once

#include <Tambour/AppError.hpp>

namespace tarn {

/// Why a future has no value, where its producer did not say.
class FutureError final : public AppError {
 public:
  enum class Case {
    timedOut,   ///< A wait ended before the future was settled; the future itself goes on.
    cancelled,  ///< It was cancelled, and its producer had no way of its own to stop.
    broken,     ///< Its producer went away without settling it.
  };

  static FutureError timedOut() { return FutureError(Case::timedOut); }
  static FutureError cancelled() { return FutureError(Case::cancelled); }
  static FutureError broken() { return FutureError(Case::broken); }

  Case kind() const noexcept { return case_; }
  std::string message() const override;
  /// The position of the case.
  std::int64_t code() const noexcept override { return static_cast<std::int64_t>(case_); }

 private:
  explicit FutureError(Case kind) noexcept : case_(kind) {}

  Case case_;
};

}  // namespace tarn
