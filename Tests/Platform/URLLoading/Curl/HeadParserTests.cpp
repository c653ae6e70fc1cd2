#include <Platform/URLLoading/Curl/HeadParser.hpp>

#include <gtest/gtest.h>

#include <vector>

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

TEST(HeadParser, FoldedLinesGoOnWithTheFieldAboveThemAlsoWhereItIsJoined) {
  HeadParser parser;
  for (const char* line : {"HTTP/1.1 200 OK\r\n", "A: 1\r\n", "B: 2\r\n", "\tfolded\r\n",
                           "a: 3\r\n", "  twice \r\n", " folded\r\n", "C: 4\r\n"}) {
    ASSERT_EQ(parser.line(line), Event::none);
  }
  ASSERT_EQ(parser.line("\r\n"), Event::headComplete);
  EXPECT_EQ(parser.fields(),
            (HTTPHeaderFields{{"A", "1, 3 twice folded"}, {"B", "2 folded"}, {"C", "4"}}));
}

TEST(HeadParser, ManyJoinedLinesTakeNoLongerThanTheyShould) {
  HeadParser parser;
  parser.line("HTTP/1.1 200 OK\r\n");
  parser.line("A: x\r\n");
  parser.line("B: " + std::string(900'000, 'y') + "\r\n");
  for (int i = 0; i < 4990; ++i) ASSERT_EQ(parser.line("a: x\r\n"), Event::none);
  EXPECT_EQ(parser.line("\r\n"), Event::headComplete);
  EXPECT_EQ(parser.fields().value("A")->size(), 1 + 4990u * 3);
  EXPECT_EQ(parser.fields().value("B")->size(), 900'000u);
}

TEST(HeadParser, ReadsTheLinesOfAHead) {
  struct Row {
    std::vector<const char*> lines;
    HTTPHeaderFields expected;
  };
  const std::vector<Row> rows{
      {{}, {}},
      {{"A:", "B: \t ", "C :3", "\tand more"}, {{"A", ""}, {"B", ""}, {"C", "3 and more"}}},
      {{"A: 1", "B: 2", "a: 3"}, {{"A", "1, 3"}, {"B", "2"}}},
      {{"A: b:c ", " d ", "\t", " e"}, {{"A", "b:c d  e"}}},
      {{"A:", " 1", "A: 2", " 3"}, {{"A", " 1, 2 3"}}},
      // There is nothing that these lines could go on with.
      {{" 0", "A: 1"}, {{"A", "1"}}},
      {{"A: 1", ": nameless", " 2"}, {{"A", "1"}}},
      {{"A: 1", "Content-Length: 5", " 6", "B: 2", " 3"},
       {{"A", "1"}, {"Content-Length", "5"}, {"B", "2 3"}}},
      {{"content-length: 05", "A: 1", "Content-Length: 5"}, {{"Content-Length", "05"}, {"A", "1"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.lines));
    HeadParser parser;
    parser.line("HTTP/1.1 100 Continue\r\n");
    parser.line("Interim: 1\r\n");
    parser.line("\r\n");
    parser.line("HTTP/1.1 200 OK\r\n");
    for (const std::string line : row.lines) ASSERT_EQ(parser.line(line + "\r\n"), Event::none);
    EXPECT_TRUE(parser.fields().empty());
    ASSERT_EQ(parser.line("\r\n"), Event::headComplete);
    EXPECT_EQ(parser.fields(), row.expected);
    EXPECT_EQ(parser.takeFields(), row.expected);
  }
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
