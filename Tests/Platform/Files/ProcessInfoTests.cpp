#include <Platform/Files/ProcessInfo.hpp>

#include <gtest/gtest.h>

#include <string>
#include <sys/utsname.h>
#include <unistd.h>

namespace tarn {
namespace {

TEST(ProcessInfoTests, ParsesKernelReleases) {
  struct Row {
    const char* release;
    OperatingSystemVersion expected;
  };
  const Row rows[] = {
      {"6.1.0-18-amd64", {6, 1, 0}},  {"5.15.146.1-microsoft-standard-WSL2", {5, 15, 146}},
      {"4.19.0+", {4, 19, 0}},        {"6.8", {6, 8, 0}},
      {"6.8-rc1", {6, 8, 0}},         {"7", {7, 0, 0}},
      {"6.1.x", {6, 1, 0}},           {"6..1", {6, 0, 0}},
      {"6.-1.2", {6, 0, 0}},          {"", {0, 0, 0}},
      {"amd64", {0, 0, 0}},           {".1.2", {0, 0, 0}},
      {"-1.2.3", {0, 0, 0}},          {"99999999999.1.2", {0, 0, 0}},
      {"6.99999999999.2", {6, 0, 0}}, {"2147483647.0.1", {2147483647, 0, 1}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.release);
    EXPECT_EQ(detail::parseKernelRelease(row.release), row.expected);
  }
}

TEST(ProcessInfoTests, VersionIsTheKernelsUnlessSet) {
  auto& info = ProcessInfo::processInfo();
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const auto kernel = detail::parseKernelRelease(names.release);
  EXPECT_GT(kernel.major, 0);
  EXPECT_EQ(info.operatingSystemVersion(), kernel);
  info.setOperatingSystemVersion(OperatingSystemVersion{14, 2, 0});
  EXPECT_EQ(info.operatingSystemVersion(), (OperatingSystemVersion{14, 2, 0}));
  info.setOperatingSystemVersion(std::nullopt);
  EXPECT_EQ(info.operatingSystemVersion(), kernel);
}

TEST(ProcessInfoTests, NamesTheProcess) {
  const std::string name = ProcessInfo::processInfo().processName();
  EXPECT_EQ(name, program_invocation_short_name);
  EXPECT_EQ(name.find('/'), std::string::npos);
  EXPECT_EQ(ProcessInfo::processInfo().processIdentifier(), getpid());
  EXPECT_EQ(&ProcessInfo::processInfo(), &ProcessInfo::processInfo());
}

}  // namespace
}  // namespace tarn
