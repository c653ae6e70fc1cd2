#include <Platform/Dispatch/UniqueFunction.hpp>

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace tarn {
namespace {

static_assert(!std::is_copy_constructible_v<Work>);
static_assert(std::is_nothrow_move_constructible_v<Work>);
static_assert(std::is_nothrow_move_assignable_v<Work>);
static_assert(!std::is_constructible_v<Work, int>);

TEST(UniqueFunctionTests, CallsWithArgumentsAndReturnsResults) {
  UniqueFunction<std::string(std::unique_ptr<int>, const char*)> function =
      [](std::unique_ptr<int> number, const char* text) { return std::to_string(*number) + text; };
  EXPECT_EQ(function(std::make_unique<int>(4), "x"), "4x");
}

TEST(UniqueFunctionTests, OwnsWhatCannotBeCopied) {
  UniqueFunction<int()> function = [number = std::make_unique<int>(9)] { return *number; };
  UniqueFunction<int()> moved = std::move(function);
  EXPECT_FALSE(function);  // NOLINT(bugprone-use-after-move): empty by contract
  EXPECT_EQ(moved(), 9);
}

TEST(UniqueFunctionTests, KeepsLargeCallables) {
  std::array<int, 64> numbers{};
  numbers[63] = 5;
  UniqueFunction<int()> function = [numbers] { return numbers[63]; };
  UniqueFunction<int()> moved;
  moved = std::move(function);
  EXPECT_EQ(moved(), 5);
}

TEST(UniqueFunctionTests, CallingAnEmptyOneThrows) {
  Work empty;
  EXPECT_FALSE(empty);
  EXPECT_THROW(empty(), std::bad_function_call);
  Work moved = [] {};
  const Work taken = std::move(moved);
  // NOLINTNEXTLINE(bugprone-use-after-move): the state after a move is what is tested
  EXPECT_THROW(moved(), std::bad_function_call);
}

TEST(UniqueFunctionTests, DestroysItsCallableExactlyOnce) {
  const auto small = std::make_shared<int>(0);
  std::array<char, 100> padding{};
  {
    Work first = [small] {};
    Work second = [small, padding] { static_cast<void>(padding); };
    EXPECT_EQ(small.use_count(), 3);
    Work third = std::move(first);
    third = std::move(second);
    EXPECT_EQ(small.use_count(), 2);
    third = std::move(*&third);
    EXPECT_TRUE(third);
  }
  EXPECT_EQ(small.use_count(), 1);
}

TEST(UniqueFunctionTests, IgnoresResultsWhereNoneIsWanted) {
  int calls = 0;
  Work work = [&] { return ++calls; };
  work();
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace tarn
