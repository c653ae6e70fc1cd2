#include <Platform/Files/UniformType.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using Type = std::optional<std::string>;

/// Each test starts a process of its own: the database is read on the first question.
class UniformTypeTests : public testing::Test {
 protected:
  UniformTypeTests() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static void expectInAFreshProcess(const std::function<bool()>& holds) {
    EXPECT_EXIT(std::_Exit(holds() ? 0 : 1), testing::ExitedWithCode(0), "");
  }
};

TEST_F(UniformTypeTests, ComesFromTheDatabaseThatTheEnvironmentNames) {
  expectInAFreshProcess([] {
    const test::TemporaryDirectory directory;
    std::filesystem::create_directories(directory.file("mime"));
    test::writeFile(directory.file("mime/globs2"), "50:application/x-tea:*.tea\n");
    const test::ScopedEnvironment home("XDG_DATA_HOME", directory.file("none"));
    const test::ScopedEnvironment directories("XDG_DATA_DIRS",
                                              directory.file("none") + ":" + directory.path());
    return preferredMIMEType("TEA") == Type("application/x-tea") &&
           preferredMIMEType("png") == Type("image/png") &&
           preferredMIMEType("sage") == std::nullopt && preferredMIMEType("") == std::nullopt;
  });
}

TEST_F(UniformTypeTests, IsACommonTypeWhereThereIsNoDatabase) {
  expectInAFreshProcess([] {
    const test::ScopedEnvironment home("XDG_DATA_HOME", "/nonexistent");
    const test::ScopedEnvironment directories("XDG_DATA_DIRS", "/nonexistent");
    return preferredMIMEType("html") == Type("text/html") &&
           preferredMIMEType("nobody-knows-this") == std::nullopt;
  });
}

TEST_F(UniformTypeTests, TheDatabaseIsReadOnce) {
  expectInAFreshProcess([] {
    const test::TemporaryDirectory directory;
    std::filesystem::create_directories(directory.file("mime"));
    test::writeFile(directory.file("mime/globs2"), "50:application/x-tea:*.tea\n");
    const test::ScopedEnvironment directories("XDG_DATA_DIRS", directory.path());
    std::vector<std::thread> threads;
    std::vector<Type> types(8);
    for (Type& type : types) threads.emplace_back([&type] { type = preferredMIMEType("tea"); });
    for (auto& thread : threads) thread.join();
    test::writeFile(directory.file("mime/globs2"), "50:application/x-mug:*.tea\n");
    types.push_back(preferredMIMEType("tea"));
    return types == std::vector<Type>(9, "application/x-tea");
  });
}

}  // namespace
}  // namespace tarn
