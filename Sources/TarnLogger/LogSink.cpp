#include <Platform/Dispatch/Mutex.hpp>
#include <TarnLogger/LogSink.hpp>

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <utility>

namespace tarn {
namespace {

spdlog::level::level_enum spdlogLevel(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return spdlog::level::debug;
    case LogLevel::error:
      return spdlog::level::err;
    case LogLevel::fault:
      break;
  }
  return spdlog::level::critical;
}

// A line break inside a value would let a server's text pass for a log line of its own.
std::string oneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    if (character == '\n')
      line += "\\n";
    else if (character == '\r')
      line += "\\r";
    else
      line += character;
  }
  return line;
}

std::string render(const LogEntry& entry) {
  std::string text = "[" + entry.subsystem;
  if (!entry.category.empty()) text += "." + entry.category;
  text += "] " + oneLine(entry.message);
  for (const auto& [name, value] : entry.details) {
    text += " " + name + "=\"" + oneLine(value.description()) + "\"";
  }
  return text;
}

/// Around a sink without a lock: the one here is free in a child of fork(), and what is written
/// does not stay in a buffer, from which the child would write it again.
class SpdlogSink final : public LogSink {
 public:
  SpdlogSink(spdlog::sink_ptr sink, LogLevel minimumLevel)
      : logger_("tarn", std::move(sink)), minimumLevel_(minimumLevel) {
    logger_.set_level(spdlog::level::trace);
    logger_.flush_on(spdlog::level::trace);
    logger_.set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ %v (%s:%#)");
  }

  LogLevel minimumLevel() const noexcept override { return minimumLevel_; }

  void write(const LogEntry& entry) override TARN_EXCLUDES(mutex_) {
    const auto& at = entry.location;
    const std::string text = render(entry);
    const MutexLock lock(mutex_);
    logger_.log(entry.time, spdlog::source_loc(at.file, at.line, at.function),
                spdlogLevel(entry.level), text);
  }

 private:
  Mutex mutex_;
  spdlog::logger logger_;
  LogLevel minimumLevel_;
};

}  // namespace

std::shared_ptr<LogSink> LogSink::standardError(LogLevel minimumLevel) {
  return std::make_shared<SpdlogSink>(std::make_shared<spdlog::sinks::stderr_color_sink_st>(),
                                      minimumLevel);
}

std::shared_ptr<LogSink> LogSink::rotatingFile(const std::string& path, std::size_t maximumBytes,
                                               std::size_t files, LogLevel minimumLevel) {
  return std::make_shared<SpdlogSink>(
      std::make_shared<spdlog::sinks::rotating_file_sink_st>(path, maximumBytes, files),
      minimumLevel);
}

}  // namespace tarn
