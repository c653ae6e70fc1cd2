#include <Platform/Files/Detail/MIMEDatabase.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarn {
namespace {

using detail::MIMEDatabase;
using Directories = std::vector<std::string>;

class MIMEDatabaseTests : public testing::Test {
 protected:
  /// A data folder of this name with a database of these lines.
  std::string folder(const std::string& name, const std::string& lines) const {
    std::filesystem::create_directories(directory.file(name + "/mime"));
    test::writeFile(directory.file(name + "/mime/globs2"), lines);
    return directory.file(name);
  }

  test::TemporaryDirectory directory;
};

TEST_F(MIMEDatabaseTests, FindsATypeByItsExtensionInEitherCase) {
  const MIMEDatabase database({folder("a",
                                      "# a comment\n"
                                      "50:application/x-tea:*.tea\n"
                                      "50:application/x-mug:*.MUG\n")});
  EXPECT_EQ(database.type("tea"), "application/x-tea");
  EXPECT_EQ(database.type("TeA"), "application/x-tea");
  EXPECT_EQ(database.type("mug"), "application/x-mug");
  EXPECT_EQ(database.type("te"), std::nullopt);
  EXPECT_EQ(database.type("teas"), std::nullopt);
  EXPECT_EQ(database.type(""), std::nullopt);
}

TEST_F(MIMEDatabaseTests, TheHighestWeightCounts) {
  const MIMEDatabase database({folder("a",
                                      "40:text/light:*.tea\n"
                                      "60:text/heavy:*.tea\n"
                                      "50:text/middle:*.tea\n")});
  EXPECT_EQ(database.type("tea"), "text/heavy");
}

TEST_F(MIMEDatabaseTests, OfEqualWeightsTheCommonTypeCountsThenTheAlphabet) {
  const MIMEDatabase database({folder("a",
                                      "50:audio/a-first-one:*.ogg\n"
                                      "50:audio/ogg:*.ogg\n"
                                      "50:text/b:*.tea\n"
                                      "50:text/a:*.tea\n"
                                      "50:text/c:*.tea\n")});
  EXPECT_EQ(database.type("ogg"), "audio/ogg");
  EXPECT_EQ(database.type("tea"), "text/a");
}

TEST_F(MIMEDatabaseTests, WhereTheCaseCountsTheExactExtensionComesFirst) {
  const MIMEDatabase database({folder("a",
                                      "50:text/x-c++src:*.C:cs\n"
                                      "80:text/x-csrc:*.c\n"
                                      "50:text/only-upper:*.TEA:cs,other\n")});
  EXPECT_EQ(database.type("C"), "text/x-c++src");
  EXPECT_EQ(database.type("c"), "text/x-csrc");
  EXPECT_EQ(database.type("TEA"), "text/only-upper");
  EXPECT_EQ(database.type("tea"), std::nullopt);
}

TEST_F(MIMEDatabaseTests, OtherPatternsThanExtensionsDoNotCount) {
  const MIMEDatabase database({folder("a",
                                      "90:text/two:*.tar.tea\n"
                                      "90:text/whole:tea\n"
                                      "90:text/prefix:read.*\n"
                                      "90:text/any:*.[0-9]\n"
                                      "90:text/set:*.so.[0-9]*\n"
                                      "90:text/empty:*.\n")});
  for (const char* extension : {"tea", "tar.tea", "*", "1", "[0-9]", ""}) {
    EXPECT_EQ(database.type(extension), std::nullopt) << extension;
  }
}

TEST_F(MIMEDatabaseTests, DamagedLinesDoNotCount) {
  const MIMEDatabase database({folder("a",
                                      "\n:\n::\n:::\n50\n50:\n50:text/a\n50:text/a:\n"
                                      "x:text/a:*.a1\n"
                                      "5x:text/a:*.a2\n"
                                      "99999999999:text/a:*.a3\n"
                                      "50:noslash:*.a4\n"
                                      "50:text/return\rX-Own:*.b1\n"
                                      "50:text/a b:*.b2\n"
                                      "50:text/a;b=c:*.b3\n"
                                      "50:text/a/b:*.b4\n"
                                      "50:text/\x01:*.b5\n"
                                      "50:text/\xc3\xa4:*.b6\n"
                                      "50:/a:*.b7\n"
                                      "50:text/:*.b8\n"
                                      "50:text/good:*.a5")});
  for (const char* extension :
       {"a1", "a2", "a3", "a4", "b1", "b2", "b3", "b4", "b5", "b6", "b7", "b8"}) {
    EXPECT_EQ(database.type(extension), std::nullopt) << extension;
  }
  EXPECT_EQ(database.type("a5"), "text/good");
}

TEST_F(MIMEDatabaseTests, LinesMayEndWithAReturn) {
  const MIMEDatabase database({folder("a",
                                      "50:application/x-!#$%&'*+-.^_`|~9:*.tea\r\n"
                                      "50:text/upper:*.MUG:cs\r\n")});
  EXPECT_EQ(database.type("tea"), "application/x-!#$%&'*+-.^_`|~9");
  EXPECT_EQ(database.type("MUG"), "text/upper");
  EXPECT_EQ(database.type("mug"), std::nullopt);
}

TEST_F(MIMEDatabaseTests, TheMoreImportantFolderCountsWhereWeightsAreEqual) {
  const auto user = folder("user", "50:text/z-user:*.tea\n40:text/user:*.mug\n");
  const auto system = folder("system",
                             "50:text/a-system:*.tea\n50:text/system:*.mug\n"
                             "50:text/system:*.pot\n");
  const MIMEDatabase database({user, directory.file("none"), system});
  EXPECT_EQ(database.type("tea"), "text/z-user");
  EXPECT_EQ(database.type("mug"), "text/system");
  EXPECT_EQ(database.type("pot"), "text/system");
}

TEST_F(MIMEDatabaseTests, AFolderCanHideWhatLessImportantOnesSayOfAType) {
  const auto user = folder("user", "0:text/tea:__NOGLOBS__\n50:text/tea:*.mine\n");
  const auto system = folder("system", "50:text/tea:*.tea\n50:text/mug:*.mug\n");
  const MIMEDatabase database({user, system});
  EXPECT_EQ(database.type("mine"), "text/tea");
  EXPECT_EQ(database.type("tea"), std::nullopt);
  EXPECT_EQ(database.type("mug"), "text/mug");
}

TEST_F(MIMEDatabaseTests, WhatNoDatabaseKnowsIsACommonType) {
  for (const Directories& directories : {Directories{}, Directories{directory.file("none")},
                                         Directories{folder("a", "50:text/tea:*.tea\n")}}) {
    const MIMEDatabase database(directories);
    EXPECT_EQ(database.type("png"), "image/png");
    EXPECT_EQ(database.type("JPEG"), "image/jpeg");
    EXPECT_EQ(database.type("zst"), "application/zstd");
    EXPECT_EQ(database.type("7z"), "application/x-7z-compressed");
    EXPECT_EQ(database.type("nobody-knows-this"), std::nullopt);
  }
}

TEST_F(MIMEDatabaseTests, ADatabaseCountsBeforeTheCommonTypes) {
  EXPECT_EQ(MIMEDatabase({folder("a", "1:image/own:*.png\n")}).type("png"), "image/own");
}

TEST(DataDirectoriesTests, FollowTheEnvironment) {
  struct Row {
    const char* dataHome;
    const char* home;
    const char* dataDirs;
    Directories expected;
  };
  const Row rows[] = {
      {"", "/home/a", "", {"/home/a/.local/share", "/usr/local/share", "/usr/share"}},
      {"", "", "", {"/usr/local/share", "/usr/share"}},
      {"/data", "/home/a", "/x:/y", {"/data", "/x", "/y"}},
      {"data", "/home/a", "x:/y::./z:", {"/y"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.dataHome + std::string("|") + row.home + "|" + row.dataDirs);
    EXPECT_EQ(detail::dataDirectories(row.dataHome, row.home, row.dataDirs), row.expected);
  }
}

}  // namespace
}  // namespace tarn
