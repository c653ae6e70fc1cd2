#include <Platform/URLLoading/Detail/Recycled.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <thread>

namespace tarn::test {
namespace {

// A class for each test: what one leaves behind the next would find.
template <int test>
struct Block final : detail::Recycled<Block<test>, 2> {
  explicit Block(bool throws = false) {
    address = this;
    if (throws) throw std::runtime_error("not made");
  }
  static inline const void* address = nullptr;  // of the last one
  char content[100] = {};
};

using Blocks = std::set<const void*>;

TEST(Recycled, UsesTheMemoryOfThoseThatWentAgain) {
  auto first = std::make_unique<Block<1>>();
  auto second = std::make_unique<Block<1>>();
  auto third = std::make_unique<Block<1>>();
  const Blocks kept{first.get(), second.get()};
  first.reset();
  second.reset();
  third.reset();  // one too many
  first = std::make_unique<Block<1>>();
  second = std::make_unique<Block<1>>();
  third = std::make_unique<Block<1>>();
  EXPECT_EQ((Blocks{first.get(), second.get()}), kept);
  EXPECT_FALSE(kept.contains(third.get()));
}

TEST(Recycled, UsesTheMemoryOfOneThatWasNotMadeAgain) {
  EXPECT_THROW(Block<2>(true), std::runtime_error);
  EXPECT_THROW(std::make_unique<Block<2>>(true), std::runtime_error);
  const void* const kept = Block<2>::address;
  EXPECT_EQ(std::make_unique<Block<2>>().get(), kept);
}

TEST(Recycled, TheMemoryStaysWithTheThreadThatDestroys) {
  std::unique_ptr<Block<3>> block;
  // The leak check sees that what this thread keeps goes with it.
  std::thread([&] {
    auto other = std::make_unique<Block<3>>();
    block = std::make_unique<Block<3>>();
  }).join();
  const void* const address = block.get();
  block.reset();
  EXPECT_EQ(std::make_unique<Block<3>>().get(), address);
}

}  // namespace
}  // namespace tarn::test
