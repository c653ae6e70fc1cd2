#include <Platform/Types/FatalError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class FatalErrorTests : public ::testing::Test {
 protected:
  FatalErrorTests() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~FatalErrorTests() override {
    setFatalErrorHook(nullptr);
    setUncaughtErrorHook(nullptr);
    setTroubleHook(nullptr);
  }
};

std::string reported;

TEST_F(FatalErrorTests, AbortsWithMessageAndPlaceOnStderr) {
  EXPECT_EXIT(fatalError("it broke"), ::testing::KilledBySignal(SIGABRT),
              AllOf(HasSubstr("Fatal error: it broke"), HasSubstr("FatalErrorTests.cpp:")));
}

TEST_F(FatalErrorTests, GivenPlaceIsPrinted) {
  EXPECT_EXIT(fatalError("it broke", {"other.cpp", "run", 12}), ::testing::KilledBySignal(SIGABRT),
              HasSubstr("(other.cpp:12)"));
}

TEST_F(FatalErrorTests, HookSeesTheErrorBeforeTheEnd) {
  EXPECT_EXIT(
      {
        setFatalErrorHook([](std::string_view message, SourceLocation location) {
          std::fprintf(stderr, "hook: %s at line %d\n", std::string(message).c_str(),
                       location.line);
        });
        fatalError("it broke", {"other.cpp", "run", 12});
      },
      ::testing::KilledBySignal(SIGABRT), HasSubstr("hook: it broke at line 12"));
}

TEST_F(FatalErrorTests, FailingHooksDoNotKeepTheProcessAlive) {
  EXPECT_EXIT(
      {
        setFatalErrorHook(
            [](std::string_view, SourceLocation) { throw std::runtime_error("hook"); });
        fatalError("it broke");
      },
      ::testing::KilledBySignal(SIGABRT), HasSubstr("it broke"));
  EXPECT_EXIT(
      {
        setFatalErrorHook([](std::string_view, SourceLocation) { fatalError("inside the hook"); });
        fatalError("it broke");
      },
      ::testing::KilledBySignal(SIGABRT), HasSubstr("inside the hook"));
}

TEST_F(FatalErrorTests, UncaughtErrorIsOneLineOnStderr) {
  ::testing::internal::CaptureStderr();
  reportUncaughtError(std::runtime_error("callback failed"), "a completion");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Uncaught error in a completion: std.runtime_error (1): callback failed\n");
}

TEST_F(FatalErrorTests, UncaughtErrorsTellNoUserInformation) {
  testing::internal::CaptureStderr();
  reportUncaughtError(std::runtime_error("http://ann:secret@h/ is down"), "a completion");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Uncaught error in a completion: std.runtime_error (1): http://h/ is down\n");
}

TEST_F(FatalErrorTests, UncaughtErrorHookReplacesStderr) {
  reported.clear();
  setUncaughtErrorHook([](const Error& error, std::string_view where) {
    reported = std::string(where) + ": " + error.message();
  });
  ::testing::internal::CaptureStderr();
  reportUncaughtError(std::runtime_error("callback failed"), "a completion");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(reported, "a completion: callback failed");
}

TEST_F(FatalErrorTests, ThrowingUncaughtErrorHookIsSurvived) {
  setUncaughtErrorHook([](const Error&, std::string_view) { throw std::runtime_error("hook"); });
  ::testing::internal::CaptureStderr();
  reportUncaughtError(std::runtime_error("callback failed"), "a completion");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Uncaught error that could not be reported\n");
}

TEST_F(FatalErrorTests, TroubleIsOneLineOnStderrUnlessThereIsAHook) {
  ::testing::internal::CaptureStderr();
  reportTrouble("it is slow");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "it is slow\n");
  reported.clear();
  setTroubleHook([](std::string_view message) { reported = message; });
  reportTrouble("it is slow");
  EXPECT_EQ(reported, "it is slow");
  setTroubleHook([](std::string_view) { throw std::runtime_error("hook"); });
  ::testing::internal::CaptureStderr();
  reportTrouble("it is slow");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Trouble that could not be reported\n");
}

TEST_F(FatalErrorTests, SettersAnswerTheHookBefore) {
  const FatalErrorHook fatal = [](std::string_view, SourceLocation) {};
  EXPECT_EQ(setFatalErrorHook(fatal), nullptr);
  EXPECT_EQ(setFatalErrorHook(nullptr), fatal);
  const UncaughtErrorHook uncaught = [](const Error&, std::string_view) {};
  EXPECT_EQ(setUncaughtErrorHook(uncaught), nullptr);
  EXPECT_EQ(setUncaughtErrorHook(nullptr), uncaught);
  const TroubleHook trouble = [](std::string_view) {};
  EXPECT_EQ(setTroubleHook(trouble), nullptr);
  EXPECT_EQ(setTroubleHook(nullptr), trouble);
}

}  // namespace
}  // namespace tarn
