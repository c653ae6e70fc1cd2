#include <Platform/Types/UUID.hpp>
#include <Support/System.hpp>
#include <TarnService/Transport/FileManagerAdditions.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

namespace tarn {
namespace {

class FileManagerAdditionsTests : public testing::Test {
 protected:
  static ino_t inode(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
  }
  URL at(const std::string& name) const { return URL::fileURL(place.file(name)); }

  const test::TemporaryDirectory place;
  const test::ScopedEnvironment variable{"TMPDIR", place.path()};
};

TEST_F(FileManagerAdditionsTests, ATemporaryDirectoryIsFreshAndNamedByARandomUUID) {
  const URL first = makeTemporaryDirectory();
  const URL second = makeTemporaryDirectory();
  EXPECT_NE(first, second);
  for (const URL& directory : {first, second}) {
    const auto name = directory.lastPathComponent();
    ASSERT_TRUE(name.starts_with("TarnService-")) << name;
    const auto uuid = UUID::parse(name.substr(12));
    ASSERT_TRUE(uuid) << name;
    EXPECT_EQ(uuid->uuidString(), name.substr(12));
    EXPECT_EQ(directory.path(), place.file(name));
    EXPECT_TRUE(test::fileNames(directory.path()).empty());
  }
}

TEST_F(FileManagerAdditionsTests, AMissingTemporaryDirectoryIsMade) {
  const test::ScopedEnvironment deeper("TMPDIR", place.file("some/where"));
  EXPECT_TRUE(makeTemporaryDirectory().path().starts_with(place.file("some/where/TarnService-")));
}

TEST_F(FileManagerAdditionsTests, ATemporaryDirectoryThatCannotBeMadeIsAnError) {
  test::writeFile(place.file("file"), "in the way");
  const test::ScopedEnvironment blocked("TMPDIR", place.file("file"));
  EXPECT_THROW(makeTemporaryDirectory(), FileError);
}

TEST_F(FileManagerAdditionsTests, ACopyOfAPassingFileSharesItsBytesAndOutlivesIt) {
  test::writeFile(place.file("passing"), "content");
  detail::copyPassingFile(FileManager::default_(), at("passing"), at("kept"));
  EXPECT_EQ(inode(place.file("kept")), inode(place.file("passing")));
  FileManager::default_().removeItem(at("passing"));
  EXPECT_EQ(test::readFile(place.file("kept")), "content");
}

TEST_F(FileManagerAdditionsTests, ACopyToAnotherFileSystemHasBytesOfItsOwn) {
  struct stat here {};
  struct stat there {};
  ASSERT_EQ(stat(place.path().c_str(), &here), 0);
  ASSERT_EQ(stat("/dev/shm", &there), 0);
  if (here.st_dev == there.st_dev) GTEST_SKIP() << "/dev/shm is no file system of its own here";
  const test::ScopedEnvironment shared("TMPDIR", "/dev/shm");
  const test::TemporaryDirectory elsewhere;
  test::writeFile(place.file("passing"), "content");
  const URL kept = URL::fileURL(elsewhere.file("kept"));
  detail::copyPassingFile(FileManager::default_(), at("passing"), kept);
  FileManager::default_().removeItem(at("passing"));
  EXPECT_EQ(test::readFile(kept.path()), "content");
}

TEST_F(FileManagerAdditionsTests, ACopyOverwritesNothing) {
  test::writeFile(place.file("passing"), "new");
  test::writeFile(place.file("kept"), "old");
  EXPECT_THROW(detail::copyPassingFile(FileManager::default_(), at("passing"), at("kept")),
               FileError);
  EXPECT_EQ(test::readFile(place.file("kept")), "old");
}

TEST_F(FileManagerAdditionsTests, ACopyOfNothingIsAnError) {
  EXPECT_THROW(detail::copyPassingFile(FileManager::default_(), at("missing"), at("kept")),
               FileError);
  EXPECT_THROW(detail::copyPassingFile(FileManager::default_(), URL("http://h/"), at("kept")),
               FileError);
  test::writeFile(place.file("passing"), "content");
  const URL elsewhere("file://elsewhere" + place.file("passing"));
  EXPECT_THROW(detail::copyPassingFile(FileManager::default_(), elsewhere, at("kept")), FileError);
}

}  // namespace
}  // namespace tarn
