#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/FilesFixture.hpp>
#include <Support/Compression.hpp>
#include <Support/NginxServer.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tarn::test {
namespace {

using State = URLSessionTask::State;

constexpr std::size_t megabyte = 1 << 20;

/// Reads each file within its event, as an application has to.
struct FileReader {
  explicit FileReader(RecordedSession& session) {
    session.delegate().onFile = [this](URLSessionDownloadTask&, const std::string& path) {
      content = readFile(path);
      stat(path.c_str(), &status);
    };
  }

  std::string content;
  struct stat status {};
};

std::string noise(std::size_t size) {
  std::string bytes(size, '\0');
  std::minstd_rand random(7);
  for (auto& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// A body that nobody could hold in a socket's buffer.
struct LargeBody {
  std::string block = noise(megabyte);
  std::size_t times = 16;

  std::size_t size() const { return block.size() * times; }
  std::string hash() const { return Hash::ofRepeated(block, times); }
  Script script() const {
    return Script().head(200, {{"Content-Length", std::to_string(size())}}).repeat(block, times);
  }
};

class DownloadTask : public DownloadFiles {};

TEST_F(DownloadTask, WritesTheBodyToAFileOfItsOwn) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {{"Content-Type", "text/plain"}}, "hello"));
  RecordedSession session;
  const FileReader reader(session);
  const auto task = session->downloadTask(RecordedSession::request(server.url("/")));
  EXPECT_EQ(task->state(), State::suspended);
  const auto loaded = session.finished(session.start(task));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_EQ(task->state(), State::completed);
  EXPECT_EQ(task->countOfBytesReceived(), 5);
  EXPECT_EQ(reader.content, "hello");
  EXPECT_EQ(reader.status.st_mode, static_cast<mode_t>(S_IFREG | 0600));
  ASSERT_EQ(loaded.record.files.size(), 1u);
  EXPECT_EQ(loaded.record.files[0].rfind('/'), directory().size());
  EXPECT_TRUE(loaded.record.files[0].starts_with(directory()));
  EXPECT_FALSE(fileExists(loaded.record.files[0]));
  using Write = std::array<std::int64_t, 3>;
  EXPECT_EQ(loaded.record.writes, std::vector<Write>({Write{5, 5, 5}}));
  EXPECT_EQ(loaded.record.dataEvents, 0);
  EXPECT_TRUE(loaded.record.resumes.empty());
}

TEST_F(DownloadTask, TellsOfEachPieceInOrder) {
  const LargeBody body;
  ScriptedServer server;
  server.route("/", body.script());
  RecordedSession session;
  std::string hash;
  session.delegate().onFile = [&](URLSessionDownloadTask& task, const std::string& path) {
    hash = Hash::ofFile(path);
    EXPECT_EQ(task.state(), State::completed);
  };
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(hash, body.hash());
  std::int64_t total = 0;
  for (const auto& [bytes, written, expected] : loaded.record.writes) {
    EXPECT_GT(bytes, 0);
    total += bytes;
    EXPECT_EQ(written, total);
    EXPECT_EQ(expected, static_cast<std::int64_t>(body.size()));
  }
  EXPECT_EQ(total, static_cast<std::int64_t>(body.size()));
  EXPECT_LT(loaded.record.writes.size(), body.size() / 4096);
}

TEST_F(DownloadTask, AnAnswerOfAnyStatusIsAFile) {
  for (const int status : {201, 300, 404, 500}) {
    SCOPED_TRACE(status);
    ScriptedServer server;
    server.route("/", Script().respond(status, {}, "page"));
    RecordedSession session;
    const FileReader reader(session);
    const auto loaded = session.finished(download(session, server.url("/")));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.status(), status);
    EXPECT_EQ(reader.content, "page");
  }
}

TEST_F(DownloadTask, AnEmptyBodyIsAnEmptyFile) {
  for (const int status : {200, 204}) {
    SCOPED_TRACE(status);
    ScriptedServer server;
    server.route("/", Script().respond(status));
    RecordedSession session;
    const FileReader reader(session);
    const auto loaded = session.finished(download(session, server.url("/")));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.record.files.size(), 1u);
    EXPECT_TRUE(S_ISREG(reader.status.st_mode));
    EXPECT_EQ(reader.status.st_size, 0);
    EXPECT_TRUE(loaded.record.writes.empty());
  }
}

TEST_F(DownloadTask, AFileThatIsMovedAwayStays) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  const TemporaryDirectory elsewhere;
  session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
    std::filesystem::rename(path, elsewhere.file("kept"));
  };
  EXPECT_EQ(session.finished(download(session, server.url("/"))).code(), 0);
  EXPECT_EQ(readFile(elsewhere.file("kept")), "hello");
  std::filesystem::remove_all(elsewhere.path());
}

TEST_F(DownloadTask, OfUnknownLengthExpectsMinusOne) {
  const auto text = noise(100'000);
  ScriptedServer server;
  server.route("/chunked", Script().respondChunked(200, {}, {text.substr(0, 9), text.substr(9)}));
  server.route("/closed", Script().head(200).send(text).close());
  server.route("/gzip", Script().respond(200, {{"Content-Encoding", "gzip"}}, gzip(text)));
  for (const char* path : {"/chunked", "/closed", "/gzip"}) {
    SCOPED_TRACE(path);
    RecordedSession session;
    const FileReader reader(session);
    const auto loaded = session.finished(download(session, server.url(path)));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_TRUE(reader.content == text);
    ASSERT_FALSE(loaded.record.writes.empty());
    EXPECT_EQ(loaded.record.writes.back()[1], static_cast<std::int64_t>(text.size()));
    EXPECT_EQ(loaded.record.writes.back()[2], -1);
  }
}

TEST_F(DownloadTask, OfARedirectIsWhatItLeadsTo) {
  ScriptedServer server;
  server.route("/", Script().respond(302, {{"Location", "/file"}}, "moved"));
  server.route("/file", Script().respond(200, {}, "hello"));
  RecordedSession session;
  const FileReader reader(session);
  EXPECT_EQ(session.finished(download(session, server.url("/"))).code(), 0);
  EXPECT_EQ(reader.content, "hello");
  session.delegate().onRedirect = [](URLSessionTask&, const URLRequest&, const auto& answer) {
    answer(std::nullopt);
  };
  EXPECT_EQ(session.finished(download(session, server.url("/"))).status(), 302);
  EXPECT_EQ(reader.content, "moved");
}

TEST_F(DownloadTask, AThrowingEventCountsAsHandled) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  session.delegate().onWrite = [](URLSessionDownloadTask&) {
    throw URLError(URLError::cannotWriteToFile, "from the write");
  };
  session.delegate().onFile = [](URLSessionDownloadTask&, const std::string&) {
    throw std::runtime_error("from the file");
  };
  testing::internal::CaptureStderr();
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.record.files.size(), 1u);
  const auto log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("from the write"), std::string::npos) << log;
  EXPECT_NE(log.find("from the file"), std::string::npos) << log;
}

// -- Failures: only didComplete tells of them

struct BrokenRow {
  const char* name;
  Script script;
  std::int64_t code;
};

void PrintTo(const BrokenRow& row, std::ostream* out) { *out << row.name; }

class BrokenDownload : public DownloadFiles, public testing::WithParamInterface<BrokenRow> {};

TEST_P(BrokenDownload, FailsAndLeavesNoFile) {
  ScriptedServer server;
  server.route("/", GetParam().script);
  RecordedSession session;
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), GetParam().code);
  EXPECT_TRUE(loaded.record.files.empty());
  EXPECT_EQ(entries(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, BrokenDownload,
    testing::Values(
        BrokenRow{"cut", Script().head(200, {{"Content-Length", "9"}}).send("part").close(),
                  URLError::networkConnectionLost},
        BrokenRow{"reset", Script().head(200, {{"Content-Length", "9"}}).send("part").reset(),
                  URLError::networkConnectionLost},
        BrokenRow{"cut between chunks",
                  Script().head(200, {{"Transfer-Encoding", "chunked"}}).chunk("part").close(),
                  URLError::networkConnectionLost},
        BrokenRow{"no answer", Script().close(), URLError::networkConnectionLost},
        BrokenRow{"corrupt coding",
                  Script().respond(200, {{"Content-Encoding", "gzip"}}, "no gzip at all"),
                  URLError::cannotDecodeRawData},
        BrokenRow{"cut coding",
                  Script().respond(200, {{"Content-Encoding", "gzip"}},
                                   gzip(noise(10'000)).substr(0, 5'000)),
                  URLError::cannotDecodeRawData}));

TEST_F(DownloadTask, FailsWhereNoFileCanBeMade) {
  const TemporaryDirectory place;
  writeFile(place.file("file"), "");
  for (const char* name : {"missing", "file", "file/below"}) {
    for (const bool empty : {false, true}) {
      SCOPED_TRACE(std::string(name) + (empty ? " empty" : ""));
      ScriptedServer server;
      server.route("/", Script().respond(200, {}, empty ? "" : "hello"));
      const ScopedEnvironment variable("TMPDIR", place.file(name));
      RecordedSession session;
      const auto loaded = session.finished(download(session, server.url("/")));
      EXPECT_EQ(loaded.code(), URLError::cannotCreateFile);
      EXPECT_NE(loaded.record.error->message().find(place.file(name)), std::string::npos);
      EXPECT_TRUE(loaded.record.writes.empty());
      EXPECT_TRUE(loaded.record.files.empty());
    }
  }
  std::filesystem::remove_all(place.path());
}

TEST_F(DownloadTask, FailsWhereTheDirectoryVanishesMeanwhile) {
  ScriptedServer server;
  server.route("/",
               Script().head(200, {{"Content-Length", "8"}}).send("part").stall().send("more"));
  TemporaryDirectory place;
  const ScopedEnvironment variable("TMPDIR", place.path());
  RecordedSession session;
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(), 4));
  std::filesystem::remove_all(place.path());
  server.releaseStalls();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), URLError::cannotWriteToFile);
  EXPECT_TRUE(loaded.record.files.empty());
}

/// The number of the descriptor that a download writes to.
int descriptorOf(const std::string& directory) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const auto target = std::filesystem::read_symlink(entry.path(), ignored).string();
    if (target.starts_with(directory + "/")) return std::stoi(entry.path().filename());
  }
  return -1;
}

TEST_F(DownloadTask, FailsWhereTheDiskIsFull) {
  const LargeBody body;
  ScriptedServer server;
  server.route("/", body.script());
  RecordedSession session;
  session.delegate().onWrite = [this, done = false](URLSessionDownloadTask&) mutable {
    if (std::exchange(done, true)) return;
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    dup3(full, descriptorOf(directory()), O_CLOEXEC);
    close(full);
  };
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), URLError::cannotWriteToFile);
  EXPECT_NE(loaded.record.error->message().find("No space left"), std::string::npos)
      << loaded.record.error->message();
  EXPECT_EQ(loaded.record.writes.size(), 1u);
  EXPECT_TRUE(loaded.record.files.empty());
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST_F(DownloadTask, FailsAtTheLimitOfAFilesSize) {
  const LargeBody body;
  ScriptedServer server;
  server.route("/", body.script());
  server.route("/small", Script().respond(200, {}, std::string(2 * megabyte, 'x')));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit limit = before;
  limit.rlim_cur = megabyte + 1;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  {
    RecordedSession session;
    for (const char* path : {"/", "/small"}) {
      SCOPED_TRACE(path);
      const auto loaded = session.finished(download(session, server.url(path)));
      EXPECT_EQ(loaded.code(), URLError::cannotWriteToFile);
      EXPECT_TRUE(loaded.record.files.empty());
    }
  }
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
}

TEST_F(DownloadTask, FailsWhereTheFileCannotBeClosed) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  session.delegate().onWrite = [this](URLSessionDownloadTask&) {
    close(descriptorOf(directory()));
  };
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), URLError::cannotCloseFile);
  EXPECT_TRUE(loaded.record.files.empty());
}

// -- Cancelling

TEST_F(DownloadTask, CancelledBeforeItStarts) {
  ScriptedServer server;
  RecordedSession session;
  const auto task = session->downloadTask(RecordedSession::request(server.url("/")));
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(DownloadTask, CancelledInTheMiddle) {
  ScriptedServer server;
  server.route("/", Script().head(200, {{"Content-Length", "9"}}).send("part").stall());
  RecordedSession session;
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(), 4));
  EXPECT_EQ(entries().size(), 1u);
  EXPECT_EQ(openFiles(), 1u);
  task->cancel();
  const auto loaded = session.finished(task);
  EXPECT_EQ(loaded.code(), URLError::cancelled);
  EXPECT_TRUE(loaded.record.files.empty());
  EXPECT_EQ(entries().size(), 0u);
  EXPECT_EQ(openFiles(), 0u);
}

TEST_F(DownloadTask, CancelledWithinAnEventOfItsOwn) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  session.delegate().onWrite = [](URLSessionDownloadTask& task) { task.cancel(); };
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), URLError::cancelled);
  EXPECT_TRUE(loaded.record.files.empty());
}

TEST_F(DownloadTask, CancellingInTheFilesEventIsTooLate) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  session.delegate().onFile = [](URLSessionDownloadTask& task, const std::string&) {
    task.cancel();
  };
  const auto loaded = session.finished(download(session, server.url("/")));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.record.files.size(), 1u);
}

TEST_F(DownloadTask, EndsWithItsSession) {
  ScriptedServer server;
  server.route("/", Script().head(200, {{"Content-Length", "9"}}).send("part").stall());
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDownloadTask>> tasks;
  for (int i = 0; i < 6; ++i) {
    tasks.push_back(download(session, server.url("/")));
    ASSERT_TRUE(session.delegate().waitForWritten(tasks.back()->taskIdentifier(), 4));
  }
  session->invalidateAndCancel();
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_EQ(entries().size(), 0u);
}

/// Many downloads, each cancelled at a moment of its own.
void cancelAtRandom(RecordedSession& session, const std::string& url, unsigned count) {
  constexpr unsigned batch = 50;
  std::minstd_rand random(11);
  for (unsigned done = 0; done < count; done += batch) {
    std::vector<std::shared_ptr<URLSessionDownloadTask>> tasks;
    for (unsigned i = 0; i < batch; ++i) {
      tasks.push_back(session.start(session->downloadTask(RecordedSession::request(url))));
    }
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 2; ++seed) {
      threads.emplace_back([&tasks, &session, seed, moment = random()] {
        std::minstd_rand own(static_cast<unsigned>(moment) + seed);
        for (unsigned i = seed; i < batch; i += 2) {
          // Some wait until there is a file, the others are cancelled in whatever state they are.
          if (own() % 3 == 0) {
            EXPECT_TRUE(session.delegate().waitForFileOrEnd(tasks[i]->taskIdentifier()));
          }
          if (own() % 16 != 0) tasks[i]->cancel();
        }
      });
    }
    for (auto& thread : threads) thread.join();
    for (const auto& task : tasks) {
      const auto loaded = session.finished(task, std::chrono::seconds(60));
      EXPECT_TRUE(loaded.code() == 0 || loaded.code() == URLError::cancelled) << loaded.code();
      EXPECT_EQ(loaded.record.files.size(), loaded.code() == 0 ? 1u : 0u);
    }
  }
}

TEST_F(DownloadTask, AThousandCancelledAtRandomLeaveNothing) {
  ScriptedServer server(false);
  server.setHandler([block = noise(256 * 1024)](const ReceivedRequest&) {
    return Script().head(200, {{"Content-Length", "1048576"}}).repeat(block, 4);
  });
  RecordedSession session;
  cancelAtRandom(session, server.url("/"), 1000);
  EXPECT_EQ(entries().size(), 0u);
  EXPECT_EQ(openFiles(), 0u);
}

// -- Pace

TEST_F(DownloadTask, ASlowDelegateHoldsUpTheServer) {
  LargeBody body;
  body.times = 64;
  ScriptedServer server;
  server.route("/", body.script());
  ScriptedServer other;
  RecordedSession session;
  const DispatchSemaphore gate(0);
  std::string hash;
  session.delegate().onWrite = [&, first = true](URLSessionDownloadTask&) mutable {
    if (std::exchange(first, false)) gate.wait();
  };
  session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
    hash = Hash::ofFile(path);
  };
  const auto task = download(session, server.url("/"));
  ASSERT_TRUE(session.delegate().waitForWritten(task->taskIdentifier(), 1));
  // Others go on meanwhile; by then the loop has read as much as it will.
  for (int i = 0; i < 50; ++i) EXPECT_EQ(session.load(other.url("/")).status(), 404);
  EXPECT_LT(task->countOfBytesReceived(), 4 << 20);
  gate.signal();
  EXPECT_EQ(session.finished(task).code(), 0);
  EXPECT_EQ(hash, body.hash());
}

TEST_F(DownloadTask, SuspendedAtRandomLosesNothing) {
  LargeBody body;
  body.times = 64;
  ScriptedServer server;
  server.route("/", body.script());
  RecordedSession session;
  std::string hash;
  session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
    hash = Hash::ofFile(path);
  };
  const auto task = download(session, server.url("/"));
  while (task->state() != State::completed) {
    task->suspend();
    std::this_thread::yield();
    task->resume();
  }
  EXPECT_EQ(session.finished(task).code(), 0);
  EXPECT_EQ(hash, body.hash());
}

TEST_F(DownloadTask, OfAnySizeNeedsLittleMemory) {
  LargeBody body;
  body.times = 256;
  ScriptedServer server;
  server.route("/", body.script());
  RecordedSession session;
  std::string hash;
  session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
    hash = Hash::ofFile(path);
  };
  MemoryPeak::mark();
  const auto loaded =
      session.finished(download(session, server.url("/")), std::chrono::seconds(100));
  EXPECT_LT(MemoryPeak::growth(), 16 * megabyte * MemoryPeak::factor());
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(hash, body.hash());
}

// -- Beside the ordinary world

class NginxDownload : public DownloadFiles {
 protected:
  static void SetUpTestSuite() { server_ = new NginxServer(trustedAuthority(), 8 << 20); }
  static void TearDownTestSuite() { delete server_; }

  static NginxServer& server() { return *server_; }
  static std::vector<std::string> addresses(const char* path) {
    return {server().url(path), server().secureUrl(path)};
  }

 private:
  static inline NginxServer* server_ = nullptr;
};

TEST_F(NginxDownload, IsTheSameOverEveryVersionOfHTTP) {
  for (const auto& url : addresses("/big")) {
    SCOPED_TRACE(url);
    RecordedSession session;
    std::string hash;
    session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
      hash = Hash::ofFile(path);
    };
    const auto loaded = session.finished(download(session, url));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.response->httpVersion(), url.starts_with("https") ? "HTTP/2" : "HTTP/1.1");
    EXPECT_EQ(hash, Hash::of(server().bigBody()));
  }
}

TEST_F(NginxDownload, UndoesAnAnnouncedCoding) {
  for (const auto& url : addresses("/text")) {
    SCOPED_TRACE(url);
    RecordedSession session;
    const FileReader reader(session);
    auto request = RecordedSession::request(url);
    request.setValue("gzip", "Accept-Encoding");
    const auto loaded = session.finished(download(session, request));
    EXPECT_EQ(loaded.header("Content-Encoding"), "gzip");
    EXPECT_EQ(reader.content, server().textBody());
  }
}

TEST_F(NginxDownload, AThousandCancelledAtRandomLeaveNothing) {
  RecordedSession session;
  ASSERT_EQ(session.load(server().secureUrl("/hello")).text(), "hello");
  cancelAtRandom(session, server().secureUrl("/big"), 1000);
  EXPECT_EQ(entries().size(), 0u);
  EXPECT_EQ(openFiles(), 0u);
}

// -- The end of the process

constexpr const char* addressVariable = "TARN_TEST_DOWNLOAD_ADDRESS";

/// Ends the process in the middle of a download, after a child of it ended beside it.
[[noreturn]] void exitInTheMiddle() {
  static auto* const session = new RecordedSession;  // never destroyed: at work to the end
  const auto task =
      session->start((*session)->downloadTask(RecordedSession::request(getenv(addressVariable))));
  const bool written = session->delegate().waitForWritten(task->taskIdentifier(), 4);
  const pid_t child = fork();
  if (child == 0) std::exit(0);  // removes nothing that is its parent's
  waitpid(child, nullptr, 0);
  const auto directory = std::filesystem::temp_directory_path();
  const bool there =
      std::filesystem::directory_iterator(directory) != std::filesystem::directory_iterator();
  std::exit(written && there ? 7 : 1);
}

TEST(DownloadExit, LeavesNoFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct Server {
    Server() {
      server.route("/", Script().head(200, {{"Content-Length", "9"}}).send("part").stall());
    }
    ScriptedServer server;
    TemporaryDirectory directory;
    ScopedEnvironment address{addressVariable, server.url("/")};
    ScopedEnvironment place{"TMPDIR", directory.path()};
  };
  std::optional<Server> server;
  // Otherwise this is the process that is to end.
  if (getenv(addressVariable) == nullptr) server.emplace();
  EXPECT_EXIT(exitInTheMiddle(), testing::ExitedWithCode(7), "");
  ASSERT_TRUE(server.has_value());
  EXPECT_TRUE(std::filesystem::is_empty(server->directory.path()));
}

}  // namespace
}  // namespace tarn::test
