#pragma once
#include <Support/ScriptedServer.hpp>
#include <TarnLogger/LogEntry.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::test {

/// Records the log of the process, from any thread, for as long as it lives; meanwhile nothing of
/// it goes to stderr.
class LogRecorder {
 public:
  LogRecorder();
  ~LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  std::vector<LogEntry> entries() const;
  /// The messages of one level, in the order in which they came.
  std::vector<std::string> messages(LogLevel level) const;

  /// False when fewer than `count` lines, of all levels, came within `limit`.
  [[nodiscard]] bool waitFor(std::size_t count, std::chrono::milliseconds limit = patience) const;
  /// False when the message did not come `times` times within `limit`.
  [[nodiscard]] bool waitForMessage(LogLevel level, std::string_view message, std::size_t times = 1,
                                    std::chrono::milliseconds limit = patience) const;

 private:
  class Sink;
  std::shared_ptr<Sink> sink_;
};

}  // namespace tarn::test
