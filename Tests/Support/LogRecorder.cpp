#include <Support/LogRecorder.hpp>
#include <TarnLogger/Logger.hpp>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace tarn::test {

class LogRecorder::Sink final : public LogSink {
 public:
  void write(const LogEntry& entry) override {
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
    changed_.notify_all();
  }

  std::vector<LogEntry> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }

  template <class Condition>
  bool waitUntil(std::chrono::milliseconds limit, Condition condition) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return condition(entries_); });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<LogEntry> entries_;
};

LogRecorder::LogRecorder() : sink_(std::make_shared<Sink>()) {
  Logger::setDefaultSink(nullptr);
  Logger::install(sink_);
}

LogRecorder::~LogRecorder() {
  Logger::remove(sink_);
  Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
}

std::vector<LogEntry> LogRecorder::entries() const { return sink_->entries(); }

std::vector<std::string> LogRecorder::messages(LogLevel level) const {
  std::vector<std::string> messages;
  for (const auto& entry : sink_->entries()) {
    if (entry.level == level) messages.push_back(entry.message);
  }
  return messages;
}

bool LogRecorder::waitFor(std::size_t count, std::chrono::milliseconds limit) const {
  return sink_->waitUntil(limit, [&](const auto& entries) { return entries.size() >= count; });
}

bool LogRecorder::waitForMessage(LogLevel level, std::string_view message, std::size_t times,
                                 std::chrono::milliseconds limit) const {
  return sink_->waitUntil(limit, [&](const auto& entries) {
    const auto count = std::count_if(entries.begin(), entries.end(), [&](const LogEntry& entry) {
      return entry.level == level && entry.message == message;
    });
    return static_cast<std::size_t>(count) >= times;
  });
}

}  // namespace tarn::test
