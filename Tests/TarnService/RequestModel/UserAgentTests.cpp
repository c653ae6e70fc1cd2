#include <Platform/Files/Bundle.hpp>
#include <Platform/Files/ProcessInfo.hpp>
#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/RequestModel/UserAgent.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace tarn {
namespace {

using Info = Bundle::InfoDictionary;

const Info shop = {{"CFBundleExecutable", "Shop"},
                   {"CFBundleIdentifier", "ShopBundleID"},
                   {"CFBundleVersion", "417"},
                   {"CFBundleShortVersionString", "2.3"}};
const Info library = {{"CFBundleShortVersionString", "5.1.0"}};

void setUp(const std::optional<Info>& mainInfo, const std::optional<Info>& libraryInfo) {
  Bundle::main().setInfoDictionary(mainInfo);
  Bundle::library().setInfoDictionary(libraryInfo);
  ProcessInfo::processInfo().setOperatingSystemVersion(OperatingSystemVersion{14, 2, 0});
}

// The text is computed once in a process, so that each expectation has a process of its own. What
// the process shows on stderr is printed when it is not what it should be.
class UserAgentDeathTests : public testing::Test {
 protected:
  UserAgentDeathTests() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

  static void expectUserAgent(const std::string& expected, const std::function<void()>& prepare) {
    EXPECT_EXIT(
        {
          prepare();
          std::fputs(userAgent().c_str(), stderr);
          std::exit(userAgent() == expected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "")
        << "expected: " << expected;
  }
};

TEST_F(UserAgentDeathTests, NamesTheApplicationTheSystemAndTheLibrary) {
  expectUserAgent("Shop/2.3 (ShopBundleID; build:417; iOS 14.2.0) TarnService/5.1.0",
                  [] { setUp(shop, library); });
}

TEST_F(UserAgentDeathTests, IsTheLibrarysNameWithoutAnInfoDictionary) {
  expectUserAgent("TarnService", [] { setUp(std::nullopt, library); });
}

TEST_F(UserAgentDeathTests, SaysUnknownForWhatIsMissing) {
  expectUserAgent("Unknown/Unknown (Unknown; build:Unknown; iOS 14.2.0) TarnService/5.1.0",
                  [] { setUp(Info{}, library); });
  for (const auto& [key, expected] : std::map<std::string, std::string>{
           {"CFBundleExecutable",
            "Unknown/2.3 (ShopBundleID; build:417; iOS 14.2.0) TarnService/5.1.0"},
           {"CFBundleShortVersionString",
            "Shop/Unknown (ShopBundleID; build:417; iOS 14.2.0) TarnService/5.1.0"},
           {"CFBundleIdentifier", "Shop/2.3 (Unknown; build:417; iOS 14.2.0) TarnService/5.1.0"},
           {"CFBundleVersion",
            "Shop/2.3 (ShopBundleID; build:Unknown; iOS 14.2.0) TarnService/5.1.0"}}) {
    Info info = shop;
    info.erase(key);
    expectUserAgent(expected, [&] { setUp(info, library); });
  }
}

TEST_F(UserAgentDeathTests, SaysUnknownForWhatIsNoText) {
  const Info numbers = {{"CFBundleExecutable", true},
                        {"CFBundleIdentifier", std::vector<std::string>{"Shop"}},
                        {"CFBundleVersion", 417},
                        {"CFBundleShortVersionString", 2.3}};
  expectUserAgent("Unknown/Unknown (Unknown; build:Unknown; iOS 14.2.0) TarnService/5.1.0",
                  [&] { setUp(numbers, library); });
}

TEST_F(UserAgentDeathTests, SaysUnknownWithoutTheLibrarysVersion) {
  const std::string expected = "Shop/2.3 (ShopBundleID; build:417; iOS 14.2.0) Unknown";
  expectUserAgent(expected, [] { setUp(shop, std::nullopt); });
  expectUserAgent(expected, [] { setUp(shop, Info{}); });
  expectUserAgent(expected, [] { setUp(shop, Info{{"CFBundleVersion", "5"}}); });
}

TEST_F(UserAgentDeathTests, DescribesTheLibrarysVersionWhateverItIs) {
  expectUserAgent("Shop/2.3 (ShopBundleID; build:417; iOS 14.2.0) TarnService/5.1", [] {
    setUp(shop, Info{{"CFBundleShortVersionString", 5.1}});
  });
}

TEST_F(UserAgentDeathTests, NamesTheProgramOfItsOwnAccord) {
  ProcessInfo& process = ProcessInfo::processInfo();
  const auto version = process.operatingSystemVersion();
  const auto libraryInfo = Bundle::library().infoDictionary();
  ASSERT_TRUE(libraryInfo.has_value());
  expectUserAgent(process.processName() + "/Unknown (Unknown; build:Unknown; iOS " +
                      std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
                      std::to_string(version.patch) + ") TarnService/" +
                      libraryInfo->at("CFBundleShortVersionString").description(),
                  [] {});
}

TEST_F(UserAgentDeathTests, StaysAsItWasFirstRead) {
  EXPECT_EXIT(
      {
        setUp(shop, library);
        const DataGetRequest request(URL("http://localhost/"));
        const std::string first(*request.urlRequest().value("User-Agent"));
        Bundle::main().setInfoDictionary(std::nullopt);
        Bundle::library().setInfoDictionary(std::nullopt);
        ProcessInfo::processInfo().setOperatingSystemVersion(OperatingSystemVersion{15, 0, 0});
        const std::string second(*request.urlRequest().value("User-Agent"));
        std::fprintf(stderr, "%s, then %s", first.c_str(), second.c_str());
        const bool isRight =
            first == "Shop/2.3 (ShopBundleID; build:417; iOS 14.2.0) TarnService/5.1.0" &&
            second == first && userAgent() == first;
        std::exit(isRight ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tarn
