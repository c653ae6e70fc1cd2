#include <Tambour/AnyDataRepresentable.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

namespace tarn {
namespace {

struct Counted {
  std::shared_ptr<int> count = std::make_shared<int>(0);
  Data asData() const { return Data(std::to_string(++*count)); }
};

static_assert(DataRepresentable<AnyDataRepresentable>);
static_assert(std::is_convertible_v<Data, AnyDataRepresentable>);
static_assert(!std::is_constructible_v<AnyDataRepresentable, std::string>);
static_assert(std::is_copy_constructible_v<AnyDataRepresentable>);

TEST(AnyDataRepresentableTests, KeepsBytesWithoutCopyingThem) {
  const Data data("bytes");
  const AnyDataRepresentable any = data;
  EXPECT_EQ(any.asData().bytes(), data.bytes());
  const AnyDataRepresentable copy = any;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.asData().bytes(), data.bytes());
}

TEST(AnyDataRepresentableTests, AsksTheValueEachTime) {
  const Counted counted;
  const AnyDataRepresentable any = counted;
  EXPECT_EQ(*counted.count, 0);
  EXPECT_EQ(any.asData(), Data("1"));
  EXPECT_EQ(any.asData(), Data("2"));
}

}  // namespace
}  // namespace tarn
