#include <Support/Collector.hpp>
#include <Support/Compression.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <Support/System.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace tarn {
namespace {

using test::Script;
using Case = GZipError::Case;

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

/// Text that compresses to a fraction, as JSON does, and differs throughout.
std::string text(std::size_t size) {
  std::mt19937 random(7);
  std::string text;
  while (text.size() < size) text += "{\"id\":" + std::to_string(random()) + ",\"name\":\"n\"},";
  text.resize(size);
  return text;
}

std::string noise(std::size_t size) {
  std::mt19937 random(11);
  std::string bytes;
  while (bytes.size() < size) bytes += static_cast<char>(random());
  return bytes;
}

Data zip(const std::string& bytes, GZipCompression level = GZipCompression::default_) {
  return GZipArchiver(Data(bytes)).zip(level);
}

template <class F>
void expectError(Case kind, const std::string& zlibMessage, F body) {
  try {
    body();
    ADD_FAILURE() << "No error";
  } catch (const GZipError& error) {
    EXPECT_EQ(error.kind(), kind) << error.message();
    EXPECT_EQ(error.zlibMessage(), zlibMessage);
  }
}

/// The most resident memory that this process has had, in bytes.
std::size_t peakMemory() {
  const std::string status = test::readFile("/proc/self/status");
  return std::stoull(status.substr(status.find("VmHWM:") + 6)) * kib;
}

TEST(GZipCompressionTests, NamesItsLevels) {
  EXPECT_EQ(GZipCompression::none.rawValue, 0);
  EXPECT_EQ(GZipCompression::bestSpeed.rawValue, 1);
  EXPECT_EQ(GZipCompression::bestCompression.rawValue, 9);
  EXPECT_EQ(GZipCompression::default_.rawValue, -1);
  EXPECT_EQ(GZipCompression(9), GZipCompression::bestCompression);
}

TEST(GZipTests, NothingStaysNothing) {
  EXPECT_TRUE(GZipArchiver(Data()).zip(GZipCompression::default_).empty());
  EXPECT_TRUE(GZipUnarchiver(Data()).unzip().empty());
  EXPECT_TRUE(GZipArchiver(Data()).zip(GZipCompression(42)).empty());  // zlib is not even asked
}

TEST(GZipTests, WhatIsGzippedAlreadyIsNotZippedAgain) {
  for (const std::string& bytes :
       {std::string("\x1F\x8B"), std::string("\x1F\x8B and no gzip"), test::gzip("content")}) {
    const Data data(bytes);
    const Data zipped = GZipArchiver(data).zip(GZipCompression::default_);
    EXPECT_EQ(zipped.bytes(), data.bytes());
    EXPECT_EQ(zipped.size(), data.size());
  }
}

TEST(GZipTests, WhatIsNotGzippedIsNotUnzipped) {
  for (const std::string& bytes : {std::string("plain"), std::string("\x1F"),
                                   std::string("\x8B\x1F"), test::zlibDeflate("content")}) {
    const Data data(bytes);
    EXPECT_EQ(GZipUnarchiver(data).unzip().bytes(), data.bytes());
    EXPECT_EQ(GZipUnarchiver(data).unzip(0).bytes(), data.bytes());  // nothing has been unpacked
  }
}

TEST(GZipTests, EveryLevelReadsBack) {
  const std::string content = text(200 * kib);
  std::size_t sizeWithout = 0;
  for (std::int32_t level = -1; level <= 9; ++level) {
    SCOPED_TRACE(level);
    const Data zipped = zip(content, GZipCompression(level));
    EXPECT_TRUE(test::gunzip(zipped.view()) == content);
    EXPECT_EQ(GZipUnarchiver(zipped).unzip(), Data(content));
    if (level == 0) sizeWithout = zipped.size();
  }
  EXPECT_GT(sizeWithout, content.size());
  EXPECT_LT(zip(content, GZipCompression::bestSpeed).size(), content.size() / 2);
  EXPECT_LT(zip(content, GZipCompression::bestCompression).size(),
            zip(content, GZipCompression::bestSpeed).size());
  EXPECT_EQ(zip(content), zip(content, GZipCompression(6)));
}

TEST(GZipTests, TheOutputIsWhatStepsOfTwelveBytesMakeOfIt) {
  for (const std::size_t size : {1u, 2u, 11u, 12u, 13u, 100u, 40'000u, 300'000u}) {
    for (const std::string& content : {text(size), noise(size)}) {
      for (const int level : {-1, 0, 1, 9}) {
        SCOPED_TRACE(std::to_string(size) + " bytes, level " + std::to_string(level));
        EXPECT_TRUE(zip(content, GZipCompression(level)) ==
                    Data(test::gzipInSteps(content, level, 12)));
      }
    }
  }
  // The steps do show: one large buffer gives other blocks.
  const std::string large = text(300'000);
  EXPECT_TRUE(test::gzipInSteps(large, 0, 12) != test::gzipInSteps(large, 0, mib));
}

TEST(GZipTests, ALevelThatZlibDoesNotKnowIsAnError) {
  for (const std::int32_t level : {42, 10, -2, std::numeric_limits<std::int32_t>::min()}) {
    SCOPED_TRACE(level);
    expectError(Case::stream, "unknown gzip error", [&] { zip("a", GZipCompression(level)); });
  }
}

TEST(GZipTests, AStreamThatIsCutShortIsAnErrorWhereverItIsCut) {
  const std::string whole = test::gzip(text(300));
  for (std::size_t size = 2; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    try {
      GZipUnarchiver(Data(whole.substr(0, size))).unzip();
      ADD_FAILURE() << "No error";
    } catch (const GZipError& error) {
      EXPECT_EQ(error.kind(), Case::buffer);
      EXPECT_EQ(error.zlibCode(), -5);
    }
  }
  EXPECT_EQ(GZipUnarchiver(Data(whole)).unzip(), Data(text(300)));
}

TEST(GZipTests, DamageIsAnError) {
  struct Row {
    std::size_t fromEnd;
    const char* message;
  };
  const std::string whole = test::gzip(text(300));
  for (const Row& row : {Row{8, "incorrect data check"}, Row{4, "incorrect length check"}}) {
    SCOPED_TRACE(row.message);
    std::string damaged = whole;
    damaged[damaged.size() - row.fromEnd] ^= 1;
    expectError(Case::data, row.message, [&] { GZipUnarchiver(Data(damaged)).unzip(); });
  }
  expectError(Case::data, "unknown compression method",
              [] { GZipUnarchiver(Data("\x1F\x8B\x07 and no gzip at all")).unzip(); });
}

TEST(GZipTests, OnlyTheFirstMemberIsUnzipped) {
  const std::string first = test::gzip("first");
  EXPECT_EQ(GZipUnarchiver(Data(first + test::gzip("second"))).unzip(), Data("first"));
  EXPECT_EQ(GZipUnarchiver(Data(first + "padding")).unzip(), Data("first"));
  // Where that leaves less than expected of what follows, it does not matter either.
  EXPECT_EQ(GZipUnarchiver(Data(first + "\x1F")).unzip(), Data("first"));
}

TEST(GZipTests, AnEmptyMemberUnzipsToNothing) {
  EXPECT_TRUE(GZipUnarchiver(Data(test::gzip(""))).unzip().empty());
  EXPECT_TRUE(GZipUnarchiver(Data(test::gzip(""))).unzip(0).empty());
}

TEST(GZipTests, ContentUpToTheMaximumIsUnzipped) {
  for (const std::size_t size : {1u, 2u, 1000u, 1'000'000u}) {
    for (const std::string& content : {std::string(size, 'a'), noise(size)}) {
      SCOPED_TRACE(size);
      const GZipUnarchiver unarchiver{Data(test::gzip(content))};
      EXPECT_TRUE(unarchiver.unzip(size) == Data(content));
      EXPECT_TRUE(unarchiver.unzip(size + 1) == Data(content));
      EXPECT_TRUE(unarchiver.unzip(std::numeric_limits<std::size_t>::max()) == Data(content));
      expectError(Case::buffer, "the content is larger than " + std::to_string(size - 1) + " bytes",
                  [&] { unarchiver.unzip(size - 1); });
      expectError(Case::buffer, "the content is larger than 0 bytes", [&] { unarchiver.unzip(0); });
    }
  }
}

TEST(GZipTests, AMaximumBoundsTheMemoryThatABombTakes) {
  constexpr std::size_t maximum = 16 * mib;
  const Data bomb(test::gzipOfZeros(1024 * mib));
  ASSERT_LT(bomb.size(), 2 * mib);
  const std::size_t before = peakMemory();
  expectError(Case::buffer, "the content is larger than 16777216 bytes",
              [&] { GZipUnarchiver(bomb).unzip(maximum); });
  // Sanitizers multiply memory and keep what is freed; without the maximum it would be a gigabyte.
  EXPECT_LT(peakMemory() - before, 256 * mib);
}

TEST(GZipTests, SixtyFourMebibytesReadBack) {
  const Data content(text(64 * mib));
  const Data zipped = GZipArchiver(content).zip(GZipCompression::bestSpeed);
  EXPECT_LT(zipped.size(), content.size() / 2);
  EXPECT_TRUE(GZipUnarchiver(zipped).unzip() == content);
  EXPECT_TRUE(GZipUnarchiver(zipped).unzip(content.size()) == content);
}

/// What the `gzip` command makes of files and what is made of its own.
class GZipCommandTests : public testing::Test {
 protected:
  void run(const std::string& command) const {
    ASSERT_EQ(std::system(("cd '" + directory.path() + "' && " + command).c_str()), 0) << command;
  }
  Data read(const std::string& name) const { return Data(test::readFile(directory.file(name))); }

  test::TemporaryDirectory directory;
};

TEST_F(GZipCommandTests, ReadsWhatIsWrittenHere) {
  const std::string content = text(300 * kib);
  for (const auto level : {GZipCompression::none, GZipCompression::bestSpeed,
                           GZipCompression::bestCompression, GZipCompression::default_}) {
    SCOPED_TRACE(level.rawValue);
    test::writeFile(directory.file("a.gz"), std::string(zip(content, level).view()));
    run("gzip -t a.gz && gzip -dc a.gz > a");
    EXPECT_TRUE(read("a") == Data(content));
  }
}

TEST_F(GZipCommandTests, ReadsMembersWrittenHereOneAfterAnother) {
  test::writeFile(directory.file("a.gz"),
                  std::string(zip("first, ").view()) + std::string(zip("second").view()));
  run("gzip -dc a.gz > a");
  EXPECT_EQ(read("a"), Data("first, second"));
}

TEST_F(GZipCommandTests, WritesWhatIsReadHere) {
  const std::string content = text(300 * kib);
  test::writeFile(directory.file("a"), content);
  for (const char* level : {"-1", "-6", "-9"}) {
    SCOPED_TRACE(level);
    run(std::string("gzip --force --keep --name ") + level + " a");  // with the name in its header
    EXPECT_TRUE(GZipUnarchiver(read("a.gz")).unzip() == Data(content));
  }
}

TEST_F(GZipCommandTests, OfSeveralMembersThatItWritesTheFirstIsRead) {
  run("printf 'first, ' | gzip > a.gz && printf second | gzip >> a.gz && gzip -dc a.gz > a");
  EXPECT_EQ(read("a"), Data("first, second"));
  EXPECT_EQ(GZipUnarchiver(read("a.gz")).unzip(), Data("first, "));
}

static_assert(HTTPContentEncoder<HTTPGzipContentEncoder>);

TEST(HTTPGzipContentEncoderTests, EncodesAtTheDefaultLevel) {
  const HTTPGzipContentEncoder encoder(Data(text(kib)));
  EXPECT_EQ(encoder.originalData, Data(text(kib)));
  EXPECT_EQ(encoder.encodingType(), HTTPContentEncodingType::gzip);
  EXPECT_EQ(encoder.encodedData(), zip(text(kib)));
  EXPECT_EQ(encoder.asData(), encoder.encodedData());
}

struct Upload : DataPostRequestable<Upload> {
  explicit Upload(const std::string& address) : url(address) {}

  URL url;
  Data body;
  std::optional<HTTPContentEncoderType> contentEncoder() const {
    return HTTPContentEncoderType::of<HTTPGzipContentEncoder>();
  }
};

class HTTPGzipContentEncoderWireTests : public test::ServiceTest {
 protected:
  test::ReceivedRequest send(const Data& body) {
    server.route("/upload", Script().respond(200));
    Upload upload(server.url("/upload"));
    upload.body = body;
    upload.send(DispatchQueue("test.completions"), responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    EXPECT_TRUE(responses.value(0).result.isSuccessful());
    return server.request(0);
  }

  test::ScriptedServer server;
  test::Collector<DataResponse> responses;
};

TEST_F(HTTPGzipContentEncoderWireTests, TheServerReceivesAGzippedBodyThatSaysSo) {
  const auto request = send(Data(text(100 * kib)));
  EXPECT_EQ(request.header("Content-Encoding"), "gzip");
  EXPECT_EQ(request.header("Content-Type"), "application/octet-stream");
  EXPECT_EQ(request.header("Content-Length"), std::to_string(request.body.size()));
  EXPECT_LT(request.body.size(), 50 * kib);
  EXPECT_TRUE(test::gunzip(request.body) == text(100 * kib));
}

TEST_F(HTTPGzipContentEncoderWireTests, ABodyThatIsGzippedAlreadyIsSentAsItIs) {
  const std::string body = test::gzip("content");
  const auto request = send(Data(body));
  EXPECT_EQ(request.header("Content-Encoding"), "gzip");
  EXPECT_EQ(request.body, body);
}

}  // namespace
}  // namespace tarn
