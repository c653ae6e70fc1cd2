#pragma once

#include <Platform/Types/AnyValue.hpp>
#include <Platform/Types/SourceLocation.hpp>

#include <chrono>
#include <map>
#include <string>

namespace tarn {

/// How grave a log line is: `fault` is a defect of the program, `error` a failure it has to live
/// with.
enum class LogLevel { debug, error, fault };

/// Named values beside a log line.
using LogDetails = std::map<std::string, AnyValue>;

/// One line of the log.
struct LogEntry {
  LogLevel level;
  std::string subsystem;
  std::string category;
  std::string message;
  LogDetails details;
  SourceLocation location;
  std::chrono::system_clock::time_point time;
};

}  // namespace tarn
