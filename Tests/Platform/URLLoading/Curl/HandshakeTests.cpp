#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/SecureServer.hpp>
#include <Support/Collector.hpp>
#include <Support/Eventually.hpp>
#include <Support/NginxServer.hpp>
#include <Support/Relay.hpp>
#include <Support/SecureFront.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <thread>

namespace tarn::test {
namespace {

using enum URLSessionAuthChallengeDisposition;
using Method = URLProtectionSpace::AuthenticationMethod;
using Handler = URLChallengeHandler;

URLCredential trustOf(const URLAuthenticationChallenge& challenge) {
  return URLCredential(challenge.protectionSpace.serverTrust);
}
void trust(const URLAuthenticationChallenge& challenge, const Handler& answer) {
  if (challenge.protectionSpace.serverTrust) {
    answer(useCredential, trustOf(challenge));
  } else {
    answer(performDefaultHandling, std::nullopt);
  }
}
SecIdentity identityOf(const LeafOptions& leaf) {
  const auto files = trustedAuthority().issue(leaf);
  return SecIdentity::fromPEM(Data(readFile(files.certFile)), Data(readFile(files.keyFile)));
}

LeafOptions client(LeafOptions::Signer signer) {
  auto options = LeafOptions::client("Alice");
  options.signer = signer;
  return options;
}

/// Keeps the questions for the test to answer.
Collector<Handler> keepQuestions(RecordedSession& session) {
  const Collector<Handler> questions;
  session.delegate().onChallenge = [=](const auto&, const Handler& answer) {
    questions.add(answer);
  };
  return questions;
}

/// Each test runs both ways: the handshake waits for the answer, or is repeated with it.
class Handshakes : public testing::TestWithParam<bool> {
 protected:
  bool waits() const { return GetParam(); }

 private:
  const HandshakeWay way_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Both, Handshakes, testing::Values(true, false),
                         [](const auto& way) { return way.param ? "Waiting" : "Repeated"; });

// -- Whom the delegate is asked about, and how often

TEST_P(Handshakes, AskOnceForEachConnectionAndNotWhenItIsUsedAgain) {
  SecureServer server;
  server.route("/last", Script().respond(200, {{"Connection", "close"}}, "bye"));
  RecordedSession session;
  EXPECT_EQ(session.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(session.load(server.localhostUrl("/last")).text(), "bye");
  EXPECT_EQ(session.delegate().challenges().size(), 1u);
  EXPECT_EQ(session.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(session.delegate().challenges().size(), 2u);
  EXPECT_EQ(server.connectionCount(), waits() ? 2u : 4u);
}

TEST_P(Handshakes, TellWhoTheServerIs) {
  SecureServer server(LeafOptions::intermediate());
  RecordedSession session;
  EXPECT_EQ(session.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(session.load(server.url("/")).text(), "hello");
  const auto challenges = session.delegate().challenges();
  ASSERT_EQ(challenges.size(), 2u);
  EXPECT_EQ(challenges[0].host, "localhost");
  EXPECT_EQ(challenges[1].host, "127.0.0.1");
  for (const auto& space : challenges) {
    EXPECT_EQ(space.port, server.port());
    EXPECT_EQ(space.authenticationMethod, Method::serverTrust);
    EXPECT_FALSE(space.isProxy);
    EXPECT_FALSE(space.realm);
    ASSERT_TRUE(space.serverTrust);
    ASSERT_EQ(space.serverTrust->certificates().size(), 2u);
    EXPECT_EQ(space.serverTrust->certificates()[0].subjectSummary(), "localhost");
    EXPECT_EQ(space.serverTrust->certificates()[1].subjectSummary(), "Test Intermediate");
    EXPECT_EQ(space.serverTrust->evaluate(), SecTrustResultType::unspecified);
  }
}

TEST_P(Handshakes, OfPlainConnectionsThereAreNone) {
  ScriptedServer server;
  server.route("/", Script().respond(200, {}, "hello"));
  RecordedSession session;
  EXPECT_EQ(session.load(server.url("/")).text(), "hello");
  EXPECT_TRUE(session.delegate().challenges().empty());
}

TEST_P(Handshakes, KeepWhatASessionTrustsFromTheOthers) {
  SecureServer server(LeafOptions::unknownRoot());
  RecordedSession trusting;
  trusting.delegate().onChallenge = trust;
  RecordedSession other;
  EXPECT_EQ(trusting.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(other.load(server.localhostUrl("/")).code(), URLError::serverCertificateHasUnknownRoot);
  EXPECT_EQ(trusting.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(trusting.delegate().challenges().size(), 1u);
  EXPECT_EQ(other.delegate().challenges().size(), 1u);
}

TEST(HandshakesOverHTTP2, AskOnceForManyTasks) {
  const NginxServer server(trustedAuthority());
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 40; ++i) tasks.push_back(session.start(server.secureUrl("/hello")));
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).text(), "hello");
  EXPECT_EQ(session.delegate().challenges().size(), 1u);
}

// -- What comes of an answer

struct AnswerRow {
  const char* name;
  LeafOptions leaf;
  std::function<void(const URLAuthenticationChallenge&, const Handler&)> answer;
  std::int64_t code;
};

TEST_P(Handshakes, FollowTheAnswer) {
  const auto trusts = [](const auto& challenge, const Handler& answer) {
    trust(challenge, answer);
  };
  const auto gives = [](URLSessionAuthChallengeDisposition disposition,
                        std::optional<URLCredential> credential = std::nullopt) {
    return [=](const auto&, const Handler& answer) { answer(disposition, credential); };
  };
  const URLCredential login("user", "password");
  for (const auto& row : std::vector<AnswerRow>{
           {"a good one trusted", {}, trusts, 0},
           {"an unknown root trusted", LeafOptions::unknownRoot(), trusts, 0},
           {"a self-signed one trusted", LeafOptions::selfSigned(), trusts, 0},
           {"an expired one trusted", LeafOptions::expired(), trusts, 0},
           {"another host's trusted", LeafOptions::wrongHost(), trusts,
            URLError::serverCertificateUntrusted},
           {"a common name trusted", LeafOptions::commonNameOnly(), trusts,
            URLError::serverCertificateUntrusted},
           {"a good one left alone", {}, gives(performDefaultHandling), 0},
           {"an unknown root left alone", LeafOptions::unknownRoot(), gives(performDefaultHandling),
            URLError::serverCertificateHasUnknownRoot},
           {"no credential, good", {}, gives(useCredential), 0},
           {"no credential, unknown root", LeafOptions::unknownRoot(), gives(useCredential),
            URLError::serverCertificateHasUnknownRoot},
           {"a login, good", {}, gives(useCredential, login), 0},
           {"a login, unknown root", LeafOptions::unknownRoot(), gives(useCredential, login),
            URLError::serverCertificateHasUnknownRoot},
           {"no trust, unknown root", LeafOptions::unknownRoot(),
            gives(useCredential, URLCredential(std::shared_ptr<SecTrust>())),
            URLError::serverCertificateHasUnknownRoot},
           {"a good one cancelled", {}, gives(cancelAuthenticationChallenge), URLError::cancelled},
           {"an expired one cancelled", LeafOptions::expired(),
            gives(cancelAuthenticationChallenge), URLError::cancelled},
           {"a good one rejected",
            {},
            gives(rejectProtectionSpace),
            URLError::serverCertificateUntrusted},
           {"an expired one rejected", LeafOptions::expired(), gives(rejectProtectionSpace),
            URLError::serverCertificateHasBadDate},
           {"rejected in spite of a credential",
            {},
            [](const auto&challenge, const Handler&answer) {
              answer(rejectProtectionSpace, trustOf(challenge));
            },
            URLError::serverCertificateUntrusted},
           {"answered twice",
            {},
            [](const auto&challenge, const Handler&answer) {
              answer(useCredential, trustOf(challenge));
              answer(cancelAuthenticationChallenge, std::nullopt);
            },
            0},
           {"the handler dropped", {}, [](const auto&, const Handler&) {}, URLError::cancelled}}) {
    SCOPED_TRACE(row.name);
    SecureServer server(row.leaf);
    RecordedSession session;
    session.delegate().onChallenge = row.answer;
    const auto loaded = session.load(server.localhostUrl("/"));
    EXPECT_EQ(loaded.code(), row.code)
        << (loaded.record.error ? loaded.record.error->message() : "");
    EXPECT_EQ(loaded.text(), row.code == 0 ? "hello" : "");
    EXPECT_EQ(server.requestCount(), row.code == 0 ? 1u : 0u);
    EXPECT_EQ(session.delegate().challenges().size(), 1u);
  }
}

TEST_P(Handshakes, AreCancelledByADelegateThatThrows) {
  SecureServer server;
  RecordedSession session;
  session.delegate().onChallenge = [](const auto&, const Handler&) {
    throw std::runtime_error("from the test");
  };
  testing::internal::CaptureStderr();
  EXPECT_EQ(session.load(server.localhostUrl("/")).code(), URLError::cancelled);
  const auto log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("from the test"), std::string::npos) << log;
}

// -- While the question is open

TEST_P(Handshakes, TakeALateAnswerFromAnyThread) {
  SecureServer server(LeafOptions::unknownRoot());
  RecordedSession session;
  Collector<std::pair<URLAuthenticationChallenge, Handler>> questions;
  session.delegate().onChallenge = [&](const auto& challenge, const Handler& answer) {
    questions.add({challenge, answer});
  };
  const auto task = session.start(server.localhostUrl("/"));
  ASSERT_TRUE(questions.waitFor(1));
  std::thread([&] { trust(questions.value(0).first, questions.value(0).second); }).join();
  EXPECT_EQ(session.finished(task).text(), "hello");
}

TEST_P(Handshakes, DoNotHoldUpEachOtherNorPlainTransfers) {
  SecureServer first;
  SecureServer second;
  ScriptedServer plain;
  plain.route("/", Script().respond(200, {}, "plain"));
  RecordedSession session;
  const auto questions = keepQuestions(session);
  const auto one = session.start(first.localhostUrl("/"));
  const auto two = session.start(second.localhostUrl("/"));
  ASSERT_TRUE(questions.waitFor(2));
  EXPECT_EQ(session.load(plain.url("/")).text(), "plain");
  questions.value(1)(performDefaultHandling, std::nullopt);
  const auto later = session.delegate().challenges()[1].port == second.port() ? two : one;
  EXPECT_EQ(session.finished(later).text(), "hello");
  EXPECT_EQ(session.load(plain.url("/")).text(), "plain");
  questions.value(0)(performDefaultHandling, std::nullopt);
  EXPECT_EQ(session.finished(later == one ? two : one).text(), "hello");
}

TEST_P(Handshakes, StopTheIdleTimeAndNotThatOfTheResource) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = TimeInterval(0.25);
  SecureServer server;
  ScriptedServer clock;
  clock.route("/", Script().delay(std::chrono::milliseconds(700)).respond(200));
  {
    RecordedSession patient(configuration);
    RecordedSession timing;
    const auto questions = keepQuestions(patient);
    const auto task = patient.start(server.localhostUrl("/"));
    ASSERT_TRUE(questions.waitFor(1));
    EXPECT_EQ(timing.load(clock.url("/")).status(), 200);
    questions.value(0)(performDefaultHandling, std::nullopt);
    EXPECT_EQ(patient.finished(task).text(), "hello");
  }
  configuration.timeoutIntervalForResource = TimeInterval(0.25);
  RecordedSession impatient(configuration);
  const auto questions = keepQuestions(impatient);
  const auto task = impatient.start(server.localhostUrl("/"));
  EXPECT_EQ(impatient.finished(task).code(), URLError::timedOut);
  EXPECT_EQ(questions.count(), 1u);
  questions.value(0)(performDefaultHandling, std::nullopt);  // comes to nothing
}

TEST_P(Handshakes, SurviveSuspension) {
  SecureServer server;
  RecordedSession session;
  const auto questions = keepQuestions(session);
  const auto task = session.start(server.localhostUrl("/"));
  ASSERT_TRUE(questions.waitFor(1));
  task->suspend();
  task->resume();
  task->suspend();
  questions.value(0)(performDefaultHandling, std::nullopt);
  EXPECT_EQ(task->state(), URLSessionTask::State::suspended);
  task->resume();
  EXPECT_EQ(session.finished(task).text(), "hello");
  EXPECT_EQ(session.delegate().challenges().size(), 1u);
}

TEST_P(Handshakes, AreReleasedByWhateverEndsTheTask) {
  SecureServer server;
  const auto files = openFileDescriptorCount();
  for (int run = 0; run < 100; ++run) {
    SCOPED_TRACE(run);
    auto configuration = URLSessionConfiguration::ephemeral();
    if (run % 4 == 1) configuration.timeoutIntervalForResource = TimeInterval(0.02);
    RecordedSession session(configuration);
    const auto questions = keepQuestions(session);
    const auto task = session.start(server.localhostUrl("/"));
    if (run % 4 == 1) {
      EXPECT_EQ(session.finished(task).code(), URLError::timedOut);
      continue;
    }
    ASSERT_TRUE(questions.waitFor(1));
    if (run % 4 == 0) task->cancel();
    if (run % 4 == 2) session->invalidateAndCancel();
    if (run % 4 == 3) {
      std::thread answering([&] { questions.value(0)(performDefaultHandling, std::nullopt); });
      task->cancel();
      answering.join();
    }
    EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  }
  EXPECT_TRUE(server.waitForOpenConnections(0));
  // The process's own three, which the first task makes: the loop's two and the timekeeper's.
  EXPECT_TRUE(eventually([&] { return openFileDescriptorCount() <= files + 3; }))
      << files << " before, " << openFileDescriptorCount() << " now";
}

TEST_P(Handshakes, OfACancelledTaskLeaveTheOthersAlone) {
  SecureServer server;
  ScriptedServer plain;
  plain.route("/", Script().delay(std::chrono::milliseconds(50)).respond(200, {}, "plain"));
  RecordedSession session;
  const auto questions = keepQuestions(session);
  std::vector<std::shared_ptr<URLSessionDataTask>> asking;
  std::vector<std::shared_ptr<URLSessionDataTask>> others;
  for (int i = 0; i < 5; ++i) {
    others.push_back(session.start(plain.url("/")));
    asking.push_back(session.start(server.localhostUrl("/")));
  }
  ASSERT_TRUE(questions.waitFor(1));
  for (const auto& task : asking) task->cancel();
  for (const auto& task : asking) EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  for (const auto& task : others) EXPECT_EQ(session.finished(task).text(), "plain");
}

TEST(HandshakesRepeated, EndWhereTheServerIsGoneMeanwhile) {
  const HandshakeWay way(false);
  SecureServer server;
  RecordedSession session;
  const auto questions = keepQuestions(session);
  const auto task = session.start(server.localhostUrl("/"));
  ASSERT_TRUE(questions.waitFor(1));
  server.stopListening();
  questions.value(0)(performDefaultHandling, std::nullopt);
  EXPECT_EQ(session.finished(task).code(), URLError::cannotConnectToHost);
}

// Only what is too early counts as wrong: however slow the machine is, this can't go wrong by it.
TEST(HandshakesThatWait, StopTheIdleTimeOfTasksThatWaitForTheConnection) {
  constexpr std::chrono::milliseconds limit(400);
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = limit;
  // A client that has judged the certificate still needs the server's word there.
  SecureServer server({}, versions(TLSVersion::tls12, TLSVersion::tls12));
  Relay relay(Relay::Protocol::none, server.port());
  ScriptedServer clock;
  clock.route("/", Script().delay(limit * 7 / 4).respond(200));
  RecordedSession session(configuration);
  RecordedSession timing;
  const auto questions = keepQuestions(session);
  Collector<std::chrono::steady_clock::time_point> ends;
  session.delegate().onComplete = [=](URLSessionTask&) {
    ends.add(std::chrono::steady_clock::now());
  };
  const std::array tasks{session.start(relay.url("https")), session.start(relay.url("https"))};
  ASSERT_TRUE(questions.waitFor(1));
  EXPECT_EQ(timing.load(clock.url("/")).status(), 200);
  EXPECT_EQ(questions.count(), 1u);
  EXPECT_EQ(ends.count(), 0u);
  relay.fallSilent();
  const auto answered = std::chrono::steady_clock::now();
  questions.value(0)(performDefaultHandling, std::nullopt);
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).code(), URLError::timedOut);
  ASSERT_EQ(ends.count(), 2u);
  for (std::size_t i = 0; i < 2; ++i) EXPECT_GT(ends.value(i) - answered, limit / 2);
}

// -- Secure proxies

TEST_P(Handshakes, WithASecureProxyAskAboutIt) {
  SecureServer proxy(LeafOptions::unknownRoot());
  proxy.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "relayed"); });
  const ScopedEnvironment variable("http_proxy", proxy.localhostUrl(""));
  RecordedSession session;
  session.delegate().onChallenge = trust;
  EXPECT_EQ(session.load("http://one.invalid/").text(), "relayed");
  EXPECT_EQ(session.load("http://two.invalid/").text(), "relayed");
  const auto challenges = session.delegate().challenges();
  ASSERT_EQ(challenges.size(), 1u);
  EXPECT_EQ(challenges[0].host, "localhost");
  EXPECT_EQ(challenges[0].port, proxy.port());
  EXPECT_TRUE(challenges[0].isProxy);
  RecordedSession careful;
  EXPECT_EQ(careful.load("http://one.invalid/").code(), URLError::serverCertificateHasUnknownRoot);
}

struct TunnelRow {
  const char* proxy;
  const char* server;
};

TEST_P(Handshakes, TellASecureProxyFromTheServerBehindIt) {
  const auto files = trustedAuthority().issue();
  TLSOptions tls = asking(ClientCertificate::require);
  tls.certFile = files.certFile;
  tls.keyFile = files.keyFile;
  const URLCredential alice(identityOf(client(LeafOptions::Signer::root)));
  for (const auto& row :
       {TunnelRow{"localhost", "127.0.0.1"}, TunnelRow{"127.0.0.1", "localhost"},
        TunnelRow{"localhost", "localhost"}, TunnelRow{"127.0.0.1", "127.0.0.1"}}) {
    SCOPED_TRACE(row.proxy + std::string(" to ") + row.server);
    // The same certificate, and a wish for one of the client, on both sides.
    ScriptedServer server(tls);
    server.route("/", Script().respond(200, {}, "hello"));
    const Relay relay(Relay::Protocol::tunnel, server.port());
    const SecureFront proxy(tls, relay.port());
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.proxies = URLSessionProxies{"", proxy.url(row.proxy), {}};
    RecordedSession session(configuration);
    session.delegate().onChallenge = [&](const auto& challenge, const Handler& answer) {
      if (challenge.protectionSpace.serverTrust) return trust(challenge, answer);
      answer(useCredential, alice);
    };
    const auto url = std::string("https://") + row.server + ":" + std::to_string(server.port());
    const auto loaded = session.load(url + "/");
    EXPECT_EQ(loaded.text(), "hello")
        << (loaded.record.error ? loaded.record.error->message() : "");
    EXPECT_EQ(session.load(url + "/").text(), "hello");
    const auto challenges = session.delegate().challenges();
    ASSERT_EQ(challenges.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
      SCOPED_TRACE(i);
      const bool ofProxy = i < 2;
      EXPECT_EQ(challenges[i].isProxy, ofProxy);
      EXPECT_EQ(challenges[i].host, ofProxy ? row.proxy : row.server);
      EXPECT_EQ(challenges[i].port, ofProxy ? proxy.port() : server.port());
      EXPECT_EQ(challenges[i].authenticationMethod,
                i % 2 == 0 ? Method::serverTrust : Method::clientCertificate);
    }
  }
}

// A proxy's certificate has to name the proxy, and the server's the server.
TEST_P(Handshakes, JudgeASecureProxyAndTheServerEachByItsOwnName) {
  const auto named = [](std::vector<std::string> names, std::vector<std::string> addresses) {
    LeafOptions leaf;
    leaf.dnsNames = std::move(names);
    leaf.addresses = std::move(addresses);
    const auto files = trustedAuthority().issue(leaf);
    TLSOptions tls;
    tls.certFile = files.certFile;
    tls.keyFile = files.keyFile;
    return tls;
  };
  const auto byName = named({"localhost"}, {});
  const auto byAddress = named({}, {"127.0.0.1"});
  struct Row {
    const char* name;
    const TLSOptions& proxy;
    const TLSOptions& server;
    std::int64_t code;
  };
  for (const auto& row :
       {Row{"each its own", byAddress, byName, 0},
        Row{"the server's twice", byName, byName, URLError::serverCertificateUntrusted},
        Row{"the proxy's twice", byAddress, byAddress, URLError::serverCertificateUntrusted}}) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(row.server);
    server.route("/", Script().respond(200, {}, "hello"));
    const Relay relay(Relay::Protocol::tunnel, server.port());
    const SecureFront proxy(row.proxy, relay.port());
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.proxies = URLSessionProxies{"", proxy.url("127.0.0.1"), {}};
    RecordedSession session(configuration);
    EXPECT_EQ(session.load(server.localhostUrl("/")).code(), row.code);
  }
}

// -- Certificates of the client

struct ClientRow {
  const char* name;
  ClientCertificate wish;
  URLSessionAuthChallengeDisposition disposition;
  std::optional<URLCredential> credential;
  std::int64_t code;
  std::string seen;  // the name in the certificate that reached the server
};

TEST_P(Handshakes, PresentTheCertificateThatTheDelegateGives) {
  using enum ClientCertificate;
  using enum LeafOptions::Signer;
  const URLCredential alice(identityOf(client(root)));
  const URLCredential stranger(identityOf(client(LeafOptions::Signer::unknownRoot)));
  auto old = LeafOptions::expired();
  old.purpose = LeafOptions::Purpose::client;
  const std::vector<ClientRow> rows{
      {"given", require, useCredential, alice, 0, "Alice"},
      {"given with its chain", require, useCredential,
       URLCredential(identityOf(client(intermediate))), 0, "Alice"},
      {"given though not needed", request, useCredential, alice, 0, "Alice"},
      {"not needed", request, performDefaultHandling, std::nullopt, 0, ""},
      {"not needed, rejected", request, rejectProtectionSpace, std::nullopt, 0, ""},
      {"none", require, performDefaultHandling, std::nullopt, URLError::clientCertificateRequired,
       ""},
      {"rejected", require, rejectProtectionSpace, alice, URLError::clientCertificateRequired, ""},
      {"no credential", require, useCredential, std::nullopt, URLError::clientCertificateRequired,
       ""},
      {"a login", require, useCredential, URLCredential("user", "password"),
       URLError::clientCertificateRequired, ""},
      {"of an unknown authority", require, useCredential, stranger,
       URLError::clientCertificateRejected, ""},
      {"expired", require, useCredential, URLCredential(identityOf(old)),
       URLError::clientCertificateRejected, ""},
      {"cancelled", require, cancelAuthenticationChallenge, alice, URLError::cancelled, ""},
  };
  for (const auto version : {TLSVersion::tls12, TLSVersion::tls13}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.name + std::string(version == TLSVersion::tls12 ? ", 1.2" : ", 1.3"));
      SecureServer server({}, asking(row.wish, versions(version, version)));
      RecordedSession session;
      session.delegate().onChallenge = [&](const auto& challenge, const Handler& answer) {
        if (challenge.protectionSpace.serverTrust) return trust(challenge, answer);
        answer(row.disposition, row.credential);
      };
      const auto loaded = session.load(server.localhostUrl("/"));
      EXPECT_EQ(loaded.code(), row.code)
          << (loaded.record.error ? loaded.record.error->message() : "");
      if (row.code == 0) {
        EXPECT_EQ(loaded.text(), "hello");
        EXPECT_EQ(server.connections().back().clientCertificate, row.seen);
      }
      EXPECT_EQ(server.requestCount(), row.code == 0 ? 1u : 0u);
      EXPECT_EQ(session.delegate().challenges().size(), 2u);
    }
  }
}

TEST_P(Handshakes, AskForACertificateOnceForEachConnection) {
  SecureServer server({}, asking(ClientCertificate::require));
  RecordedSession session;
  const URLCredential alice(identityOf(client(LeafOptions::Signer::root)));
  session.delegate().onChallenge = [&](const auto& challenge, const Handler& answer) {
    if (challenge.protectionSpace.serverTrust) return trust(challenge, answer);
    answer(useCredential, alice);
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(session.load(server.localhostUrl("/")).text(), "hello");
  const auto challenges = session.delegate().challenges();
  ASSERT_EQ(challenges.size(), 2u);
  EXPECT_EQ(challenges[0].authenticationMethod, Method::serverTrust);
  EXPECT_EQ(challenges[1].authenticationMethod, Method::clientCertificate);
  EXPECT_EQ(challenges[1].host, "localhost");
  EXPECT_EQ(challenges[1].port, server.port());
  EXPECT_EQ(challenges[1].serverTrust, nullptr);
  ASSERT_EQ(challenges[1].distinguishedNames.size(), 1u);
  const auto name = challenges[1].distinguishedNames[0].view();
  EXPECT_NE(TestAuthority::der(trustedAuthority().caFile()).find(name), std::string::npos);
  EXPECT_NE(name.find("Test Root"), std::string::npos);
}

TEST_P(Handshakes, ThatAskForACertificateAreReleasedByACancellation) {
  SecureServer server({}, asking(ClientCertificate::require));
  for (int run = 0; run < 20; ++run) {
    RecordedSession session;
    const Waiter asked;
    Collector<Handler> kept;
    session.delegate().onChallenge = [&](const auto& challenge, const Handler& answer) {
      if (challenge.protectionSpace.serverTrust) return trust(challenge, answer);
      kept.add(answer);
      asked.signal();
    };
    const auto task = session.start(server.localhostUrl("/"));
    ASSERT_TRUE(asked.waitFor());
    task->cancel();
    EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  }
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

}  // namespace
}  // namespace tarn::test
