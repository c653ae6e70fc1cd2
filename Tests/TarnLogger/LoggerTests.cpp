#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/URL.hpp>
#include <Support/LogRecorder.hpp>
#include <TarnLogger/ErrorLoggable.hpp>
#include <TarnLogger/Logger.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace tarn {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A sink that is whatever a test wants it to be.
class SinkOf final : public LogSink {
 public:
  explicit SinkOf(std::function<void(const LogEntry&)> write, LogLevel minimum = LogLevel::debug)
      : minimum(minimum), write_(std::move(write)) {}

  LogLevel minimumLevel() const noexcept override { return minimum; }
  void write(const LogEntry& entry) override { write_(entry); }

  std::atomic<LogLevel> minimum;

 private:
  std::function<void(const LogEntry&)> write_;
};

/// Installs a sink for the length of a test.
class Installed {
 public:
  explicit Installed(std::shared_ptr<LogSink> sink) : sink_(std::move(sink)) {
    Logger::install(sink_);
  }
  ~Installed() { Logger::remove(sink_); }
  Installed(const Installed&) = delete;
  Installed& operator=(const Installed&) = delete;

 private:
  std::shared_ptr<LogSink> sink_;
};

class LoggerTests : public testing::Test {
 protected:
  const Logger logger_{"Shop"};
  test::LogRecorder log_;
};

TEST_F(LoggerTests, WritesEveryLevelWithItsSubsystem) {
  logger_.debug("small");
  logger_.error("middling");
  logger_.fault("grave");
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].level, LogLevel::debug);
  EXPECT_EQ(entries[0].message, "small");
  EXPECT_EQ(entries[1].level, LogLevel::error);
  EXPECT_EQ(entries[1].message, "middling");
  EXPECT_EQ(entries[2].level, LogLevel::fault);
  EXPECT_EQ(entries[2].message, "grave");
  for (const auto& entry : entries) EXPECT_EQ(entry.subsystem, "Shop");
}

TEST_F(LoggerTests, PassesDetailsAndCategory) {
  logger_.error("sold out", {{"item", "tea"}, {"left", 0}}, "stock");
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].category, "stock");
  ASSERT_EQ(entries[0].details.size(), 2u);
  EXPECT_EQ(entries[0].details.at("item").description(), "tea");
  ASSERT_NE(entries[0].details.at("left").as<int>(), nullptr);
  EXPECT_EQ(*entries[0].details.at("left").as<int>(), 0);
}

TEST_F(LoggerTests, LeavesUserInformationOfAddressesOut) {
  logger_.error("no answer from https://ann:secret@h/x",
                {{"address", URL("http://ann:secret@h/")}, {"host", "h"}, {"tries", 2}});
  logger_.error(Error(std::runtime_error("http://ann:secret@h/ is down")));
  reportUncaughtError(std::runtime_error("http://ann:secret@h/ is down"), "a completion");
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].message, "no answer from https://h/x");
  EXPECT_EQ(entries[0].details.at("address").description(), "http://h/");
  EXPECT_EQ(entries[0].details.at("host").description(), "h");
  EXPECT_NE(entries[0].details.at("tries").as<int>(), nullptr);
  EXPECT_EQ(entries[1].message, "http://h/ is down");
  EXPECT_EQ(entries[1].details.at("message").description(), "http://h/ is down");
  EXPECT_THAT(entries[2].message, testing::EndsWith("http://h/ is down"));
  EXPECT_EQ(entries[2].details.at("message").description(), "http://h/ is down");
}

TEST_F(LoggerTests, HasNoDetailsAndNoCategoryUnlessTold) {
  logger_.fault("plain");
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_TRUE(entries[0].details.empty());
  EXPECT_EQ(entries[0].category, "");
}

TEST_F(LoggerTests, KnowsTheCallersPlace) {
  const int line = __LINE__ + 1;
  logger_.debug("here");
  logger_.error("there", {}, {}, SourceLocation::in("load(from:)"));
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_THAT(entries[0].location.file, HasSubstr("LoggerTests.cpp"));
  EXPECT_STREQ(entries[0].location.function, "TestBody");
  EXPECT_EQ(entries[0].location.line, line);
  EXPECT_STREQ(entries[1].location.function, "load(from:)");
  EXPECT_EQ(entries[1].location.line, line + 1);
}

TEST_F(LoggerTests, StampsTheTime) {
  const auto before = std::chrono::system_clock::now();
  logger_.debug("tick");
  const auto after = std::chrono::system_clock::now();
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_GE(entries[0].time, before);
  EXPECT_LE(entries[0].time, after);
}

TEST_F(LoggerTests, WritesToAllSinks) {
  std::vector<std::string> seen;
  const Installed second(
      std::make_shared<SinkOf>([&](const LogEntry& entry) { seen.push_back(entry.message); }));
  logger_.debug("everybody");
  EXPECT_THAT(seen, ElementsAre("everybody"));
  EXPECT_THAT(log_.messages(LogLevel::debug), ElementsAre("everybody"));
}

TEST_F(LoggerTests, AThrowingSinkDoesNotTakeTheLineFromTheOthers) {
  const Installed thrower(
      std::make_shared<SinkOf>([](const LogEntry&) { throw std::runtime_error("full disk"); }));
  std::vector<std::string> seen;
  const Installed later(
      std::make_shared<SinkOf>([&](const LogEntry& entry) { seen.push_back(entry.message); }));
  logger_.error("first");
  logger_.error("second");
  EXPECT_THAT(seen, ElementsAre("first", "second"));
  EXPECT_THAT(log_.messages(LogLevel::error), ElementsAre("first", "second"));
}

TEST_F(LoggerTests, ASinkMayLogItself) {
  const Installed chatty(std::make_shared<SinkOf>([&](const LogEntry& entry) {
    if (entry.message == "question") logger_.debug("answer");
  }));
  logger_.error("question");
  EXPECT_THAT(log_.messages(LogLevel::debug), ElementsAre("answer"));
}

TEST_F(LoggerTests, ASinkMayRemoveItself) {
  std::vector<std::string> seen;
  std::shared_ptr<LogSink> once;
  once = std::make_shared<SinkOf>([&](const LogEntry& entry) {
    seen.push_back(entry.message);
    Logger::remove(once);
  });
  Logger::install(once);
  logger_.debug("first");
  logger_.debug("second");
  EXPECT_THAT(seen, ElementsAre("first"));
}

TEST_F(LoggerTests, ARemovedSinkHearsNothing) {
  std::vector<std::string> seen;
  const auto sink =
      std::make_shared<SinkOf>([&](const LogEntry& entry) { seen.push_back(entry.message); });
  Logger::install(sink);
  logger_.debug("before");
  Logger::remove(sink);
  logger_.debug("after");
  EXPECT_THAT(seen, ElementsAre("before"));
  EXPECT_EQ(sink.use_count(), 1);
}

TEST_F(LoggerTests, RemovingAnUnknownSinkChangesNothing) {
  Logger::remove(std::make_shared<SinkOf>([](const LogEntry&) {}));
  logger_.debug("still heard");
  EXPECT_THAT(log_.messages(LogLevel::debug), ElementsAre("still heard"));
}

TEST_F(LoggerTests, KeepsLinesBelowItsLevelFromASink) {
  std::vector<std::string> seen;
  const auto sink = std::make_shared<SinkOf>(
      [&](const LogEntry& entry) { seen.push_back(entry.message); }, LogLevel::error);
  const Installed installed(sink);
  logger_.debug("small");
  logger_.error("middling");
  logger_.fault("grave");
  sink->minimum = LogLevel::fault;  // asked anew for every line
  logger_.error("middling again");
  EXPECT_THAT(seen, ElementsAre("middling", "grave"));
}

TEST(LoggerLevelTests, IsEnabledAsSoonAsOneSinkListens) {
  const Logger logger("Shop");
  Logger::setDefaultSink(nullptr);
  for (const auto level : {LogLevel::debug, LogLevel::error, LogLevel::fault}) {
    EXPECT_FALSE(Logger::isEnabled(level));
  }
  {
    const Installed sink(std::make_shared<SinkOf>([](const LogEntry&) {}, LogLevel::error));
    EXPECT_FALSE(Logger::isEnabled(LogLevel::debug));
    EXPECT_TRUE(Logger::isEnabled(LogLevel::error));
    EXPECT_TRUE(Logger::isEnabled(LogLevel::fault));
  }
  Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
  EXPECT_FALSE(Logger::isEnabled(LogLevel::debug));
  EXPECT_TRUE(Logger::isEnabled(LogLevel::error));
}

TEST(LoggerLevelTests, OnlyErrorsAndFaultsGoToStandardErrorByDefault) {
  Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
  testing::internal::CaptureStderr();
  const Logger logger("Shop");
  logger.debug("small");
  logger.error("middling");
  logger.fault("grave");
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_THAT(text, testing::Not(HasSubstr("small")));
  EXPECT_THAT(text, HasSubstr("middling"));
  EXPECT_THAT(text, HasSubstr("grave"));
}

TEST(LoggerLevelTests, TheDefaultSinkCanBeReplaced) {
  std::vector<std::string> seen;
  Logger::setDefaultSink(
      std::make_shared<SinkOf>([&](const LogEntry& entry) { seen.push_back(entry.message); }));
  const Logger logger("Shop");
  testing::internal::CaptureStderr();
  logger.fault("grave");
  Logger::setDefaultSink(nullptr);
  logger.fault("lost");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(seen, ElementsAre("grave"));
  Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
}

class NoStock final : public CodedError, public ErrorLoggable {
 public:
  std::string message() const override { return "No stock"; }
  std::string domain() const override { return "Shop.NoStock"; }
  std::int64_t code() const noexcept override { return 7; }
  std::string logMessage() const override { return "No stock in the log"; }
  std::optional<LogDetails> additionalLogInfo() const override {
    return LogDetails{{"item", "tea"}};
  }
};

TEST_F(LoggerTests, LogsAnErrorByItsLogMessageAndDetails) {
  logger_.error(Error(NoStock()), "stock");
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].level, LogLevel::error);
  EXPECT_EQ(entries[0].message, "No stock in the log");
  EXPECT_EQ(entries[0].category, "stock");
  EXPECT_EQ(entries[0].details.at("item").description(), "tea");
  EXPECT_EQ(entries[0].details.at("domain").description(), "Shop.NoStock");
}

TEST_F(LoggerTests, LogsAnyOtherErrorByItsMessage) {
  logger_.error(Error(std::runtime_error("out of paper")));
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message, "out of paper");
  EXPECT_EQ(entries[0].details.at("message").description(), "out of paper");
}

TEST_F(LoggerTests, LosesNoLineOfEightThreads) {
  constexpr int threads = 8;
  constexpr int lines = 500;
  {
    std::vector<std::jthread> writers;
    for (int thread = 0; thread < threads; ++thread) {
      writers.emplace_back([this, thread] {
        for (int line = 0; line < lines; ++line) {
          logger_.debug(std::to_string(thread) + ":" + std::to_string(line));
          // Sinks come and go while others write.
          if (line % 100 == 0)
            const Installed passing(std::make_shared<SinkOf>([](const auto&) {}));
        }
      });
    }
  }
  const auto messages = log_.messages(LogLevel::debug);
  EXPECT_EQ(messages.size(), static_cast<std::size_t>(threads * lines));
  const std::set<std::string> different(messages.begin(), messages.end());
  EXPECT_EQ(different.size(), messages.size());
}

TEST_F(LoggerTests, LogsWhatEscapesFromAQueuesItemAsAFault) {
  const DispatchQueue queue("shop.queue");
  queue.async([] { throw NoStock(); });
  ASSERT_TRUE(log_.waitForMessage(LogLevel::fault, "Uncaught error in shop.queue: No stock"));
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].details.at("code").description(), "7");
  EXPECT_EQ(entries[0].details.at("domain").description(), "Shop.NoStock");
  EXPECT_EQ(entries[0].details.at("item").description(), "tea");
  std::atomic<bool> ran = false;
  queue.sync([&] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST_F(LoggerTests, LogsWhatEscapesFromAnOperationAsAFault) {
  OperationQueue queue("shop.operations");
  queue.addOperation([] { throw 5; });
  EXPECT_TRUE(
      log_.waitForMessage(LogLevel::fault, "Uncaught error in shop.operations: unknown exception"));
}

TEST_F(LoggerTests, LogsTroubleAsAnError) {
  reportTrouble("it is slow");
  EXPECT_TRUE(log_.waitForMessage(LogLevel::error, "it is slow"));
}

TEST(LoggerDeathTests, AFatalErrorReachesTheLogAndThenEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const Logger logger("Shop");
        Logger::install(std::make_shared<SinkOf>([](const LogEntry& entry) {
          if (entry.level != LogLevel::fault) return;
          const std::string text = "logged as fault: " + entry.message + " at " +
                                   entry.location.function + ", " + entry.subsystem + "\n";
          std::fputs(text.c_str(), stderr);
        }));
        fatalError("shop is on fire", SourceLocation::in("open()"));
      },
      testing::KilledBySignal(SIGABRT), "logged as fault: shop is on fire at open\\(\\), Platform");
}

TEST(LoggerDeathTests, LinesAreWrittenWhileTheProcessExits) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        static const Logger* logger = new Logger("Shop");
        std::atexit([] { logger->error("closing time"); });
        logger->debug("open");
        std::exit(0);
      },
      testing::ExitedWithCode(0), "closing time");
}

}  // namespace
}  // namespace tarn
