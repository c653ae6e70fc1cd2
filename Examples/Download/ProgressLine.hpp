#pragma once

#include <TarnService/Sending/RequestProgress.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace examples {

/// How far a download has come: a bar in a terminal, elsewhere a line for each tenth.
class ProgressLine {
 public:
  void show(std::int64_t done, std::int64_t expected) {
    const bool isLast = done == expected;
    const std::int64_t step = expected > 0 ? expected / (isTerminal_ ? 100 : 10) : 1 << 20;
    if (!isLast && done - shown_ < step) return;
    shown_ = done;
    const auto fraction = tarn::RequestProgress{done, expected}.percentCompleted();
    const long long bytes = done;
    if (!fraction) {
      std::printf(isTerminal_ ? "\r%lld bytes" : "%lld bytes\n", bytes);
    } else if (isTerminal_) {
      const auto filled = static_cast<std::size_t>(std::clamp(*fraction, 0.0F, 1.0F) * width);
      const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
      std::printf("\r[%s] %3.0f%%", bar.c_str(), *fraction * 100);
    } else {
      std::printf("%lld of %lld bytes\n", bytes, static_cast<long long>(expected));
    }
    std::fflush(stdout);
  }
  void end() const {
    if (isTerminal_ && shown_ > 0) std::puts("");
  }

 private:
  static constexpr std::size_t width = 40;

  const bool isTerminal_ = isatty(STDOUT_FILENO) != 0;
  std::int64_t shown_ = 0;
};

}  // namespace examples
