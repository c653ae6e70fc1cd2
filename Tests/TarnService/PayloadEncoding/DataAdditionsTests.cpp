#include <TarnService/PayloadEncoding/DataAdditions.hpp>
#include <TarnService/Responses/GZipError.hpp>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace tarn {
namespace {

TEST(DataAdditionsTests, KnowsTheGzipSignature) {
  struct Row {
    std::string_view bytes;
    bool isGzipped;
  };
  for (const Row& row : {Row{"\x1F\x8B", true}, Row{"\x1F\x8B\x08...", true}, Row{"", false},
                         Row{"\x1F", false}, Row{"\x8B\x1F", false}, Row{" \x1F\x8B", false}}) {
    EXPECT_EQ(isGzipped(Data(row.bytes)), row.isGzipped) << row.bytes;
  }
}

TEST(DataAdditionsTests, ZipsAndUnzips) {
  const Data content(std::string(10'000, 'a'));
  const Data zipped = gzipped(content);
  EXPECT_TRUE(isGzipped(zipped));
  EXPECT_LT(zipped.size(), 100u);
  EXPECT_EQ(gunzipped(zipped), content);
  EXPECT_GT(gzipped(content, GZipCompression::none).size(), content.size());
  EXPECT_EQ(gunzipped(gzipped(content, GZipCompression::none)), content);
}

TEST(DataAdditionsTests, UnzipsToAMaximum) {
  const Data zipped = gzipped(Data(std::string(10'000, 'a')));
  EXPECT_EQ(gunzipped(zipped, 10'000).size(), 10'000u);
  EXPECT_THROW(gunzipped(zipped, 9'999), GZipError);
}

}  // namespace
}  // namespace tarn
