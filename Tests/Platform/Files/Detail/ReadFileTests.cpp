#include <Platform/Files/Detail/ReadFile.hpp>
#include <Platform/Types/URLError.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn {
namespace {

template <class F>
std::int64_t codeOf(F body) {
  try {
    body();
  } catch (const URLError& error) {
    return error.code();
  }
  return 0;
}
std::int64_t codeOfReading(const std::string& path) {
  return codeOf([&] { detail::readFile(path); });
}

TEST(ReadFileTests, ReadsEveryByte) {
  const test::TemporaryDirectory directory;
  for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 3'000'000u}) {
    SCOPED_TRACE(size);
    std::string content;
    for (std::size_t i = 0; i < size; ++i) content += static_cast<char>(i * 31 / 7);
    test::writeFile(directory.file("a"), content);
    EXPECT_TRUE(detail::readFile(directory.file("a")) == Data(content));
  }
}

TEST(ReadFileTests, ReadsFilesThatSayTheyAreEmpty) {
  EXPECT_TRUE(detail::readFile("/proc/self/status").view().starts_with("Name:"));
}

TEST(ReadFileTests, ClosesWhatItOpens) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("a"), "content");
  const std::size_t before = test::openFileDescriptorCount();
  detail::readFile(directory.file("a"));
  codeOfReading(directory.path());
  EXPECT_EQ(test::openFileDescriptorCount(), before);
}

TEST(ReadFileTests, SaysWhyAFileCannotBeRead) {
  struct Row {
    std::string path;
    std::int32_t code;
  };
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("a"), "content");
  ASSERT_EQ(::mkfifo(directory.file("pipe").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("loop", directory.file("loop").c_str()), 0);
  for (const Row& row :
       {Row{"", URLError::fileDoesNotExist},
        Row{directory.file("none"), URLError::fileDoesNotExist},
        Row{directory.file("a/b"), URLError::fileDoesNotExist},
        Row{directory.file("a") + std::string("\0b", 2), URLError::fileDoesNotExist},
        Row{directory.path(), URLError::fileIsDirectory},
        Row{directory.file("pipe"), URLError::cannotOpenFile},
        Row{directory.file("loop"), URLError::cannotOpenFile},
        Row{directory.file(std::string(300, 'a')), URLError::cannotOpenFile},
        Row{"/dev/null", URLError::cannotOpenFile}}) {
    EXPECT_EQ(codeOfReading(row.path), row.code) << row.path;
  }
}

TEST(ReadFileTests, NeedsThePermission) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.file("a");
  test::writeFile(path, "content");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  // In a process of its own, since nothing is forbidden to root.
  constexpr uid_t nobody = 65534;
  EXPECT_EXIT(
      {
        if (::getuid() == 0 && ::setresuid(nobody, nobody, nobody) != 0) std::_Exit(2);
        std::_Exit(codeOfReading(path) == URLError::noPermissionsToReadFile ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ReadFileTests, AFileLargerThanMemoryIsAnError) {
  const int file = ::memfd_create("huge", MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  ASSERT_EQ(::ftruncate(file, std::numeric_limits<off_t>::max()), 0);
  EXPECT_EQ(codeOfReading("/proc/self/fd/" + std::to_string(file)),
            URLError::dataLengthExceedsMaximum);
  ::close(file);
}

}  // namespace
}  // namespace tarn
