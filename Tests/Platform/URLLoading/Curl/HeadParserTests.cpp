#include <Platform/URLLoading/Curl/HeadParser.hpp>

#include <gtest/gtest.h>

namespace tarn::detail {
namespace {

using Event = HeadParser::Event;

TEST(HeadParser, TakesTheFinalHeadOnly) {
  HeadParser parser;
  EXPECT_FALSE(parser.started());
  for (const char* line :
       {"HTTP/1.1 103 Early Hints\r\n", "Link: x\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "X: 1\r\n"}) {
    EXPECT_EQ(parser.line(line), Event::none);
  }
  EXPECT_TRUE(parser.started());
  EXPECT_FALSE(parser.complete());
  EXPECT_EQ(parser.line("\r\n"), Event::headComplete);
  EXPECT_EQ(parser.line("Trailer: 1\r\n"), Event::none);
  EXPECT_EQ(parser.line("\r\n"), Event::none);
  EXPECT_TRUE(parser.complete());
  EXPECT_EQ(parser.statusCode(), 200);
  EXPECT_EQ(parser.httpVersion(), "HTTP/1.1");
  EXPECT_EQ(parser.fields(), (HTTPHeaderFields{{"X", "1"}}));
}

TEST(HeadParser, TakesAStatusLineWithoutReason) {
  HeadParser parser;
  EXPECT_EQ(parser.line("HTTP/2 204 \r\n"), Event::none);
  EXPECT_EQ(parser.line("\r\n"), Event::headComplete);
  EXPECT_EQ(parser.statusCode(), 204);
  EXPECT_EQ(parser.httpVersion(), "HTTP/2");
}

TEST(HeadParser, CountsLinesAndBytesOverTheWholeAnswer) {
  HeadParser lines;
  lines.line("HTTP/1.1 200 OK\r\n");
  for (int i = 0; i < 4999; ++i) ASSERT_EQ(lines.line("X: y\r\n"), Event::none);
  EXPECT_EQ(lines.line("\r\n"), Event::refused);
  HeadParser bytes;
  bytes.line("HTTP/1.1 200 OK\r\n");
  ASSERT_EQ(bytes.line("\r\n"), Event::headComplete);
  const std::string trailer = "X: " + std::string(100'000, 'y') + "\r\n";
  for (int i = 0; i < 10; ++i) ASSERT_EQ(bytes.line(trailer), Event::none);
  EXPECT_EQ(bytes.line(trailer), Event::refused);
}

TEST(HeadParser, ManyFoldedLinesAndManyNamesTakeNoLongerThanTheyShould) {
  HeadParser parser;
  parser.line("HTTP/1.1 200 OK\r\n");
  parser.line("X: " + std::string(900'000, 'y') + "\r\n");
  for (int i = 0; i < 4990; ++i) ASSERT_EQ(parser.line(" folded\r\n"), Event::none);
  EXPECT_EQ(parser.line("\r\n"), Event::headComplete);
  EXPECT_EQ(parser.fields().value("x")->size(), 900'000u + 4990u * 7);
}

TEST(HeadParser, KnowsTheAnnouncedLengthUnlessChunked) {
  HeadParser parser;
  parser.line("HTTP/1.1 200 OK\r\n");
  EXPECT_EQ(parser.line("content-length: 42\r\n"), Event::none);
  EXPECT_EQ(parser.announcedLength(), 42);
  parser.line("Transfer-Encoding: chunked\r\n");
  parser.line("\r\n");
  EXPECT_EQ(parser.announcedLength(), std::nullopt);
}

TEST(HeadParser, RefusesWhatIsNoHead) {
  for (const char* first : {"hello\r\n", "\r\n", "HTTP/1.1\r\n", "HTTP/1.1 x\r\n"}) {
    SCOPED_TRACE(first);
    HeadParser parser;
    EXPECT_EQ(parser.line(first), Event::refused);
    EXPECT_STRNE(parser.refusal(), "");
  }
}

}  // namespace
}  // namespace tarn::detail
