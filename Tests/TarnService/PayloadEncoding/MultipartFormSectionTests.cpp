#include <Support/System.hpp>
#include <Tambour/File.hpp>
#include <TarnService/PayloadEncoding/MultipartFormSection.hpp>

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using Headers = std::map<std::string, std::string>;

/// Says where it lies and what it holds without any file being there.
struct Imagined {
  std::string path;
  URL fileURL() const { return URL::fileURL(path); }
  Data asData() const { return Data("imagined"); }
};
struct Unreadable {
  Data asData() const { throw std::runtime_error("the disk is gone"); }
};

TEST(MultipartFormSectionTests, OfBytesHasNoFile) {
  const MultipartFormSection section("a", Data("xyz"), "text/plain");
  EXPECT_EQ(section.name, "a");
  EXPECT_EQ(section.contentType, "text/plain");
  EXPECT_EQ(section.fileURL, std::nullopt);
  EXPECT_EQ(section.dataRepresentable.asData(), Data("xyz"));
  EXPECT_EQ(section.headers(), (Headers{{"Content-Disposition", "form-data; name=\"a\"\r\n"},
                                        {"Content-Type", "text/plain"}}));
  EXPECT_EQ(section.asData(), Data("Content-Disposition: form-data; name=\"a\"\r\n"
                                   "\r\n"
                                   "Content-Type: text/plain\r\n"
                                   "xyz"));
}

TEST(MultipartFormSectionTests, WithoutAContentTypeHasTheDispositionAlone) {
  const MultipartFormSection section("a", Data("xyz"));
  EXPECT_EQ(section.headers(), (Headers{{"Content-Disposition", "form-data; name=\"a\"\r\n"}}));
  EXPECT_EQ(section.asData(), Data("Content-Disposition: form-data; name=\"a\"\r\n\r\nxyz"));
}

TEST(MultipartFormSectionTests, OfAFileHasItsNameAndItsType) {
  const MultipartFormSection section("a", Imagined{"/photos/At Sea.PNG"});
  EXPECT_EQ(section.contentType, "image/png");
  EXPECT_EQ(section.fileURL, URL::fileURL("/photos/At Sea.PNG"));
  EXPECT_EQ(section.headers(),
            (Headers{{"Content-Disposition", "form-data; name=\"a\"\r\n; filename=\"At Sea.PNG\""},
                     {"Content-Type", "image/png"}}));
  EXPECT_EQ(section.asData(), Data("Content-Disposition: form-data; name=\"a\"\r\n"
                                   "; filename=\"At Sea.PNG\"\r\n"
                                   "Content-Type: image/png\r\n"
                                   "imagined"));
}

TEST(MultipartFormSectionTests, OfAFileOfNoKnownTypeIsAnOctetStream) {
  for (const char* path : {"/a.nobody-knows-this", "/a", "/.png", "/a.", "/png"}) {
    EXPECT_EQ(MultipartFormSection("a", Imagined{path}).contentType, "application/octet-stream")
        << path;
  }
}

TEST(MultipartFormSectionTests, OfAFileSentAsPlainBytesHasNoFile) {
  const MultipartFormSection section("a", Imagined{"/a.png"}, std::nullopt);
  EXPECT_EQ(section.fileURL, std::nullopt);
  EXPECT_EQ(section.asData(), Data("Content-Disposition: form-data; name=\"a\"\r\n\r\nimagined"));
}

TEST(MultipartFormSectionTests, ReadsAFileOnDemand) {
  const test::TemporaryDirectory directory;
  const MultipartFormSection section("a", File(URL::fileURL(directory.file("late.json"))));
  test::writeFile(directory.file("late.json"), "{}");
  EXPECT_TRUE(section.asData().view().ends_with("Content-Type: application/json\r\n{}"));
}

TEST(MultipartFormSectionTests, PassesOnWhatItsBytesThrow) {
  EXPECT_THROW(MultipartFormSection("a", Unreadable()).asData(), std::runtime_error);
}

TEST(MultipartFormSectionTests, NoTextEndsAHeaderFieldEarly) {
  const MultipartFormSection bytes("a\"\r\nX-Evil: 1\r\n\r\n", Data(),
                                   "text/plain\r\nX-Evil: 2; charset=\"utf-8\"");
  EXPECT_EQ(
      bytes.headers(),
      (Headers{{"Content-Disposition", "form-data; name=\"a%22%0D%0AX-Evil: 1%0D%0A%0D%0A\"\r\n"},
               {"Content-Type", "text/plain%0D%0AX-Evil: 2; charset=\"utf-8\""}}));
  const MultipartFormSection file("a", Imagined{"/tmp/b\"\r\nX-Evil: 3.png"});
  EXPECT_EQ(file.headers().at("Content-Disposition"),
            "form-data; name=\"a\"\r\n; filename=\"b%22%0D%0AX-Evil: 3.png\"");
}

TEST(MultipartFormSectionTests, OtherCharactersOfANameStayAsTheyAre) {
  const MultipartFormSection section("caf\xC3\xA9 %22 \\ ;=", Data());
  EXPECT_EQ(section.headers().at("Content-Disposition"),
            "form-data; name=\"caf\xC3\xA9 %22 \\ ;=\"\r\n");
}

}  // namespace
}  // namespace tarn
