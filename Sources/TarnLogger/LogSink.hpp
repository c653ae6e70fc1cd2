#pragma once

#include <TarnLogger/LogEntry.hpp>

#include <cstddef>
#include <memory>
#include <string>

namespace tarn {

/// Where log lines go.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// Lines below this level are not passed to the sink; asked anew for every line. Default: every
  /// line.
  virtual LogLevel minimumLevel() const noexcept { return LogLevel::debug; }

  /// Takes one line. Called on the thread that logs, from several threads at once and never under a
  /// lock; a line that is logged from within is passed on like any other. What it throws is
  /// dropped.
  virtual void write(const LogEntry& entry) = 0;

  /// Lines of this level and above on stderr, coloured where that is a terminal.
  static std::shared_ptr<LogSink> standardError(LogLevel minimumLevel);

  /// Lines of this level and above in a file; at `maximumBytes` it is renamed and a new one begun,
  /// and `files` old ones are kept. Throws std::exception where the file can't be opened.
  static std::shared_ptr<LogSink> rotatingFile(const std::string& path, std::size_t maximumBytes,
                                               std::size_t files, LogLevel minimumLevel);
};

}  // namespace tarn
