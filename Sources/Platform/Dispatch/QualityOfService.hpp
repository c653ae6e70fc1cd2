#pragma once

namespace tarn {

/// How soon work is wanted, the most urgent first: where threads are short, more urgent queues go
/// first, and every level still gets a turn. `unspecified` counts as `default_`.
enum class QualityOfService {
  userInteractive,
  userInitiated,
  default_,
  utility,
  background,
  unspecified
};

}  // namespace tarn
