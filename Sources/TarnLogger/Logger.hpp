#pragma once

#include <Platform/Types/Error.hpp>
#include <Platform/Types/SourceLocation.hpp>
#include <TarnLogger/LogEntry.hpp>
#include <TarnLogger/LogSink.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace tarn {

/// Writes the log lines of one subsystem to the sinks of the process.
///
/// Callable from any thread, also while the process exits. Never throws: a line that can't be
/// written is dropped. Without a sink of the application's own, lines of level error and fault go
/// to stderr; debug lines reach only sinks that an application installs. Fatal errors and errors
/// that escape from callbacks are logged as faults, once the process has a logger. User information
/// of addresses ("://user:password@") is left out of messages and details.
class Logger {
 public:
  explicit Logger(std::string subsystem);

  void debug(std::string_view message, LogDetails details = {}, std::string_view category = {},
             SourceLocation location = SourceLocation::current()) const noexcept;
  void error(std::string_view message, LogDetails details = {}, std::string_view category = {},
             SourceLocation location = SourceLocation::current()) const noexcept;
  void fault(std::string_view message, LogDetails details = {}, std::string_view category = {},
             SourceLocation location = SourceLocation::current()) const noexcept;
  /// Logs an error by its own log message and details where it has them.
  void error(const Error& error, std::string_view category = {},
             SourceLocation location = SourceLocation::current()) const noexcept;

  /// Whether any sink takes lines of this level: worth asking before a costly message is put
  /// together.
  static bool isEnabled(LogLevel level) noexcept;

  /// Adds a sink beside the others.
  static void install(std::shared_ptr<LogSink> sink);
  /// Removes a sink that install() added; a line being written to it on another thread may still
  /// end after this.
  static void remove(const std::shared_ptr<LogSink>& sink);
  /// Replaces the sink on stderr that the process starts with; null for none.
  static void setDefaultSink(std::shared_ptr<LogSink> sink);

 private:
  std::string subsystem_;
};

}  // namespace tarn
