#include <Support/System.hpp>
#include <TarnLogger/LogSink.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <exception>

namespace tarn {
namespace {

using testing::HasSubstr;
using testing::Not;

LogEntry entryOf(LogLevel level, std::string message, LogDetails details = {}) {
  return {level,
          "Shop",
          "stock",
          std::move(message),
          std::move(details),
          {"Shelf.cpp", "fill(_:)", 42},
          std::chrono::system_clock::now()};
}

std::string printed(const LogEntry& entry) {
  testing::internal::CaptureStderr();
  const auto sink = LogSink::standardError(LogLevel::debug);
  sink->write(entry);
  // Lines below the level error may wait in a buffer until a graver one comes.
  sink->write(entryOf(LogLevel::fault, "end of the test"));
  return testing::internal::GetCapturedStderr();
}

TEST(LogSinkTests, TellsWhatItIsToldToTake) {
  for (const auto level : {LogLevel::debug, LogLevel::error, LogLevel::fault}) {
    EXPECT_EQ(LogSink::standardError(level)->minimumLevel(), level);
  }
}

TEST(LogSinkTests, PrintsOneLineWithEverythingInIt) {
  const std::string text =
      printed(entryOf(LogLevel::error, "sold out", {{"item", "tea"}, {"left", 0}}));
  const std::string line = text.substr(0, text.find('\n'));
  EXPECT_THAT(line, HasSubstr("error"));
  EXPECT_THAT(line, HasSubstr("[Shop.stock] sold out item=\"tea\" left=\"0\" (Shelf.cpp:42)"));
}

TEST(LogSinkTests, NamesTheLevels) {
  EXPECT_THAT(printed(entryOf(LogLevel::debug, "x")), HasSubstr("debug"));
  EXPECT_THAT(printed(entryOf(LogLevel::fault, "x")), HasSubstr("critical"));
}

TEST(LogSinkTests, LetsNoLineBreakThrough) {
  const std::string text = printed(entryOf(LogLevel::error, "one\n[Shop] forged\r\ntwo",
                                           {{"body", "three\n[Shop] forged too"}}));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;  // this line and the last one
  EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 0) << text;
  EXPECT_THAT(text, HasSubstr("one\\n[Shop] forged\\r\\ntwo"));
  EXPECT_THAT(text, HasSubstr("body=\"three\\n[Shop] forged too\""));
}

TEST(LogSinkTests, TakesTextThatLooksLikeAFormat) {
  EXPECT_THAT(printed(entryOf(LogLevel::error, "100 % of {} and {0} and %v")),
              HasSubstr("100 % of {} and {0} and %v"));
}

TEST(LogSinkTests, WritesToAFile) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.file("shop.log");
  const auto sink = LogSink::rotatingFile(path, 1 << 20, 3, LogLevel::error);
  EXPECT_EQ(sink->minimumLevel(), LogLevel::error);
  sink->write(entryOf(LogLevel::error, "first\nbroken"));
  sink->write(entryOf(LogLevel::fault, "second"));
  const std::string text = test::readFile(path);
  EXPECT_THAT(text, HasSubstr("[Shop.stock] first\\nbroken (Shelf.cpp:42)\n"));
  EXPECT_THAT(text, HasSubstr("[Shop.stock] second (Shelf.cpp:42)\n"));
}

TEST(LogSinkTests, RotatesAFullFileAndKeepsAsManyAsItIsTold) {
  const test::TemporaryDirectory directory;
  const auto sink = LogSink::rotatingFile(directory.file("shop.log"), 400, 2, LogLevel::debug);
  for (int round = 0; round < 12; ++round) {
    sink->write(entryOf(LogLevel::fault, std::string(250, 'x') + std::to_string(round)));
  }
  EXPECT_THAT(test::readFile(directory.file("shop.log")), HasSubstr("x11 "));
  EXPECT_THAT(test::readFile(directory.file("shop.1.log")), HasSubstr("x10 "));
  EXPECT_THAT(test::readFile(directory.file("shop.2.log")), HasSubstr("x9 "));
  EXPECT_FALSE(test::fileExists(directory.file("shop.3.log")));
  EXPECT_THAT(test::readFile(directory.file("shop.log")), Not(HasSubstr("x10 ")));
}

TEST(LogSinkTests, ThrowsWhereTheFileCannotBeOpened) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("in the way"), "");
  EXPECT_THROW(
      LogSink::rotatingFile(directory.file("in the way") + "/shop.log", 400, 2, LogLevel::debug),
      std::exception);
}

}  // namespace
}  // namespace tarn
