#include <Support/LogRecorder.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnLogger/Logger.hpp>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <thread>

namespace tarn::test {
namespace {

const Logger& subject() {
  static const Logger logger("Subject");
  return logger;
}

TEST(LogRecorderTests, RecordsWhileItLives) {
  const LogRecorder outer;
  {
    const LogRecorder inner;
    subject().error("one");
    subject().debug("two");
    EXPECT_EQ(inner.messages(LogLevel::error), std::vector<std::string>{"one"});
    EXPECT_EQ(inner.messages(LogLevel::debug), std::vector<std::string>{"two"});
    EXPECT_TRUE(inner.messages(LogLevel::fault).empty());
  }
  Logger::setDefaultSink(nullptr);
  subject().error("three");
  EXPECT_EQ(outer.messages(LogLevel::error), (std::vector<std::string>{"one", "three"}));
}

TEST(LogRecorderTests, KeepsStandardErrorQuietAndGivesItBack) {
  testing::internal::CaptureStderr();
  {
    const LogRecorder recorder;
    subject().fault("hushed line");
  }
  subject().fault("audible line");
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(text.find("hushed line"), std::string::npos) << text;
  EXPECT_NE(text.find("audible line"), std::string::npos) << text;
}

TEST(LogRecorderTests, WaitsForLinesOfOtherThreads) {
  const LogRecorder recorder;
  std::thread writer([] {
    for (int round = 0; round < 3; ++round) subject().debug("again");
  });
  EXPECT_TRUE(recorder.waitForMessage(LogLevel::debug, "again", 3));
  EXPECT_TRUE(recorder.waitFor(3));
  writer.join();
}

TEST(LogRecorderTests, GivesUpOnLinesThatNeverCome) {
  const LogRecorder recorder;
  subject().debug("once");
  constexpr std::chrono::milliseconds moment{1};
  EXPECT_FALSE(recorder.waitFor(2, moment));
  EXPECT_FALSE(recorder.waitForMessage(LogLevel::error, "once", 1, moment));
  EXPECT_FALSE(recorder.waitForMessage(LogLevel::debug, "once", 2, moment));
}

// Lets a test play the fixture's part and look at its verdict.
class Police : public ServiceTest {
 public:
  using ServiceTest::checkLog;
  using ServiceTest::expectLog;
  using ServiceTest::TearDown;

 private:
  void TestBody() override {}
};

TEST(ServiceTestTests, PassesExpectedLines) {
  Police police;
  police.expectLog(LogLevel::error, "known");
  police.expectLog(LogLevel::error, "known");
  police.expectLog(LogLevel::fault, "grave");
  subject().error("known");
  subject().fault("grave");
  subject().error("known");
  subject().debug("nobody asks for debug lines");
  police.TearDown();
}

TEST(ServiceTestTests, FailsOnAnUnexpectedError) {
  Police police;
  subject().error("surprise");
  EXPECT_NONFATAL_FAILURE(police.TearDown(), "Unexpected error in the log: surprise");
}

TEST(ServiceTestTests, FailsOnAnUnexpectedFault) {
  Police police;
  police.expectLog(LogLevel::error, "surprise");
  subject().error("surprise");
  subject().fault("surprise");
  EXPECT_NONFATAL_FAILURE(police.TearDown(), "Unexpected fault in the log: surprise");
}

TEST(ServiceTestTests, FailsOnALineThatComesOnceTooOften) {
  Police police;
  police.expectLog(LogLevel::error, "known");
  subject().error("known");
  subject().error("known");
  EXPECT_NONFATAL_FAILURE(police.TearDown(), "Unexpected error in the log: known");
}

TEST(ServiceTestTests, FailsOnAnExpectedLineThatNeverComes) {
  Police police;
  police.expectLog(LogLevel::error, "promised");
  EXPECT_NONFATAL_FAILURE(police.checkLog(std::chrono::milliseconds(1)),
                          "The log lacks this line: promised");
}

}  // namespace
}  // namespace tarn::test
