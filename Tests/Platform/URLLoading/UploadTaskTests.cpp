#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/FilesFixture.hpp>
#include <Support/NginxServer.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace tarn::test {
namespace {

constexpr std::size_t megabyte = 1 << 20;

URLRequest post(const std::string& url, const char* method = "POST") {
  auto request = RecordedSession::request(url);
  request.setHTTPMethod(method);
  return request;
}

/// Files that a test sends.
class UploadTask : public TransferFiles {
 protected:
  std::string path(const std::string& name) const { return directory() + "/" + name; }
  URL file(const std::string& name, const std::string& content) const {
    writeFile(path(name), content);
    return URL::fileURL(path(name));
  }
  static Loaded upload(RecordedSession& session, const URLRequest& request, const URL& file) {
    return session.finished(session.start(session->uploadTask(request, file)));
  }
};

TEST_F(UploadTask, SendsBytesOrAFileInPlaceOfTheRequestsBody) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "thanks"));
  RecordedSession session;
  auto request = post(server.url("/"));
  request.setHTTPBody(Data("not this"));
  const std::string content("line\r\nand \0 byte", 16);
  for (const auto& task : {session->uploadTask(request, Data(content)),
                           session->uploadTask(request, file("a b%", content))}) {
    const auto loaded = session.finished(session.start(task));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.text(), "thanks");
    const auto received = server.request(server.requestCount() - 1);
    EXPECT_EQ(received.method, "POST");
    EXPECT_EQ(received.body, content);
    EXPECT_EQ(received.header("Content-Length"), "16");
    EXPECT_EQ(received.header("Transfer-Encoding"), std::nullopt);
    EXPECT_EQ(received.header("Content-Type"), std::nullopt);
    EXPECT_EQ(received.header("Expect"), std::nullopt);
  }
}

TEST_F(UploadTask, SendsAnEmptyFile) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "thanks"));
  RecordedSession session;
  for (const char* method : {"POST", "PUT", "PATCH"}) {
    SCOPED_TRACE(method);
    EXPECT_EQ(upload(session, post(server.url("/"), method), file("empty", "")).text(), "thanks");
    EXPECT_EQ(server.request(server.requestCount() - 1).header("Content-Length"), "0");
  }
}

TEST_F(UploadTask, WithHeadSendsNoBody) {
  ScriptedServer server;
  RecordedSession session;
  EXPECT_EQ(upload(session, post(server.url("/"), "HEAD"), file("a", "content")).status(), 404);
  EXPECT_EQ(server.request(0).body, "");
  EXPECT_EQ(server.request(0).header("Content-Length"), std::nullopt);
}

TEST_F(UploadTask, OpensItsFileWhenItStarts) {
  ScriptedServer server;
  RecordedSession session;
  const auto task = session->uploadTask(post(server.url("/")), URL::fileURL(path("later")));
  EXPECT_EQ(openFiles(), 0u);
  writeFile(path("later"), "content");
  session.finished(session.start(task));
  EXPECT_EQ(server.request(0).body, "content");
  EXPECT_EQ(openFiles(), 0u);
}

TEST_F(UploadTask, RefusesWhatIsNoReadableFile) {
  ASSERT_EQ(mkdir(path("directory").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  writeFile(path("file"), "content");
  struct Row {
    URL file;
    std::int64_t code;
  };
  const std::vector<Row> rows{
      {URL::fileURL(path("missing")), URLError::fileDoesNotExist},
      {URL::fileURL(path("missing/file")), URLError::fileDoesNotExist},
      {URL::fileURL(path("file/below")), URLError::fileDoesNotExist},
      {URL::fileURL(path("loop")), URLError::fileDoesNotExist},
      {URL::fileURL(path(std::string(300, 'x'))), URLError::fileDoesNotExist},
      {URL("http://127.0.0.1" + path("file")), URLError::fileDoesNotExist},
      {URL("file://elsewhere" + path("file")), URLError::fileDoesNotExist},
      {URL("file://" + path("file") + "%00"), URLError::fileDoesNotExist},
      {URL::fileURL(path("directory")), URLError::fileIsDirectory},
      {URL::fileURL(path("fifo")), URLError::cannotOpenFile},
      {URL::fileURL("/dev/zero"), URLError::cannotOpenFile},
  };
  ScriptedServer server;
  RecordedSession session;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.file.absoluteString());
    const auto loaded = upload(session, post(server.url("/")), row.file);
    EXPECT_EQ(loaded.code(), row.code);
    EXPECT_EQ(loaded.response, nullptr);
  }
  EXPECT_EQ(server.connectionCount(), 0u);
}

TEST_F(UploadTask, RefusesAFileThatMayNotBeRead) {
  ScriptedServer server;
  RecordedSession session;
  const auto secret = file("secret", "content");
  ASSERT_EQ(chmod(path("secret").c_str(), 0), 0);
  const bool root = geteuid() == 0;
  constexpr uid_t nobody = 65534;
  if (root) {
    ASSERT_EQ(chmod(directory().c_str(), 0755), 0);
    ASSERT_EQ(seteuid(nobody), 0);
  }
  const auto loaded = upload(session, post(server.url("/")), secret);
  if (root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(loaded.code(), URLError::noPermissionsToReadFile);
  EXPECT_NE(loaded.record.error->message().find(path("secret")), std::string::npos);
}

// -- Sent more than once

struct RedirectRow {
  int status;
  const char* method;
  bool bodyFollows;
};

void PrintTo(const RedirectRow& row, std::ostream* out) { *out << row.status << row.method; }

class RedirectedUpload : public UploadTask, public testing::WithParamInterface<RedirectRow> {};

TEST_P(RedirectedUpload, KeepsItsBodyAsLongAsItsMethod) {
  const auto& row = GetParam();
  ScriptedServer server;
  ScriptedServer other;
  const std::string content(3 * megabyte, 'c');
  const auto source = file("content", content);
  for (auto* target : {&server, &other}) {
    SCOPED_TRACE(target == &other ? "another origin" : "the same origin");
    server.route("/", Script().respond(row.status, {{"Location", target->url("/target")}}));
    target->route("/target", Script().respond(200, {}, "thanks"));
    RecordedSession session;
    const auto loaded = upload(session, post(server.url("/"), row.method), source);
    EXPECT_EQ(loaded.text(), "thanks");
    const auto last = target->request(target->requestCount() - 1);
    EXPECT_EQ(last.method, row.bodyFollows ? row.method : "GET");
    EXPECT_TRUE(last.body == (row.bodyFollows ? content : ""));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Status, RedirectedUpload,
    testing::Values(RedirectRow{307, "POST", true}, RedirectRow{308, "PUT", true},
                    RedirectRow{301, "PUT", true}, RedirectRow{301, "POST", false},
                    RedirectRow{302, "POST", false}, RedirectRow{303, "PUT", false}));

TEST_F(UploadTask, AFileThatWasRemovedBeforeTheRedirectIsMissed) {
  ScriptedServer server;
  server.route("/", Script().respond(307, {{"Location", "/target"}}));
  RecordedSession session;
  const auto source = file("content", "content");
  session.delegate().onRedirect = [&](URLSessionTask&, const URLRequest& request,
                                      const auto& answer) {
    unlink(path("content").c_str());
    answer(request);
  };
  EXPECT_EQ(upload(session, post(server.url("/")), source).code(), URLError::fileDoesNotExist);
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(UploadTask, OnADeadConnectionIsSentAgainFromTheStart) {
  ScriptedServer server;
  server.routeSequence(
      "/", {Script().respond(200, {}, "one"), Script().close(), Script().respond(200, {}, "two")});
  RecordedSession session;
  const std::string content(megabyte, 'c');
  const auto source = file("content", content);
  EXPECT_EQ(upload(session, post(server.url("/")), source).text(), "one");
  EXPECT_EQ(upload(session, post(server.url("/")), source).text(), "two");
  ASSERT_EQ(server.requestCount(), 3u);
  EXPECT_TRUE(server.request(2).body == content);
}

// -- Files that do not stay as they were

struct ChangeRow {
  const char* name;
  std::int64_t code;
  void (*change)(const std::string& path);
};

void PrintTo(const ChangeRow& row, std::ostream* out) { *out << row.name; }

class ChangedUpload : public UploadTask, public testing::WithParamInterface<ChangeRow> {};

TEST_P(ChangedUpload, FailsAndIsNeverTakenForWhole) {
  ScriptedServer server;
  server.route("/", Script::afterHead().stall().readBody().respond(200, {}, "thanks"));
  RecordedSession session;
  const auto source = file("content", std::string(48 * megabyte, 'c'));
  const auto task = session.start(session->uploadTask(post(server.url("/")), source));
  ASSERT_TRUE(server.waitForStalls(1));
  GetParam().change(path("content"));
  server.releaseStalls(0);
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), GetParam().code);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
  EXPECT_FALSE(server.request(0).complete);
  EXPECT_EQ(openFiles(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    While, ChangedUpload,
    testing::Values(
        ChangeRow{"shrinks", URLError::requestBodyStreamExhausted,
                  [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), 1), 0); }},
        ChangeRow{"is emptied", URLError::requestBodyStreamExhausted,
                  [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), 0), 0); }},
        ChangeRow{
            "grows", URLError::requestBodyStreamExhausted,
            [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), 64 * megabyte), 0); }},
        ChangeRow{"is written to", URLError::requestBodyStreamExhausted,
                  [](const std::string& path) {
                    std::fstream(path, std::ios::in | std::ios::out) << "other";
                  }},
        ChangeRow{"is replaced", URLError::requestBodyStreamExhausted,
                  [](const std::string& path) {
                    writeFile(path + ".new", std::string(48 * megabyte, 'n'));
                    std::filesystem::rename(path + ".new", path);
                  }},
        ChangeRow{"is removed", URLError::fileDoesNotExist,
                  [](const std::string& path) { ASSERT_EQ(unlink(path.c_str()), 0); }}));

TEST_F(UploadTask, CancelledInTheMiddleClosesItsFile) {
  ScriptedServer server;
  server.route("/", Script::afterHead().stall());
  RecordedSession session;
  const auto source = file("content", std::string(48 * megabyte, 'c'));
  const auto task = session.start(session->uploadTask(post(server.url("/")), source));
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(openFiles(), 1u);
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_EQ(openFiles(), 0u);
}

TEST_F(UploadTask, AnEarlyAnswerEndsIt) {
  ScriptedServer server;
  server.route("/",
               Script::afterHead().respond(413, {{"Connection", "close"}}, "too large").close());
  RecordedSession session;
  const auto source = file("content", std::string(48 * megabyte, 'c'));
  const auto loaded = upload(session, post(server.url("/")), source);
  // The rest of the body may run into the closed connection before the answer is read.
  EXPECT_TRUE(loaded.status() == 413 || loaded.code() == URLError::networkConnectionLost)
      << loaded.code();
  EXPECT_EQ(openFiles(), 0u);
}

// -- Beside the ordinary world

class NginxUpload : public UploadTask {
 protected:
  static void SetUpTestSuite() { server_ = new NginxServer(trustedAuthority()); }
  static void TearDownTestSuite() { delete server_; }

  static NginxServer& server() { return *server_; }

 private:
  static inline NginxServer* server_ = nullptr;
};

TEST_F(NginxUpload, OfAnySizeNeedsLittleMemoryOverEveryVersionOfHTTP) {
  constexpr std::size_t times = 256;
  std::string block(megabyte, '\0');
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * i / 251);
  {
    std::ofstream source(path("content"), std::ios::binary);
    for (std::size_t i = 0; i < times; ++i) source << block;
  }
  const auto hash = Hash::ofRepeated(block, times);
  for (const auto& url : {server().url("/upload/one"), server().secureUrl("/upload/two")}) {
    SCOPED_TRACE(url);
    RecordedSession session;
    MemoryPeak::mark();
    const auto task =
        session.start(session->uploadTask(post(url, "PUT"), URL::fileURL(path("content"))));
    const auto loaded = session.finished(task, std::chrono::seconds(100));
    EXPECT_LT(MemoryPeak::growth(), 16 * megabyte * MemoryPeak::factor());
    EXPECT_EQ(loaded.status(), 201);
    EXPECT_EQ(Hash::ofFile(server().uploadedFile(url.substr(url.rfind('/') + 1))), hash);
  }
}

}  // namespace
}  // namespace tarn::test
