#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/LoginFixture.hpp>
#include <Platform/URLLoading/FilesFixture.hpp>
#include <Support/Compression.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <atomic>

namespace tarn::test {
namespace {

// -- The schemes

struct SchemeRow {
  const char* challenges;
  Method method;
  const char* algorithm;  // of the answer; null for none
};

TEST(LoginSchemes, TheStrongestIsTaken) {
  for (const auto& row : std::vector<SchemeRow>{
           {"Basic realm=\"here\"", Method::httpBasic, nullptr},
           {"Digest realm=\"here\", nonce=\"n\"", Method::httpDigest, nullptr},
           {"Digest realm=\"here\", nonce=\"n\", qop=\"auth\", algorithm=MD5, opaque=\"o\"",
            Method::httpDigest, "MD5"},
           {"Digest realm=\"here\", nonce=\"n\", qop=\"auth\", algorithm=SHA-256",
            Method::httpDigest, "SHA-256"},
           {"Digest realm=\"here\", nonce=\"n\", qop=\"auth\", algorithm=SHA-256-sess",
            Method::httpDigest, "SHA-256-sess"},
           {"Digest realm=\"here\", nonce=\"m\", qop=\"auth\", algorithm=MD5, "
            "Digest realm=\"here\", nonce=\"n\", qop=\"auth\", algorithm=SHA-256",
            Method::httpDigest, "SHA-256"},
           {"Negotiate, Basic realm=\"here\", Digest realm=\"here\", nonce=\"n\"",
            Method::httpDigest, nullptr},
           {"Bearer realm=\"x\", Basic realm=\"here\"", Method::httpBasic, nullptr},
       }) {
    SCOPED_TRACE(row.challenges);
    GuardedServer server(row.challenges);
    RecordedSession session;
    answerAsAlice(session);
    const auto loaded = session.load(server.url("/a/b?c=d#e"));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.text(), "welcome");
    ASSERT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(server.request(0).header("Authorization"), std::nullopt);
    const auto field = server.request(1).headerValues("Authorization");
    ASSERT_EQ(field.size(), 1u);
    const auto shown = detail::parseAuthenticateField(field[0]).at(0);
    EXPECT_EQ(shown.parameter("algorithm").value_or(""), row.algorithm ? row.algorithm : "");
    if (row.method == Method::httpDigest) {
      EXPECT_EQ(shown.parameter("uri"), "/a/b?c=d");
    }
    ASSERT_EQ(loaded.record.challenges.size(), 1u);
    const auto& space = loaded.record.challenges[0].protectionSpace;
    EXPECT_EQ(space.authenticationMethod, row.method);
    EXPECT_EQ(space.realm, "here");
    EXPECT_EQ(space.host, "127.0.0.1");
    EXPECT_EQ(space.port, server.port());
    EXPECT_FALSE(space.isProxy);
  }
}

TEST(LoginSchemes, SeveralFieldsAreOneList) {
  ScriptedServer server;
  server.route("/",
               Script().respond(401, {{"WWW-Authenticate", "Negotiate"},
                                      {"www-authenticate", "Basic realm=\"b\""},
                                      {"WWW-Authenticate", "Digest realm=\"d\", nonce=\"1\""}}));
  RecordedSession session;
  const auto loaded = session.load(server.url("/"));
  ASSERT_EQ(loaded.record.challenges.size(), 1u);
  EXPECT_EQ(loaded.record.challenges[0].protectionSpace.realm, "d");
}

TEST(LoginSchemes, NobodyIsAskedForWhatCannotBeAnswered) {
  const std::vector<HeaderList> answers{{},
                                        {{"WWW-Authenticate", ""}},
                                        {{"WWW-Authenticate", "Bearer realm=\"x\""}},
                                        {{"WWW-Authenticate", "Negotiate"}},
                                        {{"Proxy-Authenticate", "Basic realm=\"x\""}}};
  ScriptedServer server;
  RecordedSession session;
  answerAsAlice(session);
  for (const auto& fields : answers) {
    server.route("/", Script().respond(401, fields, "no"));
    const auto loaded = session.load(server.url("/"));
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_EQ(loaded.status(), 401);
    EXPECT_EQ(loaded.text(), "no");
    EXPECT_TRUE(loaded.record.challenges.empty());
  }
  EXPECT_EQ(server.requestCount(), answers.size());
}

TEST(LoginSchemes, OtherStatusesAskForNothing) {
  ScriptedServer server;
  RecordedSession session;
  answerAsAlice(session);
  for (const int status : {200, 400, 403, 407, 511}) {
    SCOPED_TRACE(status);
    server.route("/", Script().respond(status, {{"WWW-Authenticate", "Basic realm=\"x\""},
                                                {"Proxy-Authenticate", "Basic realm=\"x\""}}));
    const auto loaded = session.load(server.url("/"));
    EXPECT_EQ(loaded.status(), status);
    EXPECT_TRUE(loaded.record.challenges.empty());
  }
}

struct BodyRow {
  const char* method;
  const char* body;
};

TEST(LoginSchemes, TheRequestIsSentAgainAsItWas) {
  for (const char* challenges :
       {"Basic realm=\"here\"", "Digest realm=\"here\", nonce=\"n\", qop=auth"}) {
    for (const auto& row : std::vector<BodyRow>{{"GET", nullptr},
                                                {"HEAD", nullptr},
                                                {"POST", "payload"},
                                                {"PUT", "payload"},
                                                {"DELETE", "payload"},
                                                {"OPTIONS", nullptr}}) {
      SCOPED_TRACE(std::string(challenges) + " " + row.method);
      GuardedServer server(challenges);
      RecordedSession session;
      answerAsAlice(session);
      auto request = RecordedSession::request(server.url("/x"));
      request.setHTTPMethod(row.method);
      request.setValue("kept", "X-Own");
      request.setAllowsResend(false);  // it was answered: it is no resend
      if (row.body != nullptr) request.setHTTPBody(Data(std::string_view(row.body)));
      EXPECT_EQ(session.load(request).status(), 200);
      ASSERT_EQ(server.requestCount(), 2u);
      EXPECT_EQ(server.request(1).method, row.method);
      EXPECT_EQ(server.request(1).body, row.body ? row.body : "");
      EXPECT_EQ(server.request(1).header("X-Own"), "kept");
      EXPECT_EQ(server.connectionCount(), 1u);
    }
  }
}

TEST(LoginSchemes, ReplaceTheRequestsOwnField) {
  GuardedServer server;
  RecordedSession session;
  answerAsAlice(session);
  auto request = RecordedSession::request(server.url("/"));
  request.setValue("Bearer old", "authorization");
  EXPECT_EQ(session.load(request).status(), 200);
  EXPECT_EQ(server.request(0).header("Authorization"), "Bearer old");
  EXPECT_EQ(server.request(1).headerValues("Authorization"), std::vector<std::string>{basicAlice});
}

// -- The delegate's answers

struct AnswerRow {
  const char* name;
  Disposition disposition;
  std::optional<Login> login;
  std::int64_t code;
  int status;
};

TEST(LoginAnswers, DecideOnTheOutcome) {
  for (const auto& row : std::vector<AnswerRow>{
           {"use", Disposition::useCredential, alice, 0, 200},
           {"use, without one", Disposition::useCredential, std::nullopt, 0, 401},
           {"default", Disposition::performDefaultHandling, std::nullopt, 0, 401},
           {"default, with one that is not for use", Disposition::performDefaultHandling, alice, 0,
            401},
           {"reject", Disposition::rejectProtectionSpace, alice, 0, 401},
           {"cancel", Disposition::cancelAuthenticationChallenge, alice, URLError::cancelled, 0}}) {
    SCOPED_TRACE(row.name);
    GuardedServer server;
    RecordedSession session;
    session.delegate().onTaskChallenge = answering(row.disposition, row.login);
    const auto loaded = session.load(server.url("/"));
    EXPECT_EQ(loaded.code(), row.code);
    EXPECT_EQ(loaded.status(), row.status);
    EXPECT_EQ(loaded.text(), row.status == 401   ? "who are you?"
                             : row.status == 200 ? "welcome"
                                                 : "");
    EXPECT_EQ(server.requestCount(), row.status == 200 ? 2u : 1u);
    EXPECT_EQ(loaded.record.challenges.size(), 1u);
  }
}

TEST(LoginAnswers, ACredentialThatIsNoNameIsNone) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask&, const URLAuthenticationChallenge&,
                                          const URLChallengeHandler& reply) {
    reply(Disposition::useCredential, URLCredential(std::shared_ptr<SecTrust>()));
  };
  EXPECT_EQ(session.load(server.url("/")).status(), 401);
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(LoginAnswers, TheQuestionShowsTheAnswerThatAsksAndTheTaskDoesNot) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask& task,
                                          const URLAuthenticationChallenge& challenge,
                                          const URLChallengeHandler& reply) {
    EXPECT_EQ(task.response(), nullptr);
    const auto answer = std::dynamic_pointer_cast<const HTTPURLResponse>(challenge.failureResponse);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->statusCode(), 401);
    EXPECT_EQ(challenge.previousFailureCount, 0);
    EXPECT_FALSE(challenge.proposedCredential);
    reply(Disposition::rejectProtectionSpace, std::nullopt);
  };
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.record.challenges.size(), 1u);
  EXPECT_EQ(loaded.record.dataEvents, 1);
}

TEST(LoginAnswers, ARefusedCredentialAsksAgain) {
  for (const char* challenges :
       {"Basic realm=\"here\"", "Digest realm=\"here\", nonce=\"n\", qop=auth"}) {
    SCOPED_TRACE(challenges);
    GuardedServer server(challenges);
    RecordedSession session;
    session.delegate().onTaskChallenge = [](URLSessionTask&,
                                            const URLAuthenticationChallenge& challenge,
                                            const URLChallengeHandler& reply) {
      const auto password = challenge.previousFailureCount < 3 ? "wrong" : alice.password;
      reply(Disposition::useCredential, URLCredential(alice.user, password));
    };
    const auto loaded = session.load(server.url("/"));
    EXPECT_EQ(loaded.text(), "welcome");
    ASSERT_EQ(loaded.record.challenges.size(), 4u);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(loaded.record.challenges[static_cast<std::size_t>(i)].previousFailureCount, i);
    }
  }
}

TEST(LoginAnswers, SixteenAreTriedAndNoMore) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge =
      answering(Disposition::useCredential, Login{"alice", "wrong"});
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.status(), 401);
  EXPECT_EQ(loaded.text(), "who are you?");
  EXPECT_EQ(loaded.record.challenges.size(), 16u);
  EXPECT_EQ(server.requestCount(), 17u);
}

TEST(LoginAnswers, OneThatIsNeverGivenCancelsTheTask) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask&, const URLAuthenticationChallenge&,
                                          const URLChallengeHandler&) {};
  EXPECT_EQ(session.load(server.url("/")).code(), URLError::cancelled);
}

TEST(LoginAnswers, OnlyTheFirstCounts) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask&, const URLAuthenticationChallenge&,
                                          const URLChallengeHandler& reply) {
    reply(Disposition::useCredential, URLCredential(alice.user, alice.password));
    reply(Disposition::cancelAuthenticationChallenge, std::nullopt);
  };
  EXPECT_EQ(session.load(server.url("/")).text(), "welcome");
}

TEST(LoginAnswers, ATaskCanBeCancelledWhileTheDelegateThinks) {
  GuardedServer server;
  RecordedSession session;
  URLChallengeHandler kept;
  session.delegate().onTaskChallenge = [&](URLSessionTask& task, const URLAuthenticationChallenge&,
                                           const URLChallengeHandler& reply) {
    kept = reply;
    task.cancel();
  };
  EXPECT_EQ(session.load(server.url("/")).code(), URLError::cancelled);
  kept(Disposition::useCredential, URLCredential(alice.user, alice.password));
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(LoginAnswers, TakeAsLongAsTheyLike) {
  GuardedServer server;
  ScriptedServer clock;
  clock.route("/", Script().delay(std::chrono::milliseconds(700)).respond(200));
  RecordedSession session;
  URLChallengeHandler kept;
  session.delegate().onTaskChallenge = [&](URLSessionTask&, const URLAuthenticationChallenge&,
                                           const URLChallengeHandler& reply) { kept = reply; };
  auto request = RecordedSession::request(server.url("/"));
  request.setTimeoutInterval(TimeInterval(0.3));
  const auto task = session.start(request);
  ASSERT_TRUE(session.delegate().waitForChallenges(task->taskIdentifier(), 1));
  session.load(clock.url("/"));
  kept(Disposition::useCredential, URLCredential(alice.user, alice.password));
  EXPECT_EQ(session.finished(task).text(), "welcome");
}

TEST(LoginAnswers, ADeclinedChallengeLeavesAnyBody) {
  const std::string body(3 << 20, 'b');
  ScriptedServer server;
  server.route("/long", Script().respond(401, {{"WWW-Authenticate", "Basic realm=x"}}, body));
  server.route(
      "/gzip",
      Script().respond(401, {{"WWW-Authenticate", "Basic realm=x"}, {"Content-Encoding", "gzip"}},
                       gzip("who?")));
  server.route("/cut",
               Script()
                   .head(401, {{"WWW-Authenticate", "Basic realm=x"}, {"Content-Length", "100"}})
                   .send("who?")
                   .close());
  RecordedSession session;
  EXPECT_EQ(session.load(server.url("/long")).text(), body);
  EXPECT_EQ(session.load(server.url("/gzip")).text(), "who?");
  const auto cut = session.load(server.url("/cut"));
  EXPECT_EQ(cut.code(), URLError::networkConnectionLost);
  EXPECT_EQ(cut.status(), 401);
  EXPECT_EQ(cut.text(), "who?");
}

TEST(LoginAnswers, ALoginThatAnUnchangedAnswerConfirmsIsRemembered) {
  std::atomic<bool> isGuarded = false;
  ScriptedServer server;
  server.setHandler([&](const ReceivedRequest& request) {
    if (isGuarded && !request.header("Authorization")) {
      return Script().respond(401, {{"WWW-Authenticate", "Basic realm=x"}});
    }
    const HeaderList fields{{"ETag", "\"1\""}, {"Cache-Control", "no-cache"}};
    if (request.header("If-None-Match")) return Script().respond(304, fields);
    return Script().respond(200, fields, "welcome");
  });
  RecordedSession session;
  std::atomic<int> proposals = 0;
  session.delegate().onTaskChallenge = [&](URLSessionTask&,
                                           const URLAuthenticationChallenge& challenge,
                                           const URLChallengeHandler& answer) {
    if (challenge.proposedCredential) ++proposals;
    answer(Disposition::useCredential, URLCredential("alice", "secret"));
  };
  EXPECT_EQ(session.load(server.url("/")).text(), "welcome");
  isGuarded = true;
  EXPECT_EQ(session.load(server.url("/")).text(), "welcome");
  EXPECT_EQ(proposals, 0);
  EXPECT_EQ(session.load(server.url("/")).text(), "welcome");
  EXPECT_EQ(proposals, 1);
}

TEST(LoginAnswers, AnEndlessBodyDoesNotHoldTheQuestionUp) {
  ScriptedServer server;
  server.routeSequence(
      "/", {Script().head(401, {{"WWW-Authenticate", "Basic realm=x"}}).repeatForever("who? "),
            Script().respond(200, {}, "welcome")});
  RecordedSession session;
  answerAsAlice(session);
  EXPECT_EQ(session.load(server.url("/")).text(), "welcome");
}

TEST(LoginAnswers, AnEarlyChallengeEndsTheUploadAndStartsItAgain) {
  const std::string body(8 << 20, 'u');
  ScriptedServer server;
  server.setHandler(
      [](const ReceivedRequest& request) {
        if (!request.header("Authorization")) {
          return Script::afterHead().respond(401, {{"WWW-Authenticate", "Basic realm=x"}}, "who?");
        }
        return Script().readBody().respond(200, {}, "welcome");
      },
      ScriptedServer::When::headRead);
  RecordedSession session;
  answerAsAlice(session);
  auto request = RecordedSession::request(server.url("/"));
  request.setHTTPMethod("PUT");
  request.setHTTPBody(Data(body));
  EXPECT_EQ(session.load(request).text(), "welcome");
  EXPECT_EQ(server.requests().back().body.size(), body.size());
}

TEST(LoginAnswers, CookiesOfTheAnswerThatAsksAreSentWithTheNext) {
  ScriptedServer server;
  server.routeSequence(
      "/", {Script().respond(401, {{"WWW-Authenticate", "Basic realm=x"}, {"Set-Cookie", "sid=1"}}),
            Script().respond(200)});
  RecordedSession session;
  answerAsAlice(session);
  session.load(server.url("/"));
  EXPECT_EQ(server.request(1).header("Cookie"), "sid=1");
}

TEST(LoginAnswers, AStaleNonceIsReplacedWithoutAsking) {
  ScriptedServer server;
  std::atomic<int> count = 0;
  server.setHandler([&](const ReceivedRequest& request) {
    const std::string nonce = "Digest realm=r, qop=auth, nonce=n" + std::to_string(++count);
    if (count == 1) return Script().respond(401, {{"WWW-Authenticate", nonce}});
    if (count == 2) return Script().respond(401, {{"WWW-Authenticate", nonce + ", stale=TRUE"}});
    const bool good = shows(request, alice, "Digest realm=r, qop=auth, nonce=n2");
    return Script().respond(good ? 200 : 500);
  });
  RecordedSession session;
  answerAsAlice(session);
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_EQ(loaded.record.challenges.size(), 1u);
}

TEST(LoginAnswers, AServerThatFindsEveryNonceStaleIsLeftAlone) {
  ScriptedServer server;
  server.route(
      "/", Script().respond(401, {{"WWW-Authenticate", "Digest realm=r, nonce=n, stale=true"}}));
  RecordedSession session;
  answerAsAlice(session);
  const auto loaded = session.load(server.url("/"));
  EXPECT_EQ(loaded.status(), 401);
  EXPECT_EQ(loaded.record.challenges.size(), 1u);
  EXPECT_EQ(server.requestCount(), 17u);
}

// -- What a session remembers

TEST(RememberedLogins, AreProposedAndUsedByDefault) {
  GuardedServer server;
  RecordedSession session;
  answerAsAlice(session);
  EXPECT_EQ(session.load(server.url("/")).status(), 200);
  session.delegate().onTaskChallenge = nullptr;  // by default
  const auto second = session.load(server.url("/second"));
  EXPECT_EQ(second.status(), 200);
  ASSERT_EQ(second.record.challenges.size(), 1u);
  const auto& proposed = second.record.challenges[0].proposedCredential;
  ASSERT_TRUE(proposed);
  EXPECT_EQ(*proposed->user(), alice.user);
  EXPECT_EQ(*proposed->password(), alice.password);
  session.delegate().onTaskChallenge = answering(Disposition::rejectProtectionSpace);
  EXPECT_EQ(session.load(server.url("/")).status(), 401);
}

TEST(RememberedLogins, AreNotSharedBetweenSessions) {
  GuardedServer server;
  RecordedSession one;
  answerAsAlice(one);
  EXPECT_EQ(one.load(server.url("/")).status(), 200);
  RecordedSession another;
  const auto loaded = another.load(server.url("/"));
  EXPECT_EQ(loaded.status(), 401);
  EXPECT_FALSE(loaded.record.challenges.at(0).proposedCredential);
}

struct SpaceRow {
  const char* first;
  const char* second;
  bool proposes;
};

TEST(RememberedLogins, GoForARealmAndAMethod) {
  for (const auto& row : std::vector<SpaceRow>{
           {"Basic realm=a", "Basic realm=a", true},
           {"Basic realm=a", "Basic realm=b", false},
           {"Basic realm=a", "Basic", false},
           {"Digest realm=a, nonce=1", "Digest realm=a, nonce=2", true},
           {"Digest realm=a, nonce=1", "Digest realm=a, nonce=1, algorithm=SHA-256", true},
           {"Digest realm=a, nonce=1", "Basic realm=a", false},
       }) {
    SCOPED_TRACE(std::string(row.first) + " then " + row.second);
    ScriptedServer server;
    server.routeSequence("/first", {Script().respond(401, {{"WWW-Authenticate", row.first}}),
                                    Script().respond(200)});
    server.route("/second", Script().respond(401, {{"WWW-Authenticate", row.second}}));
    RecordedSession session;
    answerAsAlice(session);
    EXPECT_EQ(session.load(server.url("/first")).status(), 200);
    session.delegate().onTaskChallenge = nullptr;
    const auto second = session.load(server.url("/second"));
    ASSERT_FALSE(second.record.challenges.empty());
    EXPECT_EQ(second.record.challenges[0].proposedCredential.has_value(), row.proposes);
    EXPECT_EQ(server.requestCount(), row.proposes ? 4u : 3u);
  }
}

TEST(RememberedLogins, GoForAHostAndPort) {
  GuardedServer server;
  GuardedServer otherPort;
  RecordedSession session;
  answerAsAlice(session);
  EXPECT_EQ(session.load(server.url("/")).status(), 200);
  session.delegate().onTaskChallenge = nullptr;
  EXPECT_EQ(session.load(otherPort.url("/")).status(), 401);
  EXPECT_EQ(session.load(server.localhostUrl("/")).status(), 401);
  EXPECT_EQ(session.load(server.url("/")).status(), 200);
}

TEST(RememberedLogins, AreForgottenWhenTheyAreRefused) {
  ScriptedServer server;
  const auto ask = Script().respond(401, {{"WWW-Authenticate", "Basic realm=a"}});
  server.routeSequence("/", {ask, Script().respond(200), ask, ask, ask});
  RecordedSession session;
  answerAsAlice(session);
  EXPECT_EQ(session.load(server.url("/")).status(), 200);
  session.delegate().onTaskChallenge = nullptr;
  const auto second = session.load(server.url("/"));
  EXPECT_EQ(second.status(), 401);
  ASSERT_EQ(second.record.challenges.size(), 2u);
  EXPECT_TRUE(second.record.challenges[0].proposedCredential);
  EXPECT_FALSE(second.record.challenges[1].proposedCredential);
  EXPECT_EQ(second.record.challenges[1].previousFailureCount, 1);
  const auto third = session.load(server.url("/"));
  EXPECT_FALSE(third.record.challenges.at(0).proposedCredential);
}

TEST(RememberedLogins, OnlyOnceTheServerHasTakenThem) {
  GuardedServer server;
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask&,
                                          const URLAuthenticationChallenge& challenge,
                                          const URLChallengeHandler& reply) {
    if (challenge.previousFailureCount > 0) {
      return reply(Disposition::rejectProtectionSpace, std::nullopt);
    }
    reply(Disposition::useCredential, URLCredential("alice", "wrong"));
  };
  EXPECT_EQ(session.load(server.url("/")).status(), 401);
  EXPECT_FALSE(session.load(server.url("/")).record.challenges.at(0).proposedCredential);
}

// -- User information of the address

std::string withUser(const ScriptedServer& server, const std::string& userInfo) {
  return "http://" + userInfo + "@127.0.0.1:" + std::to_string(server.port()) + "/";
}

TEST(LoginOfTheAddress, IsShownAtOnceAndNeverAskedFor) {
  GuardedServer server;
  RecordedSession session;
  const auto loaded = session.load(withUser(server, "alice:p%3Aa%20ss"));
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_TRUE(loaded.record.challenges.empty());
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(LoginOfTheAddress, IsUsedForDigestWithoutAsking) {
  GuardedServer server("Digest realm=here, nonce=n, qop=auth, algorithm=SHA-256");
  RecordedSession session;
  const auto loaded = session.load(withUser(server, "alice:p%3Aa%20ss"));
  EXPECT_EQ(loaded.status(), 200);
  EXPECT_TRUE(loaded.record.challenges.empty());
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST(LoginOfTheAddress, CountsAsAFailureWhenItIsRefused) {
  for (const char* challenges : {"Basic realm=here", "Digest realm=here, nonce=n"}) {
    SCOPED_TRACE(challenges);
    GuardedServer server(challenges);
    RecordedSession session;
    answerAsAlice(session);
    const auto loaded = session.load(withUser(server, "alice:wrong"));
    EXPECT_EQ(loaded.status(), 200);
    ASSERT_EQ(loaded.record.challenges.size(), 1u);
    EXPECT_EQ(loaded.record.challenges[0].previousFailureCount, 1);
  }
}

TEST(LoginOfTheAddress, IsNotRemembered) {
  GuardedServer server("Digest realm=here, nonce=n");
  RecordedSession session;
  EXPECT_EQ(session.load(withUser(server, "alice:p%3Aa%20ss")).status(), 200);
  EXPECT_EQ(session.load(server.url("/")).status(), 401);
}

// -- Redirects

TEST(LoginAndRedirects, AnOriginsLoginIsNotShownToAnother) {
  ScriptedServer other;
  other.setHandler([](const ReceivedRequest&) {
    return Script().respond(401, {{"WWW-Authenticate", "Basic realm=here"}}, "other");
  });
  ScriptedServer server;
  server.setHandler([&](const ReceivedRequest& request) {
    if (!request.header("Authorization")) {
      return Script().respond(401, {{"WWW-Authenticate", "Basic realm=here"}});
    }
    return Script().respond(302, {{"Location", other.url("/to")}});
  });
  RecordedSession session;
  session.delegate().onTaskChallenge = [&](URLSessionTask&,
                                           const URLAuthenticationChallenge& challenge,
                                           const URLChallengeHandler& reply) {
    if (challenge.protectionSpace.port == server.port()) {
      return reply(Disposition::useCredential, URLCredential(alice.user, alice.password));
    }
    EXPECT_FALSE(challenge.proposedCredential);
    EXPECT_EQ(challenge.previousFailureCount, 0);
    reply(Disposition::performDefaultHandling, std::nullopt);
  };
  const auto loaded = session.load(server.url("/from"));
  EXPECT_EQ(loaded.status(), 401);
  EXPECT_EQ(loaded.text(), "other");
  EXPECT_EQ(loaded.record.challenges.size(), 2u);
  for (const auto& request : other.requests()) {
    EXPECT_EQ(request.header("Authorization"), std::nullopt);
  }
}

TEST(LoginAndRedirects, WithinAnOriginTheLoginIsProposedAgain) {
  const std::string challenge = "Digest realm=here, nonce=n";
  ScriptedServer server;
  server.setHandler([&](const ReceivedRequest& request) {
    const auto field = request.header("Authorization");
    if (!field) return Script().respond(401, {{"WWW-Authenticate", challenge}});
    // A digest is for one target.
    const auto shown = detail::parseAuthenticateField(*field).at(0);
    if (shown.parameter("uri") != request.path()) return Script().respond(400);
    if (request.path() == "/from") return Script().respond(302, {{"Location", "/to"}});
    return Script().respond(200, {}, "welcome");
  });
  RecordedSession session;
  session.delegate().onTaskChallenge = [](URLSessionTask&, const URLAuthenticationChallenge& asked,
                                          const URLChallengeHandler& reply) {
    if (asked.proposedCredential) {
      return reply(Disposition::performDefaultHandling, std::nullopt);
    }
    reply(Disposition::useCredential, URLCredential(alice.user, alice.password));
  };
  const auto loaded = session.load(server.url("/from"));
  EXPECT_EQ(loaded.text(), "welcome");
  EXPECT_EQ(loaded.record.challenges.size(), 2u);
}

// -- Files

class LoginOfFiles : public TransferFiles {};

TEST_F(LoginOfFiles, ADownloadIsTheAnswerToTheLastRequest) {
  GuardedServer server("Digest realm=here, nonce=n");
  RecordedSession session;
  answerAsAlice(session);
  std::string content;
  session.delegate().onFile = [&](URLSessionDownloadTask&, const std::string& path) {
    content = readFile(path);
  };
  const auto task = session.start(session->downloadTask(session.request(server.url("/"))));
  EXPECT_EQ(session.finished(task).code(), 0);
  EXPECT_EQ(content, "welcome");
}

TEST_F(LoginOfFiles, AnUploadedFileIsSentAgain) {
  GuardedServer server("Digest realm=here, nonce=n");
  const TemporaryDirectory directory;
  writeFile(directory.file("body"), "of a file");
  RecordedSession session;
  answerAsAlice(session);
  auto request = RecordedSession::request(server.url("/"));
  request.setHTTPMethod("PUT");
  const auto task =
      session.start(session->uploadTask(request, URL::fileURL(directory.file("body"))));
  EXPECT_EQ(session.finished(task).text(), "welcome");
  EXPECT_EQ(server.request(1).body, "of a file");
}

}  // namespace
}  // namespace tarn::test
