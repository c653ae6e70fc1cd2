#include <Support/NginxServer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tarn::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* downloadExample = TARN_EXAMPLES_DIR "/Download";
constexpr const char* uploadExample = TARN_EXAMPLES_DIR "/Upload";

// One of the example programs at work, its output and errors together in a pipe or a terminal.
class Program {
 public:
  enum class Output { pipe, terminal };

  explicit Program(std::vector<std::string> arguments, Output output = Output::pipe) {
    std::array<int, 2> ends{};
    if (output == Output::terminal) {
      if (openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) != 0)
        throw std::runtime_error("openpty");
    } else if (pipe(ends.data()) != 0) {
      throw std::runtime_error("pipe");
    }
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      execv(pointers[0], pointers.data());
      _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~Program() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    close(output_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void interrupt() const { kill(child_, SIGINT); }

  /// Reads on until the text has come; false where the program ended, or stayed silent, before.
  bool waitForOutput(const std::string& text) {
    while (text_.find(text) == std::string::npos)
      if (!readOn()) return false;
    return true;
  }
  /// The whole output, once the program has ended.
  const std::string& output() {
    while (readOn()) {
    }
    return text_;
  }
  /// Waits for the end of the program; -1 where a signal ended it.
  int exitStatus() {
    output();
    int status = 0;
    if (waitpid(std::exchange(child_, -1), &status, 0) < 0 || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
  }

 private:
  bool readOn() {
    pollfd ready{output_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(patience.count())) != 1) return false;
    std::array<char, 4096> buffer{};
    const auto count = read(output_, buffer.data(), buffer.size());
    if (count <= 0) return false;  // a terminal ends with an error
    text_.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
  }

  pid_t child_ = -1;
  int output_ = -1;
  std::string text_;
};

class FileExamplesTests : public testing::Test {
 protected:
  FileExamplesTests() {
    test::writeFile(place.file("body.txt"), "from the file");
    server.route("/big", Script().respond(200, {{"ETag", "\"1\""}}, content));
    server.route("/missing", Script().respond(404, {}, "none"));
  }

  std::string target() const { return place.file("big"); }
  Program download(const std::string& path, Program::Output output = Program::Output::pipe) const {
    return Program({downloadExample, server.url(path), target()}, output);
  }

  std::string resumeFile() const { return target() + ".resume"; }
  /// Leaves a resume file and the first half in the temporary directory.
  void interruptHalfWay() {
    server.route(
        "/big",
        Script()
            .head(200, {{"ETag", "\"1\""}, {"Accept-Ranges", "bytes"}, {"Content-Length", "1000"}})
            .send(content.substr(0, 500))
            .stall());
    auto program = download("/big");
    ASSERT_TRUE(program.waitForOutput("500 of 1000 bytes\n"));
    program.interrupt();
    EXPECT_EQ(program.exitStatus(), 130);
    EXPECT_THAT(program.output(), EndsWith("Download: interrupted; --resume goes on\n"));
  }

  const std::string content = std::string(500, 'a') + std::string(500, 'b');
  ScriptedServer server;
  const TemporaryDirectory place;
  const TemporaryDirectory temporaryFiles;
  const ScopedEnvironment variable{"TMPDIR", temporaryFiles.path()};
};

TEST_F(FileExamplesTests, DownloadSavesAFileAndTellsInPlainLines) {
  auto program = download("/big");
  EXPECT_THAT(program.output(), EndsWith("1000 of 1000 bytes\nSaved " + target() + "\n"));
  EXPECT_THAT(program.output(), Not(HasSubstr("\r")));
  EXPECT_EQ(program.exitStatus(), 0);
  EXPECT_EQ(readFile(target()), content);
  EXPECT_THAT(fileNames(temporaryFiles.path()), testing::IsEmpty());
}

TEST_F(FileExamplesTests, DownloadDrawsABarInATerminal) {
  if (access("/dev/pts/ptmx", F_OK) != 0) GTEST_SKIP() << "no pseudo-terminals on this machine";
  auto program = download("/big", Program::Output::terminal);
  EXPECT_THAT(program.output(), HasSubstr("\r[" + std::string(40, '#') + "] 100%"));
  EXPECT_THAT(program.output(), EndsWith("\nSaved " + target() + "\r\n"));
  EXPECT_EQ(program.exitStatus(), 0);
  EXPECT_EQ(readFile(target()), content);
}

TEST_F(FileExamplesTests, DownloadGoesOnAfterAnInterruption) {
  interruptHalfWay();
  EXPECT_FALSE(fileExists(target()));

  server.route("/big",
               Script().respond(206, {{"ETag", "\"1\""}, {"Content-Range", "bytes 500-999/1000"}},
                                content.substr(500)));
  Program resumed({downloadExample, "--resume", server.url("/big"), target()});
  EXPECT_THAT(resumed.output(), StartsWith("Resuming at byte 500\n"));
  EXPECT_EQ(resumed.exitStatus(), 0);
  EXPECT_EQ(server.request(1).header("Range"), "bytes=500-");
  EXPECT_EQ(readFile(target()), content);
  EXPECT_FALSE(fileExists(resumeFile()));
  EXPECT_THAT(fileNames(temporaryFiles.path()), testing::IsEmpty());
}

TEST_F(FileExamplesTests, OnlyItsOwnerMayReadWhatIsKept) {
  const auto former = umask(0);
  interruptHalfWay();
  umask(former);
  struct stat status {};
  ASSERT_EQ(stat(resumeFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(FileExamplesTests, WhatIsKeptOfAnotherURLIsNotGoneOnWith) {
  interruptHalfWay();
  server.route("/other", Script().respond(200, {{"ETag", "\"1\""}}, "the other"));
  Program program({downloadExample, "--resume", server.url("/other"), target()});
  EXPECT_THAT(program.output(), StartsWith(resumeFile() + " is of another URL: starting afresh\n"));
  EXPECT_EQ(program.exitStatus(), 0);
  EXPECT_EQ(server.request(1).header("Range"), std::nullopt);
  EXPECT_EQ(readFile(target()), "the other");
  EXPECT_FALSE(fileExists(resumeFile()));
}

TEST_F(FileExamplesTests, WithoutResumeADownloadStartsAfreshOverWhatIsKept) {
  interruptHalfWay();
  server.route("/big", Script().respond(200, {{"ETag", "\"1\""}}, content));
  auto program = download("/big");
  EXPECT_EQ(program.exitStatus(), 0) << program.output();
  EXPECT_EQ(server.request(1).header("Range"), std::nullopt);
  EXPECT_EQ(readFile(target()), content);
  EXPECT_FALSE(fileExists(resumeFile()));
}

TEST_F(FileExamplesTests, AnInterruptionThatKeepsNothingTakesTheFormerResumeFileAlong) {
  interruptHalfWay();
  // The file has changed: the kept part goes, and without a tag no new one can be kept.
  server.route("/big",
               Script().head(200, {{"Content-Length", "1000"}}).send(content.substr(500)).stall());
  Program program({downloadExample, "--resume", server.url("/big"), target()});
  ASSERT_TRUE(program.waitForOutput("500 of 1000 bytes\n"));
  ASSERT_TRUE(fileExists(resumeFile()));
  program.interrupt();
  EXPECT_EQ(program.exitStatus(), 130);
  EXPECT_THAT(program.output(), EndsWith("Download: interrupted\n"));
  EXPECT_FALSE(fileExists(resumeFile()));
}

TEST_F(FileExamplesTests, DownloadTellsWhereItCannotGoOn) {
  server.route("/big", Script().head(200, {{"Content-Length", "1000"}}).send("some").stall());
  auto program = download("/big");
  ASSERT_TRUE(server.waitForStalls(1));
  program.interrupt();
  EXPECT_EQ(program.exitStatus(), 130);
  EXPECT_THAT(program.output(), EndsWith("Download: interrupted\n"));
}

TEST_F(FileExamplesTests, WithNothingToResumeADownloadStartsAfresh) {
  Program program({downloadExample, "--resume", server.url("/big"), target()});
  EXPECT_EQ(program.exitStatus(), 0);
  EXPECT_EQ(readFile(target()), content);
}

TEST_F(FileExamplesTests, AFailedDownloadSaysWhyAndLeavesNoFile) {
  auto program = download("/missing");
  EXPECT_EQ(program.exitStatus(), 1);
  EXPECT_THAT(program.output(), EndsWith("Download: the server answered 404\n"));
  EXPECT_FALSE(fileExists(target()));
  EXPECT_THAT(fileNames(temporaryFiles.path()), testing::IsEmpty());
}

TEST_F(FileExamplesTests, UploadSendsAFileWithPutOrPost) {
  server.route("/put", Script().respond(201, {}, "thank you\n"));
  Program puts({uploadExample, place.file("body.txt"), server.url("/put")});
  EXPECT_EQ(puts.output(), "thank you\nSent: created\n");
  EXPECT_EQ(puts.exitStatus(), 0);
  Program posts({uploadExample, "--post", place.file("body.txt"), server.url("/put")});
  EXPECT_EQ(posts.exitStatus(), 0);
  for (const auto& request : server.requests()) {
    EXPECT_EQ(request.body, "from the file");
    EXPECT_EQ(request.header("Content-Type"), "text/plain");
  }
  EXPECT_EQ(server.request(0).method, "PUT");
  EXPECT_EQ(server.request(1).method, "POST");
}

TEST_F(FileExamplesTests, AFailedUploadSaysWhy) {
  Program refused({uploadExample, place.file("body.txt"), server.url("/missing")});
  EXPECT_EQ(refused.exitStatus(), 1);
  EXPECT_THAT(refused.output(), HasSubstr("Upload: HTTPStatus: notFound:404 is unacceptable\n"));
  Program missing({uploadExample, place.file("no such file"), server.url("/put")});
  EXPECT_EQ(missing.exitStatus(), 1);
  EXPECT_THAT(missing.output(), HasSubstr("Upload: "));
}

TEST_F(FileExamplesTests, WrongArgumentsAreToldApart) {
  struct Row {
    std::vector<std::string> arguments;
    std::string output;
  };
  for (const auto& [arguments, output] :
       {Row{{downloadExample}, "usage: Download"}, Row{{uploadExample, "file"}, "usage: Upload"},
        Row{{downloadExample, "--resume", "http://h/"}, "usage: Download"},
        Row{{downloadExample, "no url", target()}, "Download: "},
        Row{{uploadExample, "file", "no url"}, "Upload: "}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    Program program(arguments);
    EXPECT_THAT(program.output(), StartsWith(output));
    EXPECT_EQ(program.exitStatus(), 2);
  }
}

TEST_F(FileExamplesTests, AFileGoesToNginxAndComesBackTheSame) {
  static TestAuthority authority;
  const ScopedEnvironment trust("SSL_CERT_FILE", authority.caFile());
  const NginxServer nginx(authority);
  std::string body;
  for (int index = 0; index < 200000; ++index) body += std::to_string(index) + "\n";
  writeFile(place.file("numbers"), body);
  for (const auto& url : {nginx.url("/upload/plain"), nginx.secureUrl("/upload/secure")}) {
    SCOPED_TRACE(url);
    Program upload({uploadExample, place.file("numbers"), url});
    EXPECT_EQ(upload.exitStatus(), 0) << upload.output();
    Program download({downloadExample, url, target()});
    EXPECT_EQ(download.exitStatus(), 0) << download.output();
    EXPECT_EQ(readFile(target()), body);
  }
}

}  // namespace
}  // namespace tarn::test
