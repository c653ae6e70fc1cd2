#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/Detail/UserInformation.hpp>
#include <Platform/Types/FatalError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>
#include <TarnLogger/Logger.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace tarn {
namespace {

void logFatalError(std::string_view message, SourceLocation location);
void logUncaughtError(const Error& error, std::string_view where);
void logTrouble(std::string_view message);

// The sinks of the process. Writers work on a snapshot, so that no sink runs under the lock.
class Sinks {
 public:
  using List = std::vector<std::shared_ptr<LogSink>>;

  // Never destroyed: threads may log while the process exits.
  static Sinks& shared() {
    const detail::NoForkScope scope;  // not while they are being made
    static Sinks& sinks = *new Sinks;
    return sinks;
  }

  std::shared_ptr<const List> snapshot() const {
    const MutexLock lock(mutex_);
    return sinks_;
  }

  void add(std::shared_ptr<LogSink> sink) {
    change([&](List& sinks) { sinks.push_back(std::move(sink)); });
  }

  void remove(const std::shared_ptr<LogSink>& sink) {
    change([&](List& sinks) { std::erase(sinks, sink); });
  }

  void setDefault(std::shared_ptr<LogSink> sink) {
    change([&](List& sinks) TARN_REQUIRES(mutex_) {
      std::erase(sinks, default_);
      if (sink) sinks.push_back(sink);
      default_ = std::move(sink);
    });
  }

 private:
  Sinks() : default_(LogSink::standardError(LogLevel::error)) {
    sinks_ = std::make_shared<const List>(List{default_});
    setFatalErrorHook(logFatalError);
    setUncaughtErrorHook(logUncaughtError);
    setTroubleHook(logTrouble);
  }

  template <class Change>
  void change(Change apply) {
    std::shared_ptr<const List> former;  // let go after the lock: a sink may log as it ends
    const MutexLock lock(mutex_);
    List changed = *sinks_;
    apply(changed);
    former = std::exchange(sinks_, std::make_shared<const List>(std::move(changed)));
  }

  mutable Mutex mutex_;
  std::shared_ptr<const List> sinks_ TARN_GUARDED_BY(mutex_);
  std::shared_ptr<LogSink> default_ TARN_GUARDED_BY(mutex_);
};

// Names and passwords that are part of an address do not get into a log, whoever logs it.
LogDetails redacted(LogDetails details) {
  for (auto& [name, value] : details) {
    auto text = detail::withoutUserInformation(value.description());
    if (text != value.description()) value = std::move(text);
  }
  return details;
}

void emit(LogLevel level, const std::string& subsystem, std::string_view message,
          LogDetails&& details, std::string_view category, SourceLocation location) noexcept {
  try {
    const auto sinks = Sinks::shared().snapshot();
    const auto listens = [level](const auto& sink) { return sink->minimumLevel() <= level; };
    if (std::none_of(sinks->begin(), sinks->end(), listens)) return;
    const LogEntry entry{level,
                         subsystem,
                         std::string(category),
                         detail::withoutUserInformation(message),
                         redacted(std::move(details)),
                         location,
                         std::chrono::system_clock::now()};
    for (const auto& sink : *sinks) {
      if (!listens(sink)) continue;
      try {
        sink->write(entry);
      } catch (...) {
        // The other sinks still get the line; there is nobody left to tell.
      }
    }
  } catch (...) {
    // Out of memory: a lost log line is better than a lost process.
  }
}

const std::string& platformSubsystem() {
  const detail::NoForkScope scope;  // not while it is being made
  static const std::string& name = *new std::string("Platform");
  return name;
}

void logFatalError(std::string_view message, SourceLocation location) {
  emit(LogLevel::fault, platformSubsystem(), message, {}, {}, location);
}

void logUncaughtError(const Error& error, std::string_view where) {
  emit(LogLevel::fault, platformSubsystem(),
       "Uncaught error in " + std::string(where) + ": " + error.localizedDescription(),
       createLogInfoDictionary(error), {}, SourceLocation::current());
}

void logTrouble(std::string_view message) {
  emit(LogLevel::error, platformSubsystem(), message, {}, {}, SourceLocation::current());
}

}  // namespace

Logger::Logger(std::string subsystem) : subsystem_(std::move(subsystem)) { Sinks::shared(); }

void Logger::debug(std::string_view message, LogDetails details, std::string_view category,
                   SourceLocation location) const noexcept {
  emit(LogLevel::debug, subsystem_, message, std::move(details), category, location);
}

void Logger::error(std::string_view message, LogDetails details, std::string_view category,
                   SourceLocation location) const noexcept {
  emit(LogLevel::error, subsystem_, message, std::move(details), category, location);
}

void Logger::fault(std::string_view message, LogDetails details, std::string_view category,
                   SourceLocation location) const noexcept {
  emit(LogLevel::fault, subsystem_, message, std::move(details), category, location);
}

void Logger::error(const Error& error, std::string_view category,
                   SourceLocation location) const noexcept {
  try {
    const auto* loggable = error.as<ErrorLoggable>();
    emit(LogLevel::error, subsystem_, loggable ? loggable->logMessage() : error.message(),
         createLogInfoDictionary(error), category, location);
  } catch (...) {
    // As in emit: the line is lost, the process goes on.
  }
}

bool Logger::isEnabled(LogLevel level) noexcept {
  const auto sinks = Sinks::shared().snapshot();
  return std::any_of(sinks->begin(), sinks->end(),
                     [level](const auto& sink) { return sink->minimumLevel() <= level; });
}

void Logger::install(std::shared_ptr<LogSink> sink) { Sinks::shared().add(std::move(sink)); }
void Logger::remove(const std::shared_ptr<LogSink>& sink) { Sinks::shared().remove(sink); }
void Logger::setDefaultSink(std::shared_ptr<LogSink> sink) {
  Sinks::shared().setDefault(std::move(sink));
}

}  // namespace tarn
