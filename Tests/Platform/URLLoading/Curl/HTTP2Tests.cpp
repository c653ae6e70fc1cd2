#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/NginxServer.hpp>

#include <gtest/gtest.h>

#include <set>

namespace tarn::test {
namespace {

class HTTP2 : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = new NginxServer(trustedAuthority(), 4 << 20); }
  static void TearDownTestSuite() { delete server_; }

  static NginxServer& server() { return *server_; }

 private:
  static inline NginxServer* server_ = nullptr;
};

TEST_F(HTTP2, IsSpokenOverTLSAndNotOverPlainTCP) {
  RecordedSession session;
  const auto secure = session.load(server().secureUrl("/hello"));
  EXPECT_EQ(secure.code(), 0);
  EXPECT_EQ(secure.text(), "hello");
  EXPECT_EQ(secure.response->httpVersion(), "HTTP/2");
  EXPECT_EQ(secure.header("x-protocol"), "HTTP/2.0");
  EXPECT_EQ(secure.header("X-PROTOCOL"), "HTTP/2.0");
  EXPECT_EQ(secure.response->expectedContentLength(), 5);
  const auto plain = session.load(server().url("/hello"));
  EXPECT_EQ(plain.response->httpVersion(), "HTTP/1.1");
}

TEST_F(HTTP2, ManyRequestsShareOneConnection) {
  RecordedSession session;
  ASSERT_EQ(session.load(server().secureUrl("/hello")).text(), "hello");
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 300; ++i) tasks.push_back(session.start(server().secureUrl("/json")));
  std::set<std::string> connections;
  for (const auto& task : tasks) {
    const auto loaded = session.finished(task);
    EXPECT_EQ(loaded.status(), 200);
    connections.insert(loaded.header("X-Connection"));
  }
  EXPECT_EQ(connections.size(), 1u);
}

TEST_F(HTTP2, CarriesLargeBodiesBothWays) {
  RecordedSession session;
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 8; ++i) tasks.push_back(session.start(server().secureUrl("/big")));
  const auto expected = server().bigBody();
  for (const auto& task : tasks) EXPECT_EQ(session.finished(task).text() == expected, true);
  auto request = RecordedSession::request(server().secureUrl("/upload/a"));
  request.setHTTPMethod("PUT");
  request.setHTTPBody(Data(expected));
  EXPECT_EQ(session.load(request).status(), 201);
  EXPECT_EQ(server().uploaded("a") == expected, true);
}

// Each answer is followed by one of another size, whose buffer is another.
TEST_F(HTTP2, SmallAndLargeBodiesTakeTurns) {
  RecordedSession session;
  ASSERT_EQ(session.load(server().secureUrl("/hello")).text(), "hello");
  const auto large = server().bigBody();
  for (int round = 0; round < 10; ++round) {
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (const char* path : {"/big", "/hello", "/hello", "/big", "/hello", "/hello"}) {
      tasks.push_back(session.start(server().secureUrl(path)));
    }
    for (const auto& task : tasks) {
      const auto loaded = session.finished(task);
      EXPECT_EQ(loaded.code(), 0);
      EXPECT_TRUE(loaded.text() == "hello" || loaded.text() == large);
    }
  }
}

TEST_F(HTTP2, ASuspendedTaskDoesNotHoldUpAnotherOfItsConnection) {
  RecordedSession session;
  std::atomic<bool> first{true};
  session.delegate().onData = [&](URLSessionTask& task, const Data&) {
    if (first.exchange(false)) task.suspend();
  };
  const auto held = session.start(server().secureUrl("/big"));
  ASSERT_TRUE(session.delegate().waitForBytes(held->taskIdentifier(), 1));
  EXPECT_EQ(session.load(server().secureUrl("/hello")).text(), "hello");
  EXPECT_EQ(held->state(), URLSessionTask::State::suspended);
  held->resume();
  EXPECT_EQ(session.finished(held).text() == server().bigBody(), true);
}

TEST_F(HTTP2, CancellingSomeLeavesTheOthersAlone) {
  RecordedSession session;
  session.load(server().secureUrl("/hello"));
  std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  for (int i = 0; i < 60; ++i) tasks.push_back(session.start(server().secureUrl("/big")));
  for (std::size_t i = 0; i < tasks.size(); i += 3) tasks[i]->cancel();
  const auto expected = server().bigBody();
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const auto loaded = session.finished(tasks[i], std::chrono::seconds(60));
    if (i % 3 == 0) {
      EXPECT_TRUE(loaded.code() == URLError::cancelled || loaded.code() == 0) << loaded.code();
    } else {
      EXPECT_EQ(loaded.text() == expected, true);
    }
  }
}

TEST_F(HTTP2, AnAnnouncedCodingIsUndone) {
  RecordedSession session;
  auto request = RecordedSession::request(server().secureUrl("/text"));
  request.setValue("gzip", "Accept-Encoding");
  const auto loaded = session.load(request);
  EXPECT_EQ(loaded.header("Content-Encoding"), "gzip");
  EXPECT_EQ(loaded.text(), server().textBody());
  EXPECT_EQ(loaded.response->expectedContentLength(), -1);
}

TEST_F(HTTP2, MethodsWithoutABody) {
  RecordedSession session;
  for (const char* method : {"GET", "HEAD", "POST", "DELETE"}) {
    SCOPED_TRACE(method);
    auto request = RecordedSession::request(server().secureUrl("/post"));
    request.setHTTPMethod(method);
    EXPECT_EQ(session.load(request).status(), 200);
  }
}

}  // namespace
}  // namespace tarn::test
