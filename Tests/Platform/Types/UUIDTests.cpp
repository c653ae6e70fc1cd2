#include <Platform/Types/UUID.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <vector>

namespace tarn {
namespace {

constexpr UUID::Bytes counting = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                  0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

TEST(UUIDTests, WritesUpperCaseGroups) {
  EXPECT_EQ(UUID(counting).uuidString(), "00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(UUID(counting).description(), "00112233-4455-6677-8899-AABBCCDDEEFF");
}

TEST(UUIDTests, RandomOnesAreVersion4OfTheStandardVariant) {
  for (int round = 0; round < 1000; ++round) {
    const std::string text = UUID().uuidString();
    ASSERT_EQ(text.size(), 36u);
    for (std::size_t index = 0; index < text.size(); ++index) {
      const bool isHyphen = index == 8 || index == 13 || index == 18 || index == 23;
      ASSERT_EQ(text[index] == '-', isHyphen) << text;
      ASSERT_TRUE(isHyphen ||
                  std::string("0123456789ABCDEF").find(text[index]) != std::string::npos)
          << text;
    }
    ASSERT_EQ(text[14], '4') << text;
    ASSERT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
  }
}

TEST(UUIDTests, EveryFreeBitVaries) {
  UUID::Bytes ones{};
  UUID::Bytes zeros{};
  for (int round = 0; round < 1000; ++round) {
    const UUID uuid;
    for (std::size_t index = 0; index < ones.size(); ++index) {
      ones[index] = static_cast<std::uint8_t>(ones[index] | uuid.bytes()[index]);
      zeros[index] = static_cast<std::uint8_t>(zeros[index] | ~uuid.bytes()[index]);
    }
  }
  for (std::size_t index = 0; index < ones.size(); ++index) {
    SCOPED_TRACE(index);
    const int free = index == 6 ? 0x0F : index == 8 ? 0x3F : 0xFF;
    EXPECT_EQ(ones[index] & free, free);
    EXPECT_EQ(zeros[index] & free, free);
  }
}

TEST(UUIDTests, RandomOnesDiffer) {
  std::vector<std::vector<UUID>> made(4);
  std::vector<std::thread> threads;
  for (auto& uuids : made) {
    threads.emplace_back([&uuids] {
      for (int round = 0; round < 2000; ++round) uuids.emplace_back();
    });
  }
  for (auto& thread : threads) thread.join();
  std::unordered_set<UUID> all;
  for (const auto& uuids : made) all.insert(uuids.begin(), uuids.end());
  EXPECT_EQ(all.size(), 8000u);
}

TEST(UUIDTests, ChildProcessMakesOthersThanItsParent) {
  const UUID before;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const UUID uuid;
    const bool written = write(ends[1], uuid.bytes().data(), 16) == 16;
    _exit(written ? 0 : 1);
  }
  const UUID parents;
  UUID::Bytes childs{};
  EXPECT_EQ(read(ends[0], childs.data(), childs.size()), 16);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  close(ends[0]);
  close(ends[1]);
  EXPECT_NE(UUID(childs), parents);
  EXPECT_NE(UUID(childs), before);
}

TEST(UUIDTests, ParsesWhatItWrites) {
  const UUID uuid;
  EXPECT_EQ(UUID::parse(uuid.uuidString()), uuid);
  EXPECT_EQ(UUID::parse("00112233-4455-6677-8899-aabbccddeeff"), UUID(counting));
  EXPECT_EQ(UUID::parse("00112233-4455-6677-8899-AaBbCcDdEeFf"), UUID(counting));
}

TEST(UUIDTests, RefusesOtherText) {
  const char* rows[] = {
      "",
      "00112233-4455-6677-8899-AABBCCDDEEF",
      "00112233-4455-6677-8899-AABBCCDDEEFF0",
      "001122334455-6677-8899-AABBCCDDEEFF00",
      "0011223344556677-8899-AABBCCDDEEFF000",
      "00112233-4455-6677-8899-AABBCCDDEEFG",
      "G0112233-4455-6677-8899-AABBCCDDEEFF",
      "{0112233-4455-6677-8899-AABBCCDDEEF}",
      "00112233-4455-6677-8899 AABBCCDDEEFF",
      "0011223-34455-6677-8899-AABBCCDDEEFF",
      " 0112233-4455-6677-8899-AABBCCDDEEFF",
      "00112233445566778899AABBCCDDEEFF",
      "0x112233-4455-6677-8899-AABBCCDDEEFF",
  };
  for (const char* text : rows) {
    SCOPED_TRACE(text);
    EXPECT_EQ(UUID::parse(text), std::nullopt);
  }
}

TEST(UUIDTests, OrdersByBytes) {
  auto higher = counting;
  higher[15] = 0;
  higher[0] = 1;
  EXPECT_LT(UUID(counting), UUID(higher));
  EXPECT_EQ(UUID(counting), UUID(counting));
  EXPECT_NE(UUID(counting), UUID(higher));
  EXPECT_EQ(std::hash<UUID>()(UUID(counting)), std::hash<UUID>()(UUID(counting)));
  EXPECT_EQ((std::set<UUID>{UUID(higher), UUID(counting)}.begin()->bytes()), counting);
}

}  // namespace
}  // namespace tarn
