#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Detail/ResumeData.hpp>
#include <Platform/URLLoading/FilesFixture.hpp>
#include <Support/Collector.hpp>
#include <Support/Compression.hpp>
#include <Support/Eventually.hpp>
#include <Support/NginxServer.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace tarn::test {
namespace {

using detail::ContentRange;
using detail::ResumeData;

// -- The text

const char* const someName = "TarnDownload-0F6C9B8E-3A51-4C1D-9B5E-0123456789AB.tmp";

ResumeData sample() {
  URLRequest request(URL("https://example.com/file?a=b"),
                     URLRequest::CachePolicy::reloadIgnoringLocalCacheData, TimeInterval(2.5));
  request.setAllowsResend(false);
  request.setValue("gzip, br", "Accept-Encoding");
  request.setValue("", "X-Empty");
  request.setValue("a: b", "X-Colon");
  return {request, "\"tag\"", 1234, someName};
}

TEST(ResumeDataText, ComesBackAsItWas) {
  const auto decoded = ResumeData::decode(sample().encoded());
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(decoded->byteCount, 1234);
  EXPECT_EQ(decoded->validator, "\"tag\"");
  EXPECT_EQ(decoded->file, someName);
  EXPECT_EQ(decoded->request.url(), sample().request.url());
  EXPECT_EQ(decoded->request.httpMethod(), "GET");
  EXPECT_EQ(decoded->request.cachePolicy(), sample().request.cachePolicy());
  EXPECT_EQ(decoded->request.timeoutInterval().count(), 2.5);
  EXPECT_FALSE(decoded->request.allowsResend());
  EXPECT_EQ(decoded->request.allHTTPHeaderFields(), sample().request.allHTTPHeaderFields());
  const auto ranged = decoded->rangeRequest();
  EXPECT_EQ(ranged.value("Range"), "bytes=1234-");
  EXPECT_EQ(ranged.value("If-Range"), "\"tag\"");
}

TEST(ResumeDataText, CutAnywhereItIsNoneUnlessBetweenFields) {
  const auto whole = std::string(sample().encoded().view());
  const auto fields = whole.find("field: ");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    const bool betweenFields = size >= fields && whole[size - 1] == '\n';
    EXPECT_EQ(ResumeData::decode(Data(whole.substr(0, size))).has_value(), betweenFields);
  }
}

struct AlteredRow {
  const char* part;
  const char* other;
};

TEST(ResumeDataText, AlteredItIsNone) {
  const std::vector<AlteredRow> rows{
      {"TarnDownload 1", "TarnDownload 2"},
      {"file: TarnDownload-", "file: ../TarnDownload-"},
      {"file: TarnDownload-", "file: /etc/TarnDownload-"},
      {"0F6C9B8E-3A51", "0F6C9B8E/3A51"},
      {".tmp", ".txt"},
      {"bytes: 1234", "bytes: 0"},
      {"bytes: 1234", "bytes: -5"},
      {"bytes: 1234", "bytes: 12x"},
      {"bytes: 1234", "bytes: 99999999999999999999"},
      {"validator: \"tag\"", "validator: W/\"tag\""},
      {"validator: \"tag\"", "validator: \"t\"ag\""},
      {"validator: \"tag\"", "validator: yesterday"},
      {"method: GET", "method: POST"},
      {"method: GET", "method: G T"},
      {"url: https", "url: not a url https"},
      {"timeout: 2.5", "timeout: soon"},
      {"cache-policy: 1", "cache-policy: 9"},
      {"cache-policy: 1", "cache-policy: -1"},
      {"resend: 0", "resend: no"},
      {"field: X-Empty", "field: X Empty"},
      {"field: X-Empty", "Field: X-Empty"},
      {"field: X-Empty", "field: Range"},
      {"field: X-Empty", "field: if-range"},
      {"field: X-Empty: ", "field: X-Empty"},
  };
  const auto whole = std::string(sample().encoded().view());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.other);
    auto text = whole;
    const auto at = text.find(row.part);
    ASSERT_NE(at, std::string::npos) << row.part;
    text.replace(at, std::strlen(row.part), row.other);
    EXPECT_FALSE(ResumeData::decode(Data(std::move(text))).has_value());
  }
  EXPECT_FALSE(
      ResumeData::decode(Data(whole + "field: X-Long: " + std::string(1 << 20, 'x') + "\n"))
          .has_value());
}

TEST(ResumeDataText, OfRandomBytesIsHarmless) {
  const auto whole = std::string(sample().encoded().view());
  std::minstd_rand random(5);
  for (int i = 0; i < 20'000; ++i) {
    auto text = whole;
    for (int j = 0; j < 3; ++j) text[random() % text.size()] = static_cast<char>(random());
    if (const auto decoded = ResumeData::decode(Data(std::move(text)))) {
      EXPECT_GT(decoded->byteCount, 0);
      EXPECT_EQ(decoded->file.find('/'), std::string::npos);
      EXPECT_TRUE(ResumeData::decode(decoded->encoded()).has_value());
    }
  }
}

TEST(ContentRange, IsReadStrictly) {
  struct Row {
    const char* text;
    std::optional<std::array<std::int64_t, 3>> parts;
  };
  using Parts = std::array<std::int64_t, 3>;
  for (const auto& row : std::vector<Row>{{"bytes 5-9/10", Parts{5, 9, 10}},
                                          {" Bytes 0-0/1 ", Parts{0, 0, 1}},
                                          {"bytes 5-9/*", Parts{5, 9, -1}},
                                          {"bytes 5-9/9", {}},
                                          {"bytes 9-5/10", {}},
                                          {"bytes 5-9", {}},
                                          {"bytes */10", {}},
                                          {"bytes -5-9/10", {}},
                                          {"bytes 5-9/x", {}},
                                          {"bytes 5-9/", {}},
                                          {"bytes=5-9/10", {}},
                                          {"lines 5-9/10", {}},
                                          {"bytes 5-99999999999999999999/*", {}},
                                          {"", {}}}) {
    SCOPED_TRACE(row.text);
    const auto range = ContentRange::parse(row.text);
    ASSERT_EQ(range.has_value(), row.parts.has_value());
    if (range) {
      EXPECT_EQ((Parts{range->first, range->last, range->total}), *row.parts);
    }
  }
}

struct ValidatorRow {
  const char* name;
  HTTPHeaderFields fields;
  std::optional<std::string> validator;
};

TEST(ResumeValidator, IsAStrongOne) {
  const std::string early = "Sun, 06 Nov 1994 08:49:37 GMT";
  const std::string late = "Sun, 06 Nov 1994 08:49:38 GMT";
  const std::vector<ValidatorRow> rows{
      {"strong tag", {{"ETag", "\"a\""}}, "\"a\""},
      {"empty tag", {{"ETag", "\"\""}}, "\"\""},
      {"tag before date", {{"ETag", "\"a\""}, {"Last-Modified", early}, {"Date", late}}, "\"a\""},
      {"weak tag", {{"ETag", "W/\"a\""}}, {}},
      {"weak tag beside a date",
       {{"ETag", "W/\"a\""}, {"Last-Modified", early}, {"Date", late}},
       {}},
      {"two tags", {{"ETag", "\"a\", \"b\""}}, {}},
      {"bare tag", {{"ETag", "a"}}, {}},
      {"date", {{"Last-Modified", early}, {"Date", late}}, early},
      {"next year", {{"Last-Modified", early}, {"Date", "Sun, 01 Jan 1995 00:00:00 GMT"}}, early},
      {"date of the same second", {{"Last-Modified", early}, {"Date", early}}, {}},
      {"date of the future", {{"Last-Modified", late}, {"Date", early}}, {}},
      {"date without the time of the answer", {{"Last-Modified", early}}, {}},
      {"no date", {{"Last-Modified", "yesterday"}, {"Date", late}}, {}},
      {"no month", {{"Last-Modified", "Sun, 06 Novus1994 08:49:37 GMT"}, {"Date", late}}, {}},
      {"none", {}, {}},
      {"ranges", {{"ETag", "\"a\""}, {"Accept-Ranges", "bytes"}}, "\"a\""},
      {"no ranges", {{"ETag", "\"a\""}, {"Accept-Ranges", "None"}}, {}},
      {"coded", {{"ETag", "\"a\""}, {"Content-Encoding", "gzip"}}, {}},
      {"not coded", {{"ETag", "\"a\""}, {"Content-Encoding", "identity"}}, "\"a\""},
  };
  const URLRequest request(URL("http://example.com/"));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const HTTPURLResponse answer(request.url(), 200, "HTTP/1.1", row.fields);
    EXPECT_EQ(detail::resumeValidator(request, answer), row.validator);
  }
}

TEST(ResumeValidator, IsOnlyForTheWholeOfAGet) {
  const URL url("http://example.com/");
  const HTTPURLResponse answer(url, 200, "HTTP/1.1", {{"ETag", "\"a\""}});
  URLRequest post(url);
  post.setHTTPMethod("POST");
  URLRequest body(url);
  body.setHTTPBody(Data("body"));
  URLRequest range(url);
  range.setValue("bytes=1-", "range");
  for (const auto& request : {post, body, range}) {
    EXPECT_EQ(detail::resumeValidator(request, answer), std::nullopt);
  }
  EXPECT_NE(detail::resumeValidator(URLRequest(url), answer), std::nullopt);
}

// -- On the wire

const std::string content = [] {
  std::string bytes(300'000, '\0');
  std::minstd_rand random(3);
  for (auto& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}();
constexpr std::size_t half = 100'000;

std::string contentRange(std::size_t first, std::size_t last, std::size_t total) {
  return "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
         std::to_string(total);
}

/// The answer to a right request for the rest.
Script rest() {
  return Script().respond(
      206,
      {{"Content-Range", contentRange(half, content.size() - 1, content.size())},
       {"ETag", "\"tag\""}},
      content.substr(half));
}

class ResumedDownload : public TransferFiles {
 protected:
  ResumedDownload() {
    server.route("/", Script()
                          .head(200, {{"Content-Length", std::to_string(content.size())},
                                      {"ETag", "\"tag\""}})
                          .send(content.substr(0, half))
                          .stall());
    session.delegate().onFile = [this](URLSessionDownloadTask&, const std::string& path) {
      file = readFile(path);
    };
  }
  /// Cancels a task in the middle, and waits for the outcome.
  std::optional<Data> cancelled(const std::shared_ptr<URLSessionDownloadTask>& task,
                                std::size_t written) {
    EXPECT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(),
                                                  static_cast<std::int64_t>(written)));
    return cancelled(task);
  }
  std::optional<Data> cancelled(const std::shared_ptr<URLSessionDownloadTask>& task) {
    const Collector<std::optional<Data>> answers;
    task->cancel(answers.callback());
    EXPECT_TRUE(answers.waitFor(1));
    EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
    EXPECT_EQ(answers.count(), 1u);
    return answers.value(0);
  }
  /// The data of a download of which the first `half` bytes were kept.
  Data halfDone() {
    auto data = cancelled(download(session, server.url("/")), half);
    EXPECT_TRUE(data.has_value());
    return data.value_or(Data());
  }
  Loaded resumed(const Data& data) {
    return session.finished(session.start(session->downloadTask(data)));
  }
  /// The one file that was kept.
  std::string keptFile() const {
    const auto names = entries();
    EXPECT_EQ(names.size(), 1u);
    return names.empty() ? std::string() : directory() + "/" + names[0];
  }

  ScriptedServer server;
  RecordedSession session;
  std::string file;
};

TEST_F(ResumedDownload, GoesOnWhereItStopped) {
  auto request = RecordedSession::request(server.url("/"));
  request.setValue("kept", "X-Field");
  request.setTimeoutInterval(TimeInterval(30));
  const auto data = cancelled(download(session, request), half);
  ASSERT_TRUE(data.has_value());
  EXPECT_EQ(std::filesystem::file_size(keptFile()), half);
  server.route("/", rest());
  const auto task = session->downloadTask(*data);
  EXPECT_EQ(task->originalRequest().value("Range"), std::nullopt);
  EXPECT_EQ(task->originalRequest().timeoutInterval().count(), 30);
  const auto loaded = session.finished(session.start(task));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.status(), 206);
  EXPECT_TRUE(file == content);
  const auto received = server.request(1);
  EXPECT_EQ(received.header("Range"), "bytes=100000-");
  EXPECT_EQ(received.header("If-Range"), "\"tag\"");
  EXPECT_EQ(received.header("X-Field"), "kept");
  EXPECT_EQ(task->currentRequest().value("Range"), "bytes=100000-");
  using Resume = std::array<std::int64_t, 2>;
  EXPECT_EQ(loaded.record.resumes, std::vector<Resume>({Resume{half, 300'000}}));
  ASSERT_FALSE(loaded.record.writes.empty());
  EXPECT_EQ(loaded.record.writes.front()[1],
            static_cast<std::int64_t>(half) + loaded.record.writes.front()[0]);
  EXPECT_EQ(loaded.record.writes.back()[1], 300'000);
  EXPECT_EQ(loaded.record.writes.back()[2], 300'000);
  EXPECT_EQ(entries().size(), 0u);
}

TEST_F(ResumedDownload, CanStopAgainAndAgain) {
  auto data = halfDone();
  std::size_t done = half;
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    server.route(
        "/",
        Script()
            .head(206, {{"Content-Length", std::to_string(content.size() - done)},
                        {"Content-Range", contentRange(done, content.size() - 1, content.size())},
                        {"ETag", "\"tag\""}})
            .send(content.substr(done, 10'000))
            .stall());
    done += 10'000;
    const auto next = cancelled(session.start(session->downloadTask(data)), done);
    ASSERT_TRUE(next.has_value());
    data = *next;
    EXPECT_EQ(std::filesystem::file_size(keptFile()), done);
  }
  server.route("/",
               Script().respond(
                   206, {{"Content-Range", contentRange(done, content.size() - 1, content.size())}},
                   content.substr(done)));
  EXPECT_EQ(resumed(data).code(), 0);
  EXPECT_TRUE(file == content);
}

TEST_F(ResumedDownload, OfUnknownTotalTakesTheRangesEnd) {
  const auto data = halfDone();
  server.route("/", Script().respondChunked(206, {{"Content-Range", "bytes 100000-299999/*"}},
                                            {content.substr(half)}));
  const auto loaded = resumed(data);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.record.resumes.size(), 1u);
  EXPECT_TRUE(file == content);
}

struct AfreshRow {
  const char* name;
  std::vector<Script> answers;
};

TEST_F(ResumedDownload, StartsAfreshWhereItCannotGoOn) {
  const auto whole = Script().respond(200, {{"ETag", "\"new\""}}, content);
  const std::vector<AfreshRow> rows{
      {"the whole comes", {whole}},
      {"the range is refused",
       {Script().respond(416, {{"Content-Range", "bytes */5"}}, "too far"), whole}},
      {"a part of the range comes",
       {Script().respond(206,
                         {{"Content-Range", "bytes 100000-199999/300000"}, {"ETag", "\"tag\""}},
                         content.substr(half, 100'000)),
        whole}},
      {"the rest of another file comes",
       {Script().respond(206,
                         {{"Content-Range", contentRange(half, content.size() - 1, content.size())},
                          {"ETag", "\"new\""}},
                         std::string(content.size() - half, 'n')),
        whole}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server.route("/", Script()
                          .head(200, {{"Content-Length", std::to_string(content.size())},
                                      {"ETag", "\"tag\""}})
                          .send(content.substr(0, half))
                          .stall());
    const auto data = halfDone();
    server.routeSequence("/", row.answers);
    const auto before = server.requestCount();
    const auto loaded = resumed(data);
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.status(), 200);
    EXPECT_TRUE(loaded.record.resumes.empty());
    EXPECT_TRUE(file == content);
    EXPECT_EQ(server.requestCount(), before + row.answers.size());
    if (row.answers.size() > 1) {
      EXPECT_EQ(server.request(before + 1).header("Range"), std::nullopt);
      EXPECT_EQ(server.request(before + 1).header("If-Range"), std::nullopt);
    }
    EXPECT_EQ(entries().size(), 0u);
  }
}

struct KeptRow {
  const char* name;
  void (*change)(const std::string& path);
};

TEST_F(ResumedDownload, StartsAfreshWhereTheKeptFileIsNotWhatItWas) {
  const std::vector<KeptRow> rows{
      {"shorter", [](const std::string& path) { std::filesystem::resize_file(path, half - 1); }},
      {"longer", [](const std::string& path) { std::filesystem::resize_file(path, half + 1); }},
      {"gone", [](const std::string& path) { std::filesystem::remove(path); }},
      {"a link",
       [](const std::string& path) {
         std::filesystem::rename(path, path + ".other");
         std::filesystem::create_symlink(path + ".other", path);
       }},
      {"a directory",
       [](const std::string& path) {
         std::filesystem::remove(path);
         std::filesystem::create_directory(path);
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server.route("/", Script()
                          .head(200, {{"Content-Length", std::to_string(content.size())},
                                      {"ETag", "\"tag\""}})
                          .send(content.substr(0, half))
                          .stall());
    const auto data = halfDone();
    row.change(keptFile());
    server.route("/", Script().respond(200, {}, content));
    const auto loaded = resumed(data);
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_TRUE(file == content);
    EXPECT_EQ(server.request(server.requestCount() - 1).header("Range"), std::nullopt);
    for (const auto& name : entries()) std::filesystem::remove_all(directory() + "/" + name);
  }
}

TEST_F(ResumedDownload, StartsAfreshWhereTheFileVanishesBeforeTheAnswer) {
  const auto data = halfDone();
  server.routeSequence(
      "/", {Script().stall().respond(206, {{"Content-Range", "bytes 100000-299999/300000"}},
                                     content.substr(half)),
            Script().respond(200, {}, content)});
  ASSERT_TRUE(server.waitForConnectionsClosed(1));
  const auto task = session.start(session->downloadTask(data));
  ASSERT_TRUE(server.waitForRequests(2));
  std::filesystem::remove(keptFile());
  server.releaseStalls();
  EXPECT_EQ(session.finished(task).status(), 200);
  EXPECT_TRUE(file == content);
}

TEST_F(ResumedDownload, OnlyOneTakesTheFileOver) {
  const auto data = halfDone();
  server.setHandler([](const ReceivedRequest& request) {
    return request.header("Range") ? rest() : Script().respond(200, {}, content);
  });
  auto text = std::string(data.view());  // the handler answers for paths without a script
  const auto url = server.url("/");
  text.replace(text.find(url), url.size(), server.url("/handled"));
  std::vector<std::shared_ptr<URLSessionDownloadTask>> tasks;
  session.delegate().onFile = [](URLSessionDownloadTask&, const std::string& path) {
    EXPECT_TRUE(readFile(path) == content);
  };
  for (int i = 0; i < 6; ++i) tasks.push_back(session.start(session->downloadTask(Data(text))));
  std::size_t resumes = 0;
  for (const auto& task : tasks) {
    const auto loaded = session.finished(task);
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.record.files.size(), 1u);
    resumes += loaded.record.resumes.size();
  }
  EXPECT_EQ(resumes, 1u);
  EXPECT_EQ(entries().size(), 0u);
}

struct WrongRow {
  const char* name;
  HeaderList fields;
  std::size_t first;
};

TEST_F(ResumedDownload, FailsForAnotherRangeThanAskedFor) {
  const std::vector<WrongRow> rows{
      {"earlier", {{"Content-Range", "bytes 99999-299999/300000"}}, half - 1},
      {"later", {{"Content-Range", "bytes 100001-299999/300000"}}, half + 1},
      {"of another length", {{"Content-Range", "bytes 100000-299999/300000"}}, half + 1},
      {"unnamed", {}, half},
      {"unreadable", {{"Content-Range", "bytes 100000-/300000"}}, half},
      {"coded",
       {{"Content-Range", "bytes 100000-299999/300000"}, {"Content-Encoding", "gzip"}},
       half},
  };
  const auto data = halfDone();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server.route("/", Script().respond(206, row.fields, content.substr(row.first)));
    const auto loaded = resumed(data);
    EXPECT_EQ(loaded.code(), URLError::cannotParseResponse);
    EXPECT_TRUE(loaded.record.files.empty());
    EXPECT_TRUE(loaded.record.writes.empty());
  }
  // What was kept was not touched: with a right answer the download still goes on.
  server.route("/", rest());
  EXPECT_EQ(resumed(data).record.resumes.size(), 1u);
  EXPECT_TRUE(file == content);
}

TEST_F(ResumedDownload, ThatIsCutLeavesThePartForLater) {
  const auto data = halfDone();
  server.route("/", Script()
                        .head(206, {{"Content-Range", "bytes 100000-299999/300000"},
                                    {"Content-Length", "200000"}})
                        .send("part")
                        .close());
  const auto loaded = resumed(data);
  EXPECT_EQ(loaded.code(), URLError::networkConnectionLost);
  EXPECT_TRUE(loaded.record.files.empty());
  EXPECT_EQ(std::filesystem::file_size(keptFile()), half);
  server.route("/", rest());
  const auto again = resumed(data);
  EXPECT_EQ(again.code(), 0);
  EXPECT_EQ(again.record.resumes.size(), 1u);
  EXPECT_TRUE(file == content);
  EXPECT_EQ(entries().size(), 0u);
}

TEST_F(ResumedDownload, ThatEndsTooEarlyIsAFailure) {
  const auto data = halfDone();
  server.route("/", Script().respondChunked(206, {{"Content-Range", "bytes 100000-299999/300000"}},
                                            {"too little"}));
  EXPECT_EQ(resumed(data).code(), URLError::networkConnectionLost);
  EXPECT_EQ(std::filesystem::file_size(keptFile()), half);
}

TEST_F(ResumedDownload, AnErrorPageIsAFileAndLeavesThePartForLater) {
  const auto data = halfDone();
  server.route("/", Script().respond(503, {}, "later"));
  const auto loaded = resumed(data);
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.status(), 503);
  EXPECT_EQ(file, "later");
  server.route("/", rest());
  EXPECT_EQ(resumed(data).status(), 206);
  EXPECT_TRUE(file == content);
}

TEST_F(ResumedDownload, CancelledBeforeTheAnswerGivesTheSameDataAgain) {
  const auto data = halfDone();
  EXPECT_EQ(cancelled(session->downloadTask(data)), data);
  server.route("/", Script().stall());
  const auto task = session.start(session->downloadTask(data));
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(cancelled(task), data);
  server.route("/", rest());
  EXPECT_EQ(resumed(data).code(), 0);
  EXPECT_TRUE(file == content);
}

TEST_F(ResumedDownload, IsRedirectedWithItsRange) {
  const auto data = halfDone();
  server.route("/", Script().respond(302, {{"Location", "/elsewhere"}}));
  server.route("/elsewhere", rest());
  EXPECT_EQ(resumed(data).code(), 0);
  EXPECT_TRUE(file == content);
  EXPECT_EQ(server.request(2).header("Range"), "bytes=100000-");
}

TEST_F(ResumedDownload, FromWhatIsNoResumeDataFails) {
  for (const char* text : {"", "nonsense", "TarnDownload 1\n"}) {
    SCOPED_TRACE(text);
    const auto loaded = resumed(Data(std::string_view(text)));
    EXPECT_EQ(loaded.code(), URLError::cannotOpenFile);
    EXPECT_EQ(cancelled(session->downloadTask(Data(std::string_view(text)))), std::nullopt);
  }
}

// -- Where there is nothing to go on with

struct UselessRow {
  const char* name;
  const char* method;
  int status;
  HeaderList fields;
};

TEST_F(ResumedDownload, WhatCannotGoOnGivesNoDataAndLeavesNoFile) {
  const std::vector<UselessRow> rows{
      {"no validator", "GET", 200, {}},
      {"weak tag", "GET", 200, {{"ETag", "W/\"tag\""}}},
      {"no ranges", "GET", 200, {{"ETag", "\"tag\""}, {"Accept-Ranges", "none"}}},
      {"error page", "GET", 404, {{"ETag", "\"tag\""}}},
      {"unasked range", "GET", 206, {{"ETag", "\"tag\""}}},
      {"no GET", "POST", 200, {{"ETag", "\"tag\""}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto fields = row.fields;
    fields.emplace_back("Content-Length", "9");
    server.route("/", Script().head(row.status, fields).send("part").stall());
    auto request = RecordedSession::request(server.url("/"));
    request.setHTTPMethod(row.method);
    EXPECT_EQ(cancelled(download(session, request), 4), std::nullopt);
    EXPECT_EQ(entries().size(), 0u);
  }
}

TEST_F(ResumedDownload, ACodedBodyGivesNoData) {
  const auto coded = gzip(content);
  server.route("/", Script()
                        .head(200, {{"Content-Length", std::to_string(coded.size())},
                                    {"Content-Encoding", "gzip"},
                                    {"ETag", "\"tag\""}})
                        .send(coded.substr(0, coded.size() / 2))
                        .stall());
  EXPECT_EQ(cancelled(download(session, server.url("/")), 1), std::nullopt);
  EXPECT_EQ(entries().size(), 0u);
}

TEST_F(ResumedDownload, BeforeTheFirstByteThereIsNoData) {
  server.route("/", Script().head(200, {{"ETag", "\"tag\""}, {"Content-Length", "9"}}).stall());
  EXPECT_EQ(cancelled(session->downloadTask(RecordedSession::request(server.url("/")))),
            std::nullopt);
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(cancelled(task), std::nullopt);
  EXPECT_EQ(entries().size(), 0u);
}

TEST_F(ResumedDownload, EveryHandlerIsAnsweredOnce) {
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(), half));
  const Collector<std::optional<Data>> answers;
  task->cancel(answers.callback());
  task->cancel(answers.callback());
  task->cancel(nullptr);
  session.finished(task);
  task->cancel(answers.callback());
  ASSERT_TRUE(answers.waitFor(3));
  EXPECT_TRUE(answers.value(0).has_value());
  EXPECT_EQ(entries().size(), 1u);
}

TEST_F(ResumedDownload, HandlersRunOnTheDelegatesQueue) {
  const auto queue = std::make_shared<OperationQueue>("events");
  queue->setSuspended(true);
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto own = URLSession::make(URLSessionConfiguration::ephemeral(), delegate, queue);
  const auto task = own->downloadTask(RecordedSession::request(server.url("/")));
  const Collector<std::optional<Data>> answers;
  task->cancel(answers.callback());
  ASSERT_TRUE(eventually([&] { return queue->operationCount() == 1; }));
  EXPECT_EQ(answers.count(), 0u);
  queue->setSuspended(false);
  ASSERT_TRUE(delegate->waitForCompletion(1));
  EXPECT_EQ(answers.count(), 1u);  // before didComplete
  queue->setSuspended(true);
  task->cancel(answers.callback());
  EXPECT_EQ(answers.count(), 1u);
  queue->setSuspended(false);
  EXPECT_TRUE(answers.waitFor(2));
  own->invalidateAndCancel();
  EXPECT_TRUE(delegate->waitForInvalid());
}

TEST_F(ResumedDownload, AFinishedOneGivesNoData) {
  server.route("/", Script().respond(200, {{"ETag", "\"tag\""}}, "hello"));
  const Collector<std::optional<Data>> answers;
  session.delegate().onFile = [&](URLSessionDownloadTask& task, const std::string&) {
    task.cancel(answers.callback());
  };
  const auto task = download(session, server.url("/"));
  EXPECT_EQ(session.finished(task).code(), 0);
  ASSERT_TRUE(answers.waitFor(1));
  task->cancel(answers.callback());
  ASSERT_TRUE(answers.waitFor(2));
  EXPECT_EQ(answers.value(0), std::nullopt);
  EXPECT_EQ(answers.value(1), std::nullopt);
  EXPECT_EQ(entries().size(), 0u);
}

TEST_F(ResumedDownload, AThrowingHandlerHurtsNobody) {
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(), half));
  testing::internal::CaptureStderr();
  task->cancel([](const std::optional<Data>&) { throw std::runtime_error("from the handler"); });
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  const auto log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("from the handler"), std::string::npos) << log;
}

// -- Beside the ordinary world

TEST(ResumedNginxDownload, GoesOnOverEveryVersionOfHTTP) {
  NginxServer server(trustedAuthority(), 32 << 20);
  const TemporaryDirectory place;
  const ScopedEnvironment variable("TMPDIR", place.path());
  for (const auto& url : {server.url("/big"), server.secureUrl("/big")}) {
    SCOPED_TRACE(url);
    RecordedSession session;
    std::string hash;
    session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
      hash = Hash::ofFile(path);
    };
    const Collector<std::optional<Data>> answers;
    session.delegate().onWrite = [&](URLSessionDownloadTask& task) {
      if (task.taskIdentifier() == 1) task.cancel(answers.callback());
    };
    const auto first = session->downloadTask(RecordedSession::request(url));
    EXPECT_EQ(session.finished(session.start(first)).code(), URLError::cancelled);
    ASSERT_TRUE(answers.waitFor(1));
    ASSERT_TRUE(answers.value(0).has_value());
    const auto loaded = session.finished(session.start(session->downloadTask(*answers.value(0))));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.status(), 206);
    EXPECT_EQ(loaded.record.resumes.size(), 1u);
    EXPECT_EQ(hash, Hash::of(server.bigBody()));
  }
  EXPECT_TRUE(std::filesystem::is_empty(place.path()));
}

}  // namespace
}  // namespace tarn::test
