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

class SpdlogSink final : public LogSink {
 public:
  SpdlogSink(spdlog::sink_ptr sink, LogLevel minimumLevel)
      : logger_("tarn", std::move(sink)), minimumLevel_(minimumLevel) {
    logger_.set_level(spdlog::level::trace);
    logger_.flush_on(spdlog::level::err);
    logger_.set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ %v (%s:%#)");
  }

  LogLevel minimumLevel() const noexcept override { return minimumLevel_; }

  void write(const LogEntry& entry) override {
    const auto& at = entry.location;
    logger_.log(entry.time, spdlog::source_loc(at.file, at.line, at.function),
                spdlogLevel(entry.level), render(entry));
  }

 private:
  spdlog::logger logger_;
  LogLevel minimumLevel_;
};

}  // namespace

std::shared_ptr<LogSink> LogSink::standardError(LogLevel minimumLevel) {
  return std::make_shared<SpdlogSink>(std::make_shared<spdlog::sinks::stderr_color_sink_mt>(),
                                      minimumLevel);
}

std::shared_ptr<LogSink> LogSink::rotatingFile(const std::string& path, std::size_t maximumBytes,
                                               std::size_t files, LogLevel minimumLevel) {
  return std::make_shared<SpdlogSink>(
      std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, maximumBytes, files),
      minimumLevel);
}

}  // namespace tarn
