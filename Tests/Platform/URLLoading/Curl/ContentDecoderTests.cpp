#include <Platform/URLLoading/Curl/ContentDecoder.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/Compression.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

std::string longText() {
  std::string text;
  for (int i = 0; text.size() < 300'000; ++i) text += std::to_string(i * 7919) + "\n";
  return text;
}

struct CodingRow {
  const char* name;
  std::string contentEncoding;
  std::string wire;
  std::string body;
  bool decoded = true;
};

void PrintTo(const CodingRow& row, std::ostream* out) { *out << row.name; }

class ContentCoding : public testing::TestWithParam<CodingRow> {};

TEST_P(ContentCoding, IsUndoneOnTheWay) {
  const auto& row = GetParam();
  ScriptedServer server;
  server.route("/", Script().respond(200, {{"content-encoding", row.contentEncoding}}, row.wire));
  RecordedSession session;
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.text(), row.body);
  EXPECT_EQ(loaded.response->expectedContentLength(),
            row.decoded ? -1 : static_cast<std::int64_t>(row.wire.size()));
  EXPECT_EQ(loaded.task->countOfBytesReceived(), static_cast<std::int64_t>(row.wire.size()));
  EXPECT_EQ(loaded.header("Content-Encoding"), row.contentEncoding);
}

// However the body is cut into pieces, what is read is the same.
TEST_P(ContentCoding, IsUndoneByteForByte) {
  const auto& row = GetParam();
  if (!row.decoded) {
    EXPECT_EQ(detail::ContentDecoder::forCodings(row.contentEncoding), nullptr);
    return;
  }
  const auto decoder = detail::ContentDecoder::forCodings(row.contentEncoding);
  ASSERT_NE(decoder, nullptr);
  std::string body;
  for (const char byte : row.wire) {
    const auto input = static_cast<std::uint8_t>(byte);
    decoder->feed(&input, 1);
    for (;;) {
      std::uint8_t buffer[100];
      const auto count = decoder->read(buffer, sizeof buffer);
      ASSERT_TRUE(count);
      body.append(reinterpret_cast<const char*>(buffer), *count);
      if (*count < sizeof buffer) break;
    }
  }
  EXPECT_TRUE(decoder->isComplete());
  EXPECT_EQ(body, row.body);
}

std::string layered(int layers) {
  std::string bytes = "hello";
  for (int i = 0; i < layers; ++i) bytes = i % 2 == 0 ? gzip(bytes) : zlibDeflate(bytes);
  return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Known, ContentCoding,
    testing::Values(
        CodingRow{"gzip", "gzip", gzip("hello"), "hello"},
        CodingRow{"x-gzip", "X-GZip", gzip("hello"), "hello"},
        CodingRow{"long gzip", "gzip", gzip(longText()), longText()},
        CodingRow{"empty gzip", "gzip", gzip(""), ""}, CodingRow{"no body", "gzip", "", ""},
        CodingRow{"two members", "gzip", gzip("hel") + gzip("lo"), "hello"},
        CodingRow{"three members, one empty", "gzip", gzip("hel") + gzip("") + gzip("lo"), "hello"},
        CodingRow{"padding", "gzip", gzip("hello") + std::string(1000, '\0'), "hello"},
        CodingRow{"padding and a member", "gzip", gzip("hello") + "xx" + gzip("no"), "hello"},
        CodingRow{"deflate with zlib frame", "deflate", zlibDeflate(longText()), longText()},
        CodingRow{"deflate without frame", "deflate", rawDeflate(longText()), longText()},
        CodingRow{"identity", "identity, gzip", gzip("hello"), "hello"},
        CodingRow{"two layers", "gzip, deflate", layered(2), "hello"},
        CodingRow{"five layers", "gzip,deflate,gzip,deflate,gzip", layered(5), "hello"}));

INSTANTIATE_TEST_SUITE_P(Unknown, ContentCoding,
                         testing::Values(CodingRow{"compress", "compress", "raw", "raw", false},
                                         CodingRow{"br", "br", "raw", "raw", false},
                                         CodingRow{"nonsense", "foo, gzip", "raw", "raw", false},
                                         CodingRow{"identity", "identity", "raw", "raw", false},
                                         CodingRow{"empty", "", "raw", "raw", false}));

TEST(ContentDecoding, HeadHasNothingToDecode) {
  ScriptedServer server;
  server.route("/",
               Script().respond(200, {{"Content-Encoding", "gzip"}, {"Content-Length", "50"}}));
  RecordedSession session;
  auto request = RecordedSession::request(server.url("/"));
  request.setHTTPMethod("HEAD");
  const auto loaded = session.load(request);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.response->expectedContentLength(), 50);
}

// 64 MiB of nothing, thrice packed, fit into a few hundred bytes: what the delegate has not taken
// must not pile up.
TEST(ContentDecoding, ABombIsReadNoFasterThanItIsTaken) {
  constexpr std::size_t size = 64 << 20;
  const auto bomb = gzip(gzip(gzip(std::string(size, '\0'))));
  ASSERT_LT(bomb.size(), 16'000u);
  ScriptedServer server;
  server.route("/", Script().respond(200, {{"Content-Encoding", "gzip, gzip, gzip"}}, bomb));
  struct CountingDelegate : RecordingDelegate {
    void didReceiveData(URLSession&, URLSessionDataTask&, Data data) override {
      largest = std::max(largest, data.size());
      total += data.size();
    }
    std::size_t largest = 0;
    std::size_t total = 0;
  };
  const auto delegate = std::make_shared<CountingDelegate>();
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
  session->dataTask(RecordedSession::request(server.url("/")))->resume();
  ASSERT_TRUE(delegate->waitForCompletion(1, std::chrono::seconds(60)));
  EXPECT_EQ(delegate->record(1).code(), 0);
  EXPECT_EQ(delegate->total, size);
  EXPECT_LE(delegate->largest, 2u << 20);
  session->invalidateAndCancel();
  EXPECT_TRUE(delegate->waitForInvalid());
}

}  // namespace
}  // namespace tarn::test
