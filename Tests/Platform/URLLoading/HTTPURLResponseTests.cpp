#include <Platform/URLLoading/HTTPURLResponse.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

HTTPURLResponse response(HTTPHeaderFields fields,
                         const char* url = "https://example.com/dir/page") {
  return HTTPURLResponse(URL(url), 200, "HTTP/1.1", std::move(fields));
}

TEST(HTTPURLResponse, TakesTypeAndCharsetFromTheContentType) {
  struct Row {
    const char* contentType;
    std::optional<std::string> mimeType;
    std::optional<std::string> charset;
  };
  const std::vector<Row> rows{
      {"text/HTML; charset=ISO-8859-4", "text/html", "iso-8859-4"},
      {"application/json", "application/json", std::nullopt},
      {"text/plain;charset=\"UTF-8\"", "text/plain", "utf-8"},
      {"text/plain; format=flowed; Charset=us-ascii", "text/plain", "us-ascii"},
      {"text/plain; charset=", "text/plain", std::nullopt},
      {" text/plain ; x", "text/plain", std::nullopt},
      {"; charset=utf-8", std::nullopt, "utf-8"},
      {"text/html, text/plain", "text/html", std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.contentType);
    const auto answer = response({{"content-type", row.contentType}});
    EXPECT_EQ(answer.mimeType(), row.mimeType);
    EXPECT_EQ(answer.textEncodingName(), row.charset);
  }
  EXPECT_EQ(response({}).mimeType(), std::nullopt);
  EXPECT_EQ(response({}).textEncodingName(), std::nullopt);
}

TEST(HTTPURLResponse, AnswersOfOtherSchemesSpellTheirTypeAlike) {
  const URLResponse file(URL("file:///tmp/list"), "Text/HTML; charset=UTF-8", 7, "UTF-8");
  EXPECT_EQ(file.mimeType(), "text/html");
  EXPECT_EQ(file.textEncodingName(), "utf-8");
  EXPECT_EQ(file.suggestedFilename(), "list.html");
  for (const std::optional<std::string>& nothing : {std::optional<std::string>(), {""}}) {
    const URLResponse untyped(URL("file:///tmp/list"), nothing, 7, nothing);
    EXPECT_EQ(untyped.mimeType(), std::nullopt);
    EXPECT_EQ(untyped.textEncodingName(), std::nullopt);
    EXPECT_EQ(untyped.suggestedFilename(), "list");
  }
}

TEST(HTTPURLResponse, TakesTheLengthFromTheFieldsUnlessTold) {
  struct Row {
    const char* value;
    std::int64_t length;
  };
  for (const auto& row : std::vector<Row>{{"0", 0},
                                          {"42", 42},
                                          {"9223372036854775807", 9223372036854775807},
                                          {"9223372036854775808", -1},
                                          {"-1", -1},
                                          {"5 ", -1},
                                          {"5abc", -1},
                                          {"", -1}}) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(response({{"Content-Length", row.value}}).expectedContentLength(), row.length);
  }
  EXPECT_EQ(response({}).expectedContentLength(), -1);
  const auto encoded = response({{"Content-Length", "42"}, {"Content-Encoding", "gzip"}});
  EXPECT_EQ(encoded.expectedContentLength(), 42);
  const HTTPURLResponse told(URL("https://example.com/"), 200, "HTTP/2", {{"Content-Length", "42"}},
                             -1);
  EXPECT_EQ(told.expectedContentLength(), -1);
  EXPECT_EQ(told.allHeaderFields().value("Content-Length"), "42");
  EXPECT_EQ(told.httpVersion(), "HTTP/2");
}

struct FilenameRow {
  const char* url;
  const char* disposition;  // null for none
  const char* contentType;  // null for none
  std::string expected;
};

void PrintTo(const FilenameRow& row, std::ostream* out) {
  *out << row.url << " | " << (row.disposition ? row.disposition : "-");
}

class SuggestedFilename : public testing::TestWithParam<FilenameRow> {};

TEST_P(SuggestedFilename, IsAlwaysUsable) {
  const auto& row = GetParam();
  HTTPHeaderFields fields;
  if (row.disposition != nullptr) fields.add("Content-Disposition", row.disposition);
  if (row.contentType != nullptr) fields.add("Content-Type", row.contentType);
  const auto name = response(fields, row.url).suggestedFilename();
  EXPECT_EQ(name, row.expected);
  EXPECT_FALSE(name.empty());
  EXPECT_LE(name.size(), 255u);
  EXPECT_EQ(name.find('/'), std::string::npos);
  EXPECT_NE(name, ".");
  EXPECT_NE(name, "..");
  for (const char c : name) {
    EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) << name;
  }
}

const char* const site = "https://example.com/";
const std::string longType = "text/" + std::string(1000, 'x');

INSTANTIATE_TEST_SUITE_P(
    Sources, SuggestedFilename,
    testing::Values(
        FilenameRow{"https://example.com/a/report.pdf", nullptr, nullptr, "report.pdf"},
        FilenameRow{"https://example.com/a/report.pdf?x=1", nullptr, "text/html", "report.pdf"},
        FilenameRow{"https://example.com/a/b/", nullptr, nullptr, "b"},
        FilenameRow{site, nullptr, nullptr, "example.com"},
        FilenameRow{"https://example.com", nullptr, "text/html", "example.com.html"},
        FilenameRow{"/", nullptr, nullptr, "Unknown"},
        FilenameRow{"/", nullptr, "image/png", "Unknown.png"},
        FilenameRow{site, "attachment; filename=\"x.bin\"", nullptr, "x.bin"},
        FilenameRow{site, "attachment; filename=x.bin", "text/html", "x.bin"},
        FilenameRow{site, "attachment; FILENAME=\"x\"", "application/json; a=b", "x.json"},
        FilenameRow{site, "attachment", "text/plain", "example.com.txt"},
        FilenameRow{site, "attachment", "Text/PLAIN", "example.com.txt"},
        FilenameRow{site, "attachment", longType.c_str(), "example.com"}));

INSTANTIATE_TEST_SUITE_P(
    Dispositions, SuggestedFilename,
    testing::Values(
        FilenameRow{site, "attachment; filename=\"a \\\"b\\\".txt\"", nullptr, "a \"b\".txt"},
        FilenameRow{site, "attachment; filename=\"a;b.txt\"; size=3", nullptr, "a;b.txt"},
        FilenameRow{site, "attachment; filename=a.txt; filename*=UTF-8''n%C3%A4me.txt", nullptr,
                    "näme.txt"},
        FilenameRow{site, "attachment; filename*=iso-8859-1'de'n%E4me.txt", nullptr, "näme.txt"},
        FilenameRow{site, "attachment; filename*=UTF-8''b.txt; filename=c.txt", nullptr, "c.txt"},
        FilenameRow{site, "attachment; filename=a.txt; filename*=UTF-8''%FF.txt", nullptr, "a.txt"},
        FilenameRow{site, "attachment; filename=a.txt; filename*=koi8-r''b.txt", nullptr, "a.txt"},
        FilenameRow{site, "attachment; filename=a.txt; filename*=UTF-8''b%2", nullptr, "a.txt"},
        FilenameRow{site, "attachment; filename=a.txt; filename*=b.txt", nullptr, "a.txt"},
        FilenameRow{site, "attachment; filename=a.txt, attachment; filename=b.txt", nullptr,
                    "b.txt"},
        FilenameRow{site, "attachment; filename=\"n\xE4me.txt\"", nullptr, "näme.txt"},
        FilenameRow{site, "attachment; filename=\"open.txt", nullptr, "open.txt"},
        FilenameRow{site, "attachment; filename=\"\"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename", nullptr, "example.com"},
        FilenameRow{site, ";;;=;filename=;", nullptr, "example.com"}));

INSTANTIATE_TEST_SUITE_P(
    Hostile, SuggestedFilename,
    testing::Values(
        FilenameRow{site, "attachment; filename=\"/etc/passwd\"", nullptr, "_etc_passwd"},
        FilenameRow{site, "attachment; filename=\"..\"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename=\".\"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename=\"../x\"", nullptr, ".._x"},
        FilenameRow{site, "attachment; filename=\"a\\\\b\"", nullptr, "a_b"},
        FilenameRow{site, "attachment; filename*=UTF-8''a%00%0Ab%7F%C2%85c.txt", nullptr,
                    "abc.txt"},
        FilenameRow{site, "attachment; filename*=UTF-8''%01%02", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename=\"   \"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename=\" .. \"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename=\".\x01.\"", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename*=UTF-8''%2E%2E", nullptr, "example.com"},
        FilenameRow{site, "attachment; filename*=UTF-8''..%2F..%2Fetc%2Fpasswd", nullptr,
                    ".._.._etc_passwd"},
        FilenameRow{site, "attachment; filename*=UTF-8''..%5Cx", nullptr, ".._x"},
        FilenameRow{site, "attachment; filename=\"a\tb\x7F.txt\"", nullptr, "ab.txt"},
        FilenameRow{site, "attachment; filename=..", "text/html", "example.com.html"},
        FilenameRow{site, "attachment; filename=\"...\"", "text/html", "...html"},
        FilenameRow{"https://example.com/a%2Fb", nullptr, nullptr, "a_b"},
        FilenameRow{"https://example.com/%2E%2E", nullptr, nullptr, "example.com"},
        FilenameRow{"https://example.com/%FF%FE", nullptr, nullptr, "example.com"}));

TEST(SuggestedFilename, IsCutAtACharacterAndKeepsItsExtension) {
  std::string umlauts;
  for (int i = 0; i < 200; ++i) umlauts += "%C3%A4";
  const auto name =
      response({{"Content-Disposition", "attachment; filename*=UTF-8''" + umlauts + ".tar"}})
          .suggestedFilename();
  std::string expected;
  for (int i = 0; i < 125; ++i) expected += "ä";
  EXPECT_EQ(name, expected + ".tar");
  const std::string plain(300, 'x');
  EXPECT_EQ(
      response({{"Content-Disposition", "attachment; filename=" + plain}}).suggestedFilename(),
      plain.substr(0, 255));
}

}  // namespace
}  // namespace tarn
