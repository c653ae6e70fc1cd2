#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/OwnNetwork.hpp>
#include <Support/Ports.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <sys/socket.h>

namespace tarn::test {
namespace {

constexpr const char* elsewhere = "10.9.8.7";

URLSessionConfiguration waiting() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.waitsForConnectivity = true;
  configuration.proxies.emplace();
  return configuration;
}

/// A server on a machine that has just lost its network.
class LostServer {
 public:
  explicit LostServer(OwnNetwork& network) : network_(network) {
    server_.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "hello"); });
    network_.takeAddressesAway();
  }

  ScriptedServer& operator*() { return server_; }
  ScriptedServer* operator->() { return &server_; }

 private:
  struct Up {
    explicit Up(OwnNetwork& network) { network.bringUp(); }
  };

  OwnNetwork& network_;
  Up up_{network_};
  ScriptedServer server_;
};

TEST(WaitingForConnectivity, IsToldOnceAndEndsWithTheRoute) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    auto request = RecordedSession::request(server->url("/"));
    request.setHTTPMethod("POST");
    request.setHTTPBody(Data("whole"));
    const auto task = session.start(request);
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    EXPECT_EQ(task->state(), URLSessionTask::State::running);
    EXPECT_EQ(server->connectionCount(), 0u);
    network.giveAddressBack();
    const auto loaded = session.finished(task);
    EXPECT_EQ(loaded.text(), "hello");
    EXPECT_EQ(loaded.record.waits, 1);
    EXPECT_EQ(server->requestCount(), 1u);
    EXPECT_EQ(server->request(0).body, "whole");
    // With the network there, nothing waits.
    EXPECT_EQ(session.load(server->url("/")).record.waits, 0);
  });
}

TEST(WaitingForConnectivity, IsToldOnceHoweverOftenTheRouteIsMissing) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto far = session.start(std::string("http://") + elsewhere + ":9/");
    const auto near = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(far->taskIdentifier()));
    ASSERT_TRUE(session.delegate().waitForWait(near->taskIdentifier()));
    // By the time that the second one is answered, the first has been tried in vain again.
    network.giveAddressBack();
    EXPECT_EQ(session.finished(near).text(), "hello");
    EXPECT_EQ(far->state(), URLSessionTask::State::running);
    network.addAddress(elsewhere);
    const auto loaded = session.finished(far);
    EXPECT_EQ(loaded.code(), URLError::cannotConnectToHost);  // reached, where nobody listens
    EXPECT_EQ(loaded.record.waits, 1);
  });
}

TEST(WaitingForConnectivity, ARedirectMayLeadToWhereThereIsNoRoute) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    server->route("/", Script().respond(302, {{"Location", std::string("http://") + elsewhere}}));
    RecordedSession session(waiting());
    const auto task = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    network.giveAddressBack();
    ASSERT_TRUE(session.delegate().waitForRedirects(task->taskIdentifier(), 1));
    // Another one that waits has the loop past the redirect's own attempt.
    const auto other = session.start(std::string("http://") + elsewhere);
    ASSERT_TRUE(session.delegate().waitForWait(other->taskIdentifier()));
    network.addAddress(elsewhere);
    EXPECT_EQ(session.finished(task).code(), URLError::cannotConnectToHost);
    EXPECT_EQ(session.finished(task).record.waits, 1);
  });
}

TEST(WaitingForConnectivity, GoesOnHoweverBusyTheNetworkIs) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto task = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    network.giveAddressBack();
    // Changes that follow each other closely, without end: here until there is an answer.
    constexpr std::chrono::milliseconds pause{1};
    bool answered = false;
    for (int i = 0; i < 10000 && !answered; ++i) {
      network.addAddress(elsewhere);
      network.removeAddress();
      answered = session.delegate().waitForCompletion(task->taskIdentifier(), pause);
    }
    EXPECT_TRUE(answered);
    EXPECT_EQ(session.finished(task).text(), "hello");
  });
}

TEST(WaitingForConnectivity, AHundredTasksAllGoOn) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (int i = 0; i < 100; ++i) tasks.push_back(session.start(server->url("/")));
    for (const auto& task : tasks)
      ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    network.giveAddressBack();
    for (const auto& task : tasks) {
      const auto loaded = session.finished(task);
      EXPECT_EQ(loaded.text(), "hello");
      EXPECT_EQ(loaded.record.waits, 1);
    }
    EXPECT_EQ(server->requestCount(), 100u);
    EXPECT_LE(server->peakConnections(), 6u);
  });
}

TEST(WaitingForConnectivity, EndsWithTheTimeForTheWholeLoad) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    auto configuration = waiting();
    configuration.timeoutIntervalForRequest = TimeInterval(0.05);  // stands still
    configuration.timeoutIntervalForResource = TimeInterval(0.5);
    RecordedSession session(configuration);
    const auto start = std::chrono::steady_clock::now();
    const auto loaded = session.load(server->url("/"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(490));
    EXPECT_EQ(loaded.code(), URLError::timedOut);
    EXPECT_EQ(loaded.record.waits, 1);
  });
}

int listeners() {
  int count = 0;
  for (const auto& descriptor : openDescriptors()) {
    if (descriptor.socketDomain != AF_NETLINK) continue;
    ++count;
    EXPECT_TRUE(descriptor.closesOnExec);
  }
  return count;
}

TEST(WaitingForConnectivity, ListensOnlyWhileSomebodyWaits) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto first = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(first->taskIdentifier()));
    EXPECT_EQ(listeners(), 1);
    const auto second = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(second->taskIdentifier()));
    EXPECT_EQ(listeners(), 1);
    first->cancel();
    EXPECT_EQ(session.finished(first).code(), URLError::cancelled);
    EXPECT_EQ(listeners(), 1);
    second->cancel();
    EXPECT_EQ(session.finished(second).code(), URLError::cancelled);
    EXPECT_EQ(listeners(), 0);
    // What has a connection does not wait any more.
    server->route("/", Script().stall());
    const auto third = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(third->taskIdentifier()));
    EXPECT_EQ(listeners(), 1);
    network.giveAddressBack();
    ASSERT_TRUE(server->waitForStalls(1));
    EXPECT_EQ(listeners(), 0);
  });
}

TEST(WaitingForConnectivity, EndsWithItsSession) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto task = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    session->invalidateAndCancel();
    EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
    ASSERT_TRUE(session.delegate().waitForInvalid());
    network.giveAddressBack();
    RecordedSession another;
    EXPECT_EQ(another.load(server->url("/")).text(), "hello");
    EXPECT_EQ(server->requestCount(), 1u);
  });
}

TEST(WaitingForConnectivity, ASuspendedTaskLeavesTheRouteToOthers) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto held = session.start(server->url("/held"));
    ASSERT_TRUE(session.delegate().waitForWait(held->taskIdentifier()));
    held->suspend();
    const auto other = session.start(server->url("/other"));
    ASSERT_TRUE(session.delegate().waitForWait(other->taskIdentifier()));
    network.giveAddressBack();
    EXPECT_EQ(session.finished(other).text(), "hello");
    EXPECT_EQ(session.load(server->url("/later")).text(), "hello");
    EXPECT_EQ(server->requestCount(), 2u);
    held->resume();
    EXPECT_EQ(session.finished(held).text(), "hello");
    EXPECT_EQ(server->request(2).path(), "/held");
  });
}

TEST(WaitingForConnectivity, SuspendedAndResumedWithoutARouteItWaitsOn) {
  inOwnNetwork([](OwnNetwork& network) {
    LostServer server(network);
    RecordedSession session(waiting());
    const auto task = session.start(server->url("/"));
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    task->suspend();
    task->resume();
    network.giveAddressBack();
    EXPECT_EQ(session.finished(task).text(), "hello");
    EXPECT_EQ(session.finished(task).record.waits, 1);
  });
}

// -- What counts as having no route

struct NoRouteRow {
  const char* url;
  const char* proxy;
};

TEST(WithoutARoute, IsAddressesAndNamesOfServersAndProxies) {
  inOwnNetwork([](OwnNetwork&) {
    const std::vector<NoRouteRow> rows{
        {"http://127.0.0.1:9/", ""},
        {"http://[2001:db8::1]:9/", ""},
        {"https://10.9.8.7/", ""},
        {"http://localhost:9/", ""},
        {"http://example.com/", ""},
        {"http://example.com/", "http://10.9.8.7:9"},
        {"http://example.com/", "http://proxy.example.com:9"},
        {"https://example.com/", "socks5://10.9.8.7:9"},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(row.url) + " by " + row.proxy);
      auto configuration = waiting();
      configuration.proxies = URLSessionProxies{row.proxy, row.proxy, {}};
      RecordedSession patient(configuration);
      const auto task = patient.start(std::string(row.url));
      EXPECT_TRUE(patient.delegate().waitForWait(task->taskIdentifier()));
      configuration.waitsForConnectivity = false;
      RecordedSession impatient(configuration);
      const auto loaded = impatient.load(std::string(row.url));
      EXPECT_EQ(loaded.code(), URLError::notConnectedToInternet);
      EXPECT_EQ(loaded.record.waits, 0);
    }
  });
}

TEST(WithoutARoute, IsNotARefusalOfOneAmongSeveralAddresses) {
  inOwnNetwork([](OwnNetwork& network) {
    network.bringUp();
    const RefusedPort refused;
    const auto host = "mixed.example:" + std::to_string(refused.port());
    for (const auto& addresses :
         std::vector<std::vector<std::string>>{{"127.0.0.1", "203.0.113.1"},
                                               {"203.0.113.1", "127.0.0.1"},
                                               {"127.0.0.1", "2001:db8::1"},
                                               {"2001:db8::1", "127.0.0.1"}}) {
      SCOPED_TRACE(addresses[0]);
      auto configuration = waiting();
      configuration.resolverOverrides[host] = addresses;
      RecordedSession session(configuration);
      const auto loaded = session.load("http://" + host + "/");
      EXPECT_EQ(loaded.code(), URLError::cannotConnectToHost);
      EXPECT_EQ(loaded.record.waits, 0);
    }
  });
}

TEST(WithoutARoute, IsNotAnUnknownNameOnceTheWorldCanBeReached) {
  inOwnNetwork([](OwnNetwork& network) {
    RecordedSession session(waiting());
    const auto task = session.start(std::string("http://nonexistent.invalid/"));
    ASSERT_TRUE(session.delegate().waitForWait(task->taskIdentifier()));
    network.bringUp();
    network.addAddress("198.41.0.4");  // stands for the world
    EXPECT_EQ(session.finished(task).code(), URLError::cannotFindHost);
  });
}

}  // namespace
}  // namespace tarn::test
