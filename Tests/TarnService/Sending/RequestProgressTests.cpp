#include <TarnService/Sending/RequestProgress.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace tarn {
namespace {

TEST(RequestProgressTests, PercentCompletedIsAFractionWhereTheTotalIsKnown) {
  struct Row {
    std::int64_t completed;
    std::int64_t total;
    std::optional<float> fraction;
  };
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  for (const Row row :
       {Row{0, 4, 0.0f}, Row{1, 4, 0.25f}, Row{4, 4, 1.0f}, Row{6, 4, 1.5f}, Row{most, most, 1.0f},
        Row{5, 0, std::nullopt}, Row{5, -1, std::nullopt}, Row{0, 0, std::nullopt}}) {
    SCOPED_TRACE(testing::Message() << row.completed << " of " << row.total);
    EXPECT_EQ((RequestProgress{row.completed, row.total}.percentCompleted()), row.fraction);
  }
}

TEST(RequestProgressTests, TheDivisionIsOfSinglePrecision) {
  EXPECT_EQ((RequestProgress{16777217, 16777217 * 3}.percentCompleted()),
            static_cast<float>(16777217) / static_cast<float>(16777217 * 3));
  static_assert(
      std::is_same_v<decltype(RequestProgress().percentCompleted()), std::optional<float>>);
}

}  // namespace
}  // namespace tarn
