#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/NginxServer.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

// A transfer may get the handle of one before it: seen from outside, nothing shows it.
namespace tarn::test {
namespace {

const HeaderList five{{"Content-Length", "5"}};

/// A way to use a session; `prepare` makes the request out of a plain GET.
struct Usage {
  const char* name;
  const char* path;
  std::function<void(URLRequest&)> prepare;
  const char* userInformation = "";
};

std::function<void(URLRequest&)> method(const char* name, const char* body = nullptr) {
  return [=](URLRequest& request) {
    request.setHTTPMethod(name);
    if (body != nullptr) request.setHTTPBody(Data(std::string_view(body)));
  };
}

std::function<void(URLRequest&)> field(const char* name, const char* value) {
  return [=](URLRequest& request) { request.setValue(value, name); };
}

const std::vector<Usage>& usages() {
  static const std::vector<Usage> all{
      {"GET", "/", {}},
      {"GET elsewhere", "/other/../path?query=1#fragment", {}},
      {"GET with all kinds of characters", "/~a;b=1,2/%7E%2F?c=d&e=%20'(*)!", {}},
      {"GET with fields", "/", field("X-One", "1")},
      {"GET with an empty field", "/", field("X-One", "")},
      {"GET with Host", "/", field("Host", "elsewhere.example")},
      {"GET with Cookie", "/", field("Cookie", "own=1")},
      {"GET with Authorization", "/", field("Authorization", "Token t")},
      {"GET with user information", "/", {}, "user:word@"},
      {"GET of what asks for a login", "/login", {}},
      {"GET of what is elsewhere", "/moved", {}},
      {"GET of what is kept", "/kept", {}},
      {"GET with a body", "/", method("GET", "four")},
      {"HEAD", "/", method("HEAD")},
      {"POST", "/", method("POST")},
      {"POST with a body", "/", method("POST", "body")},
      {"POST with a longer body", "/", method("POST", "a longer body")},
      {"PATCH with a body", "/", method("PATCH", "body")},
      {"PUT", "/", method("PUT")},
      {"DELETE", "/", method("DELETE")},
      {"GET that is cut", "/cut", {}},
  };
  return all;
}

class HandlePool : public testing::Test {
 protected:
  HandlePool() {
    server_.setHandler([](const ReceivedRequest& request) {
      const auto path = request.path();
      if (path == "/cut") return Script().head(200, five).send("hel").reset();
      if (path == "/moved") return Script().respond(302, {{"Location", "/"}});
      if (path == "/login" && !request.header("Authorization")) {
        return Script().respond(401, {{"WWW-Authenticate", "Basic realm=\"r\""}});
      }
      if (path == "/kept") return Script().respond(200, {{"ETag", "\"1\""}}, "hello");
      return Script().respond(200, {}, "hello");
    });
  }

  static std::unique_ptr<RecordedSession> makeSession(
      const URLSessionConfiguration& configuration = URLSessionConfiguration::ephemeral()) {
    auto session = std::make_unique<RecordedSession>(configuration);
    session->delegate().onTaskChallenge = [](URLSessionTask&, const URLAuthenticationChallenge&,
                                             const URLChallengeHandler& answer) {
      answer(URLSessionAuthChallengeDisposition::useCredential, URLCredential("user", "word"));
    };
    return session;
  }

  /// Everything that the server is sent for one load.
  std::string sent(RecordedSession& session, const Usage& usage) {
    const auto before = server_.requests().size();
    auto url = server_.url(usage.path);
    url.insert(url.find("://") + 3, usage.userInformation);
    auto request = URLRequest(URL(url));
    if (usage.prepare) usage.prepare(request);
    session.load(request);
    std::string text;
    const auto requests = server_.requests();
    for (auto i = before; i < requests.size(); ++i) text += requests[i].rawHead + requests[i].body;
    return text;
  }

  ScriptedServer server_;
};

TEST_F(HandlePool, WhatIsSentDoesNotDependOnWhatWasSentBefore) {
  std::vector<std::string> fresh;
  for (const auto& usage : usages()) fresh.push_back(sent(*makeSession(), usage));
  for (std::size_t first = 0; first < usages().size(); ++first) {
    const std::string path = usages()[first].path;
    if (path == "/kept") continue;  // that is meant for the whole session
    for (std::size_t then = 0; then < usages().size(); ++then) {
      SCOPED_TRACE(std::string(usages()[first].name) + ", then " + usages()[then].name);
      const auto session = makeSession();
      sent(*session, usages()[0]);  // so that there is a connection
      EXPECT_EQ(sent(*session, usages()[first]), fresh[first]);
      EXPECT_EQ(sent(*session, usages()[then]), fresh[then]);
    }
  }
}

TEST_F(HandlePool, TheHostOfAFieldIsForgotten) {
  server_.route("/set", Script().respond(200, {{"Set-Cookie", "a=b"}}));
  RecordedSession session;
  session.load(server_.url("/set"));
  auto request = RecordedSession::request(server_.url("/"));
  session.load(request);
  EXPECT_EQ(server_.requests().back().header("Cookie"), "a=b");
  request.setValue("elsewhere.example", "Host");
  session.load(request);
  EXPECT_EQ(server_.requests().back().header("Cookie"), std::nullopt);
  session.load(server_.url("/"));
  EXPECT_EQ(server_.requests().back().header("Cookie"), "a=b");
}

TEST_F(HandlePool, WhatAProxyWasShownIsForgotten) {
  server_.setHandler([](const ReceivedRequest& request) {
    if (request.header("Proxy-Authorization")) return Script().respond(200, {}, "hello");
    return Script().respond(407, {{"Proxy-Authenticate", "Basic realm=\"r\""}});
  });
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.proxies = URLSessionProxies{server_.url(""), "", {}};
  const auto session = makeSession(configuration);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(session->load("http://server.example/").text(), "hello");
    ASSERT_EQ(server_.requests().size(), 2 * (i + 1));
    EXPECT_EQ(server_.requests()[2 * i].header("Proxy-Authorization"), std::nullopt);
  }
}

// Each request meets a connection that ends without an answer, and goes out again on another.
TEST_F(HandlePool, ManyLostConnectionsAreNoReasonToGiveUp) {
  std::vector<int> answered;
  server_.setHandler([&](const ReceivedRequest& request) {
    const auto connection = static_cast<std::size_t>(request.connection);
    if (connection >= answered.size()) answered.resize(connection + 1);
    return answered[connection]++ < 2 ? Script().respond(200, {}, "hello") : Script().reset();
  });
  RecordedSession session;
  for (int i = 0; i < 16; ++i) EXPECT_EQ(session.load(server_.url("/")).text(), "hello") << i;
}

TEST_F(HandlePool, AFailureIsToldByItsOwnReason) {
  RecordedSession session;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(session.load(server_.url("/")).text(), "hello");
    EXPECT_EQ(session.load(server_.url("/cut")).code(), URLError::networkConnectionLost);
  }
}

TEST_F(HandlePool, AnAddressThatLibcurlRefusesIsToldAsSuch) {
  RecordedSession session;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(session.load(server_.url("/")).text(), "hello");
    EXPECT_EQ(session.load("http://a!b/").code(), URLError::badURL);
  }
}

TEST_F(HandlePool, AConditionIsOfOneRequestOnly) {
  RecordedSession session;
  for (int i = 0; i < 3; ++i) {
    session.load(server_.url("/kept"));
    EXPECT_EQ(server_.requests().back().header("If-None-Match").has_value(), i > 0);
    session.load(server_.url("/"));
    EXPECT_EQ(server_.requests().back().header("If-None-Match"), std::nullopt);
  }
}

TEST_F(HandlePool, TasksThatEndOtherwiseLeaveTheSessionAsItWas) {
  server_.route("/stall", Script().stall());
  RecordedSession session;
  const auto fresh = sent(*makeSession(), usages()[0]);
  EXPECT_EQ(sent(session, usages()[0]), fresh);
  for (int i = 0; i < 3; ++i) {
    const auto cancelled = session.start(server_.url("/stall"));
    ASSERT_TRUE(server_.waitForStalls(1));
    cancelled->cancel();
    EXPECT_EQ(session.finished(cancelled).code(), URLError::cancelled);
    auto slow = RecordedSession::request(server_.url("/stall"));
    slow.setTimeoutInterval(TimeInterval(0.05));
    EXPECT_EQ(session.load(slow).code(), URLError::timedOut);
    EXPECT_EQ(sent(session, usages()[0]), fresh);
  }
}

TEST_F(HandlePool, OverHTTP2TheyAreSharedAsWell) {
  NginxServer nginx(trustedAuthority());
  RecordedSession session;
  const auto post = [&](const char* body) {
    auto request = RecordedSession::request(nginx.secureUrl("/post"));
    request.setHTTPMethod("POST");
    request.setHTTPBody(Data(std::string_view(body)));
    return session.load(request).text();
  };
  for (int i = 0; i < 3; ++i) {
    const auto hello = session.load(nginx.secureUrl("/hello"));
    EXPECT_EQ(hello.text(), "hello");
    EXPECT_EQ(hello.header("X-Protocol"), "HTTP/2.0");
    EXPECT_EQ(post("body"), "posted");
    EXPECT_EQ(post("a longer body"), "posted");
    EXPECT_EQ(session.load(nginx.secureUrl("/json")).text(), R"({"name":"nginx","value":42})");
    EXPECT_EQ(session.load(nginx.secureUrl("/missing")).status(), 404);
  }
}

}  // namespace
}  // namespace tarn::test
