#include <Tambour/DataRepresentable.hpp>

#include <gtest/gtest.h>

#include <string>

namespace tarn {
namespace {

struct ByValue {
  Data asData() const { return Data("value"); }
};
struct NotConst {
  Data asData() { return {}; }
};
struct OtherResult {
  std::string asData() const { return {}; }
};
struct Nothing {};

static_assert(DataRepresentable<Data>);
static_assert(DataRepresentable<ByValue>);
static_assert(!DataRepresentable<NotConst>);
static_assert(!DataRepresentable<OtherResult>);
static_assert(!DataRepresentable<Nothing>);
static_assert(!DataRepresentable<std::string>);

TEST(DataRepresentableTests, BytesRepresentThemselvesWithoutACopy) {
  const Data data("bytes");
  const Data represented = data.asData();
  EXPECT_EQ(represented, data);
  EXPECT_EQ(represented.bytes(), data.bytes());
}

}  // namespace
}  // namespace tarn
