#include <Support/LogRecorder.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/RequestModel/Completion.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

constexpr auto secondCall = "A completion was called a second time; the call is dropped";

using CompletionTests = test::ServiceTest;

static_assert(std::is_convertible_v<void (*)(int), Completion<int>>);
static_assert(!std::is_constructible_v<Completion<int>, void (*)(std::string)>);
static_assert(!std::is_constructible_v<Completion<int>, int>);

TEST_F(CompletionTests, RunsWithTheResponse) {
  std::string received;
  const Completion<std::string> completion = [&](std::string response) { received = response; };
  completion("tea");
  EXPECT_EQ(received, "tea");
}

TEST_F(CompletionTests, RunsOnceAndLogsTheSecondCall) {
  expectLog(LogLevel::fault, secondCall);
  int calls = 0;
  const Completion<int> completion = [&](int) { ++calls; };
  completion(1);
  EXPECT_TRUE(log.entries().empty());
  completion(2);
  EXPECT_EQ(calls, 1);
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].subsystem, "TarnService");
}

TEST_F(CompletionTests, CopiesAreTheSameCompletion) {
  expectLog(LogLevel::fault, secondCall);
  int sum = 0;
  const Completion<int> completion = [&](int value) { sum += value; };
  const Completion<int> copy = completion;
  copy(1);
  completion(10);
  EXPECT_EQ(sum, 1);
}

TEST_F(CompletionTests, RunsOnceWhateverTheThreads) {
  constexpr int threads = 8;
  for (int call = 1; call < threads; ++call) expectLog(LogLevel::fault, secondCall);
  std::atomic<int> calls = 0;
  const Completion<int> completion = [&](int) { ++calls; };
  {
    std::vector<std::jthread> callers;
    for (int thread = 0; thread < threads; ++thread) {
      callers.emplace_back([completion, thread] { completion(thread); });
    }
  }
  EXPECT_EQ(calls, 1);
}

TEST_F(CompletionTests, ACallFromWithinIsASecondCall) {
  expectLog(LogLevel::fault, secondCall);
  int calls = 0;
  std::optional<Completion<int>> completion;
  completion.emplace([&](int) {
    ++calls;
    (*completion)(2);
  });
  (*completion)(1);
  EXPECT_EQ(calls, 1);
}

TEST_F(CompletionTests, LetsGoOfWhatItHoldsOnceItHasRun) {
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> watch = held;
  int seen = 0;
  const Completion<int> completion = [held = std::move(held), &seen](int) { seen = *held; };
  EXPECT_FALSE(watch.expired());
  completion(1);
  EXPECT_EQ(seen, 7);
  EXPECT_TRUE(watch.expired());
}

TEST_F(CompletionTests, LetsGoOfWhatItHoldsWhenTheLastCopyGoes) {
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> watch = held;
  {
    std::optional<Completion<int>> copy;
    {
      const Completion<int> completion = [held = std::move(held)](int) {};
      copy = completion;
    }
    EXPECT_FALSE(watch.expired());
  }
  EXPECT_TRUE(watch.expired());
}

TEST_F(CompletionTests, PassesOnWhatItThrowsAndHasRunAllTheSame) {
  expectLog(LogLevel::fault, secondCall);
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> watch = held;
  const Completion<int> completion = [held = std::move(held)](int) {
    throw std::runtime_error("mine");
  };
  EXPECT_THROW(completion(1), std::runtime_error);
  EXPECT_TRUE(watch.expired());
  completion(2);
}

TEST_F(CompletionTests, TakesACallableThatCanOnlyBeMoved) {
  int seen = 0;
  const Completion<int> completion = [owned = std::make_unique<int>(7), &seen](int value) {
    seen = *owned + value;
  };
  completion(1);
  EXPECT_EQ(seen, 8);
}

TEST_F(CompletionTests, TakesACallableHoweverItWantsItsArgument) {
  std::string byReference;
  Completion<std::string>([&](const std::string& text) { byReference = text; })("tea");
  EXPECT_EQ(byReference, "tea");
  std::string generic;
  Completion<std::string>([&](auto&& text) { generic = text; })("tea");
  EXPECT_EQ(generic, "tea");
}

TEST_F(CompletionTests, MovesTheResponse) {
  std::unique_ptr<int> received;
  const Completion<std::unique_ptr<int>> completion = [&](std::unique_ptr<int> response) {
    received = std::move(response);
  };
  completion(std::make_unique<int>(7));
  ASSERT_NE(received, nullptr);
  EXPECT_EQ(*received, 7);
}

}  // namespace
}  // namespace tarn
