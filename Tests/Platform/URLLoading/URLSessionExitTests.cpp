#include <Platform/URLLoading/LoadingFixture.hpp>

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <csignal>
#include <cstdlib>

namespace tarn::test {
namespace {

std::sig_atomic_t volatile brokenPipes = 0;

TEST(URLSessionSignals, ABrokenConnectionRaisesNone) {
  const auto before = std::signal(SIGPIPE, [](int) { brokenPipes = brokenPipes + 1; });
  ScriptedServer server;
  server.route("/", Script::afterHead().reset());
  RecordedSession session;
  for (int i = 0; i < 20; ++i) {
    auto request = RecordedSession::request(server.url("/"));
    request.setHTTPMethod("PUT");
    request.setHTTPBody(Data(std::string(1 << 20, 'x')));
    EXPECT_NE(session.load(request).code(), 0);
  }
  std::signal(SIGPIPE, before);
  EXPECT_EQ(brokenPipes, 0);
}

/// The servers for programs that end with requests in flight. They live in the test's own process:
/// in the one that ends, their threads would run into OpenSSL's clean-up themselves.
class ExitServers {
 public:
  ExitServers() : secure_(options()) {
    for (auto* server : {&secure_, &plain_}) {
      server->setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "hello"); });
      server->route("/stall", Script().stall());
      server->route("/endless", Script().head(200).repeatForever("endless "));
    }
  }

  std::string addresses() const { return secure_.localhostUrl("") + " " + plain_.url(""); }

 private:
  static TLSOptions options() {
    const auto files = trustedAuthority().issue();
    TLSOptions options;
    options.certFile = files.certFile;
    options.keyFile = files.keyFile;
    return options;
  }

  ScriptedServer secure_;
  ScriptedServer plain_;
};

constexpr const char* addressesVariable = "TARN_TEST_EXIT_ADDRESSES";

/// Ends the process while requests are in every state.
[[noreturn]] void exitInFlight(int run) {
  // As an application may have done that uses TLS by itself.
  if (run % 2 == 1) OPENSSL_init_ssl(0, nullptr);
  const std::string addresses = getenv(addressesVariable);
  const auto gap = addresses.find(' ');
  const auto secure = addresses.substr(0, gap);
  const auto plain = addresses.substr(gap + 1);
  // Never destroyed, so that they are all at work to the end.
  static auto* const sessions = new std::vector<std::unique_ptr<RecordedSession>>;
  const auto makeSession = [] {
    return sessions->emplace_back(std::make_unique<RecordedSession>()).get();
  };
  auto* const session = makeSession();
  for (const auto* path : {"/", "/stall", "/endless", "/"}) {
    for (int i = 0; i < 4; ++i) session->start(secure + path);
    for (int i = 0; i < 4; ++i) session->start(plain + path);
    makeSession()->start(secure + path);  // a handshake each
#if !defined(TARN_THREAD_SANITIZER)       // it would call libcurl's own resolver thread a leak
    session->start("http://nonexistent.invalid/");
#endif
  }
  // A handshake that never gets its answer.
  auto* const asking = makeSession();
  static auto* const questions = new std::vector<URLChallengeHandler>;
  asking->delegate().onChallenge = [](const auto&, const URLChallengeHandler& answer) {
    questions->push_back(answer);
  };
  asking->start(secure + "/");
  if (run % 3 == 1) static_cast<void>(asking->delegate().waitForChallenges(1));
  static_cast<void>(session->delegate().waitForCompletions(static_cast<std::size_t>(run % 4)));
  std::exit(7);
}

TEST(URLSessionExit, WithRequestsInFlightIsClean) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::optional<ExitServers> servers;
  if (getenv(addressesVariable) == nullptr) {  // otherwise this is the process that is to end
    servers.emplace();
    setenv(addressesVariable, servers->addresses().c_str(), 1);
  }
  for (int run = 0; run < 12; ++run) {
    SCOPED_TRACE(run);
    EXPECT_EXIT(exitInFlight(run), testing::ExitedWithCode(7), "");
  }
  unsetenv(addressesVariable);
}

TEST(URLSessionExit, OnTheDelegateQueueIsClean) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ScriptedServer server;
        RecordedSession session;
        session.delegate().onComplete = [](URLSessionTask&) { std::exit(7); };
        session.load(server.url("/"));
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace tarn::test
