#pragma once
#include <Support/LogRecorder.hpp>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

namespace tarn::test {

/// The base of every test that sends requests: a line of level error or fault that the test did not
/// expect fails it, and so does an expected line that never comes.
class ServiceTest : public testing::Test {
 protected:
  /// One line, in full. Expected as often as it is named.
  void expectLog(LogLevel level, std::string message) { ++expected_[{level, std::move(message)}]; }

  void TearDown() override { checkLog(patience); }

  /// Waits for expected lines that are still on their way; `limit` for each.
  void checkLog(std::chrono::milliseconds limit) {
    for (const auto& [line, times] : expected_) {
      EXPECT_TRUE(log.waitForMessage(line.first, line.second, times, limit))
          << "The log lacks this line: " << line.second;
    }
    std::map<Line, std::size_t> seen;
    for (const auto& entry : log.entries()) {
      if (entry.level != LogLevel::debug) ++seen[{entry.level, entry.message}];
    }
    for (const auto& [line, times] : seen) {
      const auto expected = expected_.find(line);
      EXPECT_LE(times, expected == expected_.end() ? 0 : expected->second)
          << "Unexpected " << (line.first == LogLevel::fault ? "fault" : "error")
          << " in the log: " << line.second;
    }
  }

  LogRecorder log;

 private:
  using Line = std::pair<LogLevel, std::string>;

  std::map<Line, std::size_t> expected_;
};

}  // namespace tarn::test
