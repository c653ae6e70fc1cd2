#include <Tambour/File.hpp>
#include <Tambour/FileRepresentable.hpp>

#include <gtest/gtest.h>

#include <string>

namespace tarn {
namespace {

struct Image {
  URL fileURL() const { return URL::fileURL("/tmp/image.jpeg"); }
  Data asData() const { return {}; }
};
struct WithoutBytes {
  URL fileURL() const { return URL::empty(); }
};
struct WithoutURL {
  std::string fileURL() const { return {}; }
  Data asData() const { return {}; }
};

static_assert(FileRepresentable<File>);
static_assert(FileRepresentable<Image>);
static_assert(!FileRepresentable<WithoutBytes>);
static_assert(!FileRepresentable<WithoutURL>);
static_assert(!FileRepresentable<Data>);

TEST(FileRepresentableTests, TheMIMETypeFollowsTheExtensionOfTheName) {
  struct Row {
    const char* path;
    const char* type;
  };
  for (const Row& row :
       {Row{"/a.png", "image/png"}, Row{"/a.PNG", "image/png"},
        Row{"/a.tar.gz", "application/gzip"}, Row{"/a.json", "application/json"},
        Row{"/a.b.txt", "text/plain"}, Row{"/a", "application/octet-stream"},
        Row{"/a.png/b", "application/octet-stream"}, Row{"/.txt", "application/octet-stream"},
        Row{"/", "application/octet-stream"},
        Row{"/a.nobody-knows-this", "application/octet-stream"}}) {
    EXPECT_EQ(mimeType(URL::fileURL(row.path)), row.type) << row.path;
  }
}

TEST(FileRepresentableTests, AValueHasTheMIMETypeOfItsFile) {
  EXPECT_EQ(mimeType(Image()), "image/jpeg");
  EXPECT_EQ(mimeType(File(URL::fileURL("/a.pdf"))), "application/pdf");
}

}  // namespace
}  // namespace tarn
