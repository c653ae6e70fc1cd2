#include <Platform/Files/FileManager.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace tarn::test {
namespace {

const FileManager& files() { return FileManager::default_(); }

/// The errno of a failure, which also names the path; 0 for none.
std::int64_t failure(const std::string& path, const std::function<void()>& action) {
  try {
    action();
    return 0;
  } catch (const FileError& error) {
    EXPECT_NE(error.message().find(path), std::string::npos) << error.message();
    EXPECT_EQ(error.domain(), "NSPOSIXErrorDomain");
    return error.code();
  }
}

class FileManagerTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return place_.file(name); }
  URL url(const std::string& name) const { return URL::fileURL(path(name)); }

 private:
  const TemporaryDirectory place_;
};

TEST_F(FileManagerTest, TakesTheTemporaryDirectoryFromTheEnvironment) {
  struct Row {
    std::optional<std::string> variable;
    std::string path;
  };
  for (const auto& row : std::vector<Row>{{"/some/where", "/some/where"},
                                          {"/some where/", "/some where/"},
                                          {std::nullopt, "/tmp"},
                                          {"", "/tmp"},
                                          {"relative", "/tmp"}}) {
    SCOPED_TRACE(row.variable.value_or("unset"));
    const auto scope = row.variable ? std::make_unique<ScopedEnvironment>("TMPDIR", *row.variable)
                                    : std::make_unique<ScopedEnvironment>("TMPDIR", std::nullopt);
    EXPECT_EQ(files().temporaryDirectory().path(), row.path);
    EXPECT_TRUE(files().temporaryDirectory().isFileURL());
  }
}

TEST_F(FileManagerTest, MakesADirectory) {
  files().createDirectory(url("a b%"), false);
  EXPECT_TRUE(std::filesystem::is_directory(path("a b%")));
  EXPECT_EQ(failure(path("a b%"), [&] { files().createDirectory(url("a b%"), false); }), EEXIST);
  files().createDirectory(url("a b%"), true);
  const auto deep = path("x/y");
  EXPECT_EQ(failure(deep, [&] { files().createDirectory(url("x/y"), false); }), ENOENT);
  files().createDirectory(url("x/y"), true);
  EXPECT_TRUE(std::filesystem::is_directory(deep));
}

TEST_F(FileManagerTest, MakesNoDirectoryWhereAFileIs) {
  writeFile(path("file"), "content");
  for (const bool intermediate : {false, true}) {
    SCOPED_TRACE(intermediate);
    EXPECT_NE(failure(path("file"), [&] { files().createDirectory(url("file"), intermediate); }),
              0);
    EXPECT_EQ(
        failure(path("file/x"), [&] { files().createDirectory(url("file/x"), intermediate); }),
        ENOTDIR);
  }
  EXPECT_EQ(readFile(path("file")), "content");
}

TEST_F(FileManagerTest, CopiesAFile) {
  writeFile(path("from"), std::string(300'000, 'x'));
  chmod(path("from").c_str(), 0640);
  files().copyItem(url("from"), url("to"));
  EXPECT_EQ(readFile(path("to")), readFile(path("from")));
  struct stat status {};
  stat(path("to").c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(FileManagerTest, CopiesADirectoryWithItsLinks) {
  std::filesystem::create_directories(path("from/inner"));
  writeFile(path("from/inner/file"), "content");
  std::filesystem::create_symlink("inner/file", path("from/link"));
  files().copyItem(url("from"), url("to"));
  EXPECT_EQ(readFile(path("to/inner/file")), "content");
  EXPECT_EQ(std::filesystem::read_symlink(path("to/link")), "inner/file");
}

TEST_F(FileManagerTest, CopiesNoDirectoryIntoItself) {
  std::filesystem::create_directories(path("from/inner"));
  const auto target = path("from/inner/to");
  EXPECT_EQ(failure(target, [&] { files().copyItem(url("from"), url("from/inner/to")); }), EINVAL);
  EXPECT_TRUE(std::filesystem::is_empty(path("from/inner")));
  files().copyItem(url("from"), url("fromto"));
  EXPECT_TRUE(fileExists(path("fromto/inner")));
}

TEST_F(FileManagerTest, CopiesOntoNothingThatIsThere) {
  writeFile(path("from"), "new");
  writeFile(path("file"), "old");
  std::filesystem::create_directory(path("directory"));
  std::filesystem::create_symlink("nowhere", path("link"));
  for (const char* name : {"file", "directory", "link", "from"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(failure(path(name), [&] { files().copyItem(url("from"), url(name)); }), EEXIST);
  }
  EXPECT_EQ(readFile(path("file")), "old");
  EXPECT_EQ(readFile(path("from")), "new");
}

TEST_F(FileManagerTest, CopiesNothingFromOrToNowhere) {
  writeFile(path("from"), "content");
  EXPECT_EQ(failure(path("missing"), [&] { files().copyItem(url("missing"), url("to")); }), ENOENT);
  EXPECT_EQ(failure(path("no/to"), [&] { files().copyItem(url("from"), url("no/to")); }), ENOENT);
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(failure(path("fifo"), [&] { files().copyItem(url("fifo"), url("to")); }), EINVAL);
  EXPECT_FALSE(fileExists(path("to")));
}

TEST_F(FileManagerTest, LeavesNoPartOfACopyThatFails) {
  writeFile(path("from"), std::string(1 << 20, 'x'));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit limit = before;
  limit.rlim_cur = 4096;
  const auto signal = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto code = failure(path("to"), [&] { files().copyItem(url("from"), url("to")); });
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, signal);
  EXPECT_EQ(code, EFBIG);
  EXPECT_FALSE(fileExists(path("to")));
}

TEST_F(FileManagerTest, RemovesFilesLinksAndDirectories) {
  std::filesystem::create_directories(path("directory/inner"));
  writeFile(path("directory/inner/file"), "content");
  writeFile(path("file"), "content");
  std::filesystem::create_symlink("file", path("link"));
  for (const char* name : {"link", "directory"}) {
    files().removeItem(url(name));
    EXPECT_FALSE(fileExists(path(name))) << name;
  }
  EXPECT_EQ(readFile(path("file")), "content");
  files().removeItem(url("file"));
  EXPECT_FALSE(fileExists(path("file")));
  EXPECT_EQ(failure(path("file"), [&] { files().removeItem(url("file")); }), ENOENT);
}

TEST_F(FileManagerTest, TellsWhetherSomethingIsThere) {
  writeFile(path("file"), "");
  std::filesystem::create_symlink("nowhere", path("dangling"));
  EXPECT_TRUE(files().fileExists(path("file")));
  EXPECT_TRUE(files().fileExists(path("")));
  EXPECT_FALSE(files().fileExists(path("missing")));
  EXPECT_FALSE(files().fileExists(path("dangling")));
  EXPECT_FALSE(files().fileExists(""));
}

TEST_F(FileManagerTest, TakesOnlyAddressesOfFiles) {
  writeFile(path("file"), "content");
  for (const auto& bad :
       {URL("http://example.com" + path("file")), URL("file://" + path("file") + "%00x"),
        URL("file://elsewhere" + path("file"))}) {
    SCOPED_TRACE(bad.absoluteString());
    const auto text = bad.absoluteString();
    EXPECT_EQ(failure(text, [&] { files().createDirectory(bad, true); }), EINVAL);
    EXPECT_EQ(failure(text, [&] { files().removeItem(bad); }), EINVAL);
    EXPECT_EQ(failure(text, [&] { files().copyItem(bad, url("to")); }), EINVAL);
    EXPECT_EQ(failure(text, [&] { files().copyItem(url("file"), bad); }), EINVAL);
  }
  EXPECT_EQ(readFile(path("file")), "content");
}

}  // namespace
}  // namespace tarn::test
