#include <Support/Rounds.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

namespace tarn::test {
namespace {

// The program's wait status; 0 is a clean exit.
int run(std::string url, int count, std::string what, std::string way) {
  std::string program = TARN_EXIT_IN_FLIGHT;
  std::string answered = std::to_string(count);
  std::array<char*, 6> arguments{program.data(), url.data(), answered.data(),
                                 what.data(),    way.data(), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
    return -1;
  }
  int status = 0;
  return waitpid(child, &status, 0) == child ? status : -1;
}

TLSOptions optionsOf(const CertificateFiles& files) {
  TLSOptions options;
  options.certFile = files.certFile;
  options.keyFile = files.keyFile;
  return options;
}

class ExitTests : public testing::TestWithParam<const char*> {
 protected:
  ExitTests() {
    for (auto* server : {&plain_, &secure_}) {
      server->setHandler([](const ReceivedRequest& request) {
        return request.target.back() == '7' ? Script().stall() : Script().respond(200, {}, "ok");
      });
    }
  }

  TestAuthority authority_;
  const ScopedEnvironment trust_{"SSL_CERT_FILE", authority_.caFile()};
  ScriptedServer plain_{false};
  ScriptedServer secure_{optionsOf(authority_.issue())};
};

TEST_P(ExitTests, AProcessEndsCleanlyAtAnyMomentWithRequestsInFlight) {
  const std::string way = GetParam();
#if defined(TARN_THREAD_SANITIZER) || defined(TARN_ADDRESS_SANITIZER)
  if (way == "fork") GTEST_SKIP() << "No sanitizer is made for threads after a fork of several";
#endif
  for (int round = 0; round < rounds(100); ++round) {
    auto& server = round % 2 == 0 ? plain_ : secure_;
    ASSERT_EQ(run(server.localhostUrl(""), round % 36, "data", way), 0) << "round " << round;
  }
  constexpr std::size_t enough = rounds(500);
  EXPECT_GT(plain_.requestCount(), enough);
  EXPECT_GT(secure_.requestCount(), enough);
}

INSTANTIATE_TEST_SUITE_P(Ways, ExitTests,
                         testing::Values("main", "completion", "thread", "mainqueue", "quick",
                                         "atonce", "fork"),
                         [](const auto& way) { return std::string(way.param); });

TEST(ExitFilesTests, LeavesNoUnfinishedDownloadBehind) {
  const TemporaryDirectory place;
  const ScopedEnvironment variable("TMPDIR", place.path());
  ScriptedServer server(false);
  server.setHandler([](const ReceivedRequest& request) {
    return request.target.back() == '7' ? Script().head(200).send("part").stall()
                                        : Script().respond(200, {}, "ok");
  });
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(run(server.url(""), round % 36, "download", "main"), 0);
    for (const auto& entry : std::filesystem::directory_iterator(place.path())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with("TarnDownload-")) << entry.path();
    }
  }
  EXPECT_GT(server.requestCount(), 300u);
}

}  // namespace
}  // namespace tarn::test
