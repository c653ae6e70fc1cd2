#include <Support/Compression.hpp>
#include <TarnService/PayloadEncoding/Detail/ZStream.hpp>
#include <TarnService/Responses/GZipError.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace tarn {
namespace {

std::string lines(int count) {
  std::string text;
  for (int line = 0; line < count; ++line) text += "line " + std::to_string(line * line) + "\n";
  return text;
}

TEST(ZStreamTests, PiecesOfTheInputGiveTheSameBytesAsTheWhole) {
  const Data content(lines(20'000));
  const Data whole = detail::deflated(content, 6);
  for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{1000}, std::size_t{65'536},
                                      content.size(), content.size() + 1}) {
    SCOPED_TRACE(pieceSize);
    EXPECT_TRUE(detail::deflated(content, 6, pieceSize) == whole);
    EXPECT_TRUE(detail::inflated(whole, std::nullopt, pieceSize) == content);
    EXPECT_TRUE(detail::inflated(whole, content.size(), pieceSize) == content);
  }
}

TEST(ZStreamTests, PiecesWithoutCompressionReadBack) {
  const std::string content = lines(20'000);
  for (const std::size_t pieceSize : {std::size_t{1000}, std::size_t{65'536}}) {
    SCOPED_TRACE(pieceSize);
    const Data stored = detail::deflated(Data(content), 0, pieceSize);
    EXPECT_TRUE(test::gunzip(stored.view()) == content);
  }
}

TEST(ZStreamTests, AStreamThatEndsInItsLastPieceIsCutShort) {
  const std::string whole(detail::deflated(Data(lines(2'000)), 6).view());
  for (const std::size_t cut : {1u, 8u, 100u}) {
    SCOPED_TRACE(cut);
    EXPECT_THROW(detail::inflated(Data(whole.substr(0, whole.size() - cut)), std::nullopt, 64),
                 GZipError);
  }
}

TEST(ZStreamTests, DoublingEndsTheProcessWhereTheSizeOverflows) {
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_EQ(detail::doubled(most), 2 * most);
  EXPECT_DEATH(detail::doubled(most + 1), "overflows");
}

}  // namespace
}  // namespace tarn
