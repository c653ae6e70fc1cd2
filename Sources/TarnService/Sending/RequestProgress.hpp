#pragma once

#include <cstdint>
#include <optional>

namespace tarn {

/// How far a download has come.
struct RequestProgress {
  /// Bytes transferred so far.
  std::int64_t completedBytes = 0;
  /// Bytes expected in all; not positive where that is unknown.
  std::int64_t totalBytes = 0;

  /// A fraction between 0 and 1, whatever the name says (kept: callers multiply it). Nothing where
  /// the total is unknown.
  std::optional<float> percentCompleted() const noexcept {
    if (totalBytes <= 0) return std::nullopt;
    return static_cast<float>(completedBytes) / static_cast<float>(totalBytes);
  }

  friend bool operator==(const RequestProgress&, const RequestProgress&) = default;
};

}  // namespace tarn
