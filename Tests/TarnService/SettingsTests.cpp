#include <TarnService/Settings.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

Data bodyOf(std::size_t size) { return Data(std::string(size, 'x')); }

bool isKept(const std::string& key) { return TarnService::httpDebugData(key).has_value(); }

TEST(SettingsTests, NothingIsSwitchedOnAtFirst) {
  EXPECT_EQ(TarnService::verbosity, HTTPVerbosityLevel::none);
  EXPECT_FALSE(TarnService::shouldLogCurls);
  EXPECT_FALSE(TarnService::isMocked);
  EXPECT_FALSE(TarnService::debugCertificateURLs.has_value());
}

TEST(SettingsTests, LevelsAreInOrder) {
  EXPECT_EQ(static_cast<int>(HTTPVerbosityLevel::none), 0);
  EXPECT_EQ(static_cast<int>(HTTPVerbosityLevel::brief), 1);
  EXPECT_EQ(static_cast<int>(HTTPVerbosityLevel::verbose), 2);
  const std::hash<HTTPVerbosityLevel> hash;
  EXPECT_NE(hash(HTTPVerbosityLevel::brief), hash(HTTPVerbosityLevel::verbose));
}

TEST(BodyStoreTests, GivesTextsAsTextAndOtherBytesAsTheyAre) {
  const struct {
    Data body;
    HTTPDebugData expected;
  } rows[] = {
      {Data("text"), std::string("text")},
      {Data("k\xC3\xA4se"), std::string("k\xC3\xA4se")},
      {Data(std::string("a\0b", 3)), std::string("a\0b", 3)},
      {Data("\xFF\xFE"), Data("\xFF\xFE")},
      {Data("\xC3"), Data("\xC3")},
      {Data(), std::string()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body.view());
    EXPECT_EQ(TarnService::httpDebugData(detail::keepHTTPDebugData(row.body)), row.expected);
  }
}

TEST(BodyStoreTests, KeysAreUUIDsInUpperCase) {
  const std::string key = detail::keepHTTPDebugData(Data("text"));
  EXPECT_EQ(key.size(), 36u);
  EXPECT_EQ(std::ranges::count(key, '-'), 4);
  EXPECT_TRUE(std::ranges::none_of(key, [](unsigned char c) { return std::islower(c) != 0; }))
      << key;
  EXPECT_NE(detail::keepHTTPDebugData(Data("text")), key);
}

TEST(BodyStoreTests, AnUnknownKeyHasNoBody) {
  EXPECT_FALSE(isKept("00000000-0000-0000-0000-000000000000"));
  EXPECT_FALSE(isKept(""));
}

TEST(BodyStoreTests, TheBytesAreSharedNotCopied) {
  const Data body("\xFF, no text");
  const auto kept = TarnService::httpDebugData(detail::keepHTTPDebugData(body));
  EXPECT_EQ(std::get<Data>(kept.value()).bytes(), body.bytes());
}

TEST(BodyStoreTests, TheOldestMakesRoom) {
  const Data large = bodyOf(20 * mebibyte);
  const std::string first = detail::keepHTTPDebugData(Data("first"));
  const std::string second = detail::keepHTTPDebugData(large);
  const std::string third = detail::keepHTTPDebugData(large);
  const std::string fourth = detail::keepHTTPDebugData(large);
  EXPECT_TRUE(isKept(first));
  EXPECT_TRUE(isKept(second));
  const std::string fifth = detail::keepHTTPDebugData(large);
  EXPECT_FALSE(isKept(first));
  EXPECT_FALSE(isKept(second));
  EXPECT_TRUE(isKept(third));
  EXPECT_TRUE(isKept(fourth));
  EXPECT_TRUE(isKept(fifth));
}

TEST(BodyStoreTests, ABodyThatNeverFitsPushesNothingOut) {
  const std::string small = detail::keepHTTPDebugData(Data("small"));
  const std::string huge = detail::keepHTTPDebugData(bodyOf(64 * mebibyte));
  EXPECT_FALSE(isKept(huge));
  EXPECT_TRUE(isKept(small));
}

TEST(BodyStoreTests, TinyBodiesAreBoundedToo) {
  const Data tiny("x");
  const std::string first = detail::keepHTTPDebugData(tiny);
  for (int count = 0; count < 270'000; ++count) detail::keepHTTPDebugData(tiny);
  EXPECT_FALSE(isKept(first));
}

TEST(BodyStoreTests, IsUsedFromSeveralThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      for (int count = 0; count < 200; ++count) {
        const std::string text = std::to_string(thread) + "/" + std::to_string(count);
        EXPECT_EQ(TarnService::httpDebugData(detail::keepHTTPDebugData(Data(text))),
                  HTTPDebugData(text));
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace tarn
