#pragma once
#include <Support/Eventually.hpp>
#include <Support/LogRecorder.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>
#include <utility>

namespace tarn::test {

/// The base of every test that sends requests: a line of level error or fault that the test did not
/// expect fails it, and so does an expected line that never comes, and a file that is left behind.
///
/// Each test has a temporary directory of its own, for the library too.
class ServiceTest : public testing::Test {
 protected:
  /// One line, in full. Expected as often as it is named.
  void expectLog(LogLevel level, std::string message) { ++expected_[{level, std::move(message)}]; }
  /// How many files of downloads the test has got, which it leaves where they are.
  void expectKeptDownloads(std::size_t count) { keptDownloads_ = count; }

  void TearDown() override {
    checkLog(patience);
    // The transport removes its own file a moment after it has handed it on.
    EXPECT_TRUE(eventually([&] { return strayFiles().empty(); }))
        << "Left behind: " << testing::PrintToString(strayFiles());
    EXPECT_EQ(downloads().size(), keptDownloads_) << testing::PrintToString(downloads());
  }

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

  /// The directories in which files of downloads are kept, by name.
  std::vector<std::string> downloads() const { return entries(true); }

 private:
  using Line = std::pair<LogLevel, std::string>;

  std::vector<std::string> strayFiles() const { return entries(false); }
  // Directories of the tests' own go with their owners.
  std::vector<std::string> entries(bool ofDownloads) const {
    std::vector<std::string> found;
    for (const auto& name : fileNames(temporaryFiles.path())) {
      if (name.starts_with("tarn-test-")) continue;
      if (name.starts_with("TarnService-") == ofDownloads) found.push_back(name);
    }
    return found;
  }

  std::map<Line, std::size_t> expected_;
  std::size_t keptDownloads_ = 0;

 protected:
  const TemporaryDirectory temporaryFiles;
  const ScopedEnvironment temporaryVariable{"TMPDIR", temporaryFiles.path()};
  LogRecorder log;
};

}  // namespace tarn::test
