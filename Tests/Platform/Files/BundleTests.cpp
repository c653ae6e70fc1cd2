#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/ProcessInfo.hpp>

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace tarn {
namespace {

class BundleTests : public ::testing::Test {
 protected:
  ~BundleTests() override {
    Bundle::main().setInfoDictionary(mainInfo_);
    Bundle::library().setInfoDictionary(libraryInfo_);
  }

 private:
  std::optional<Bundle::InfoDictionary> mainInfo_ = Bundle::main().infoDictionary();
  std::optional<Bundle::InfoDictionary> libraryInfo_ = Bundle::library().infoDictionary();
};

TEST_F(BundleTests, KeysAreThePublishedOnes) {
  EXPECT_STREQ(kCFBundleExecutableKey, "CFBundleExecutable");
  EXPECT_STREQ(kCFBundleIdentifierKey, "CFBundleIdentifier");
  EXPECT_STREQ(kCFBundleVersionKey, "CFBundleVersion");
  EXPECT_STREQ(kCFBundleShortVersionStringKey, "CFBundleShortVersionString");
}

TEST_F(BundleTests, MainHasOnlyTheExecutableAtFirst) {
  EXPECT_EQ(
      Bundle::main().infoDictionary(),
      (Bundle::InfoDictionary{{"CFBundleExecutable", ProcessInfo::processInfo().processName()}}));
}

TEST_F(BundleTests, LibraryHasItsVersion) {
  const auto info = Bundle::library().infoDictionary();
  ASSERT_TRUE(info);
  ASSERT_EQ(info->size(), 1u);
  const auto* version = info->at("CFBundleShortVersionString").as<std::string>();
  ASSERT_NE(version, nullptr);
  int major = -1;
  int minor = -1;
  int patch = -1;
  char rest = 0;
  EXPECT_EQ(std::sscanf(version->c_str(), "%d.%d.%d%c", &major, &minor, &patch, &rest), 3)
      << *version;
}

TEST_F(BundleTests, AnswersWhatIsSet) {
  const Bundle::InfoDictionary info = {{kCFBundleExecutableKey, "Shop"},
                                       {kCFBundleVersionKey, 417}};
  Bundle::main().setInfoDictionary(info);
  const auto answered = Bundle::main().infoDictionary();
  EXPECT_EQ(answered, info);
  EXPECT_NE(answered->at(kCFBundleVersionKey).as<int>(), nullptr);
  EXPECT_NE(Bundle::library().infoDictionary(), info);

  Bundle::main().setInfoDictionary(std::nullopt);
  EXPECT_EQ(Bundle::main().infoDictionary(), std::nullopt);
}

TEST_F(BundleTests, EachBundleIsOneObject) {
  EXPECT_EQ(&Bundle::main(), &Bundle::main());
  EXPECT_EQ(&Bundle::library(), &Bundle::library());
  EXPECT_NE(&Bundle::main(), &Bundle::library());
}

TEST_F(BundleTests, ReadAndSetOnSeveralThreads) {
  std::thread setter([] {
    for (int round = 0; round < 500; ++round)
      Bundle::main().setInfoDictionary({{{kCFBundleVersionKey, round}}});
  });
  for (int round = 0; round < 500; ++round) {
    const auto info = Bundle::main().infoDictionary();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->size(), 1u);
  }
  setter.join();
  EXPECT_EQ(Bundle::main().infoDictionary()->at(kCFBundleVersionKey).description(), "499");
}

}  // namespace
}  // namespace tarn
