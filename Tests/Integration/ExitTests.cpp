#include <Support/ScriptedServer.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

namespace tarn::test {
namespace {

// The program's wait status; 0 is a clean exit.
int run(std::string program, std::string url, std::string count, std::string kind = {}) {
  char* const last = kind.empty() ? nullptr : kind.data();
  char* arguments[] = {program.data(), url.data(), count.data(), last, nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0) return -1;
  int status = 0;
  return waitpid(child, &status, 0) == child ? status : -1;
}

TEST(ExitTests, AProcessExitsCleanlyAtAnyMomentWithRequestsInFlight) {
  ScriptedServer server(false);
  server.setHandler([](const ReceivedRequest& request) {
    return request.target.back() == '7' ? Script().stall() : Script().respond(200, {}, "ok");
  });
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(run(TARN_EXIT_IN_FLIGHT, server.url(""), std::to_string(round % 36)), 0)
        << "round " << round;
  }
  EXPECT_GT(server.requestCount(), 1000u);
}

TEST(ExitTests, LeavesNoUnfinishedDownloadBehind) {
  const TemporaryDirectory place;
  const ScopedEnvironment variable("TMPDIR", place.path());
  ScriptedServer server(false);
  server.setHandler([](const ReceivedRequest& request) {
    return request.target.back() == '7' ? Script().head(200).send("part").stall()
                                        : Script().respond(200, {}, "ok");
  });
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(run(TARN_EXIT_IN_FLIGHT, server.url(""), std::to_string(round % 36), "download"), 0);
    for (const auto& entry : std::filesystem::directory_iterator(place.path())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with("TarnDownload-")) << entry.path();
    }
  }
  EXPECT_GT(server.requestCount(), 300u);
}

}  // namespace
}  // namespace tarn::test
