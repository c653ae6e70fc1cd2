#include <Support/Collector.hpp>
#include <Support/Compression.hpp>
#include <Support/Ports.hpp>
#include <Support/RawClient.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace tarn::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using End = RawClient::End;

// ---- What is recorded

TEST(ScriptedServer, RecordsARequestExactlyAsItWasSent) {
  ScriptedServer server;
  server.route("/path", Script().respond(200));
  RawClient client(server.port());
  const std::string head =
      "PUT /path?a=1&b=%20 HTTP/1.1\r\nhOsT: x\r\nX-Twice: one\r\nOther:  spaced \r\nx-twice: "
      "two\r\n"
      "Content-Length: 5\r\n\r\n";
  client.send(head + "hello");
  EXPECT_EQ(client.readResponse(), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");

  ASSERT_TRUE(server.waitForRequests(1));
  const ReceivedRequest request = server.request(0);
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/path?a=1&b=%20");
  EXPECT_EQ(request.path(), "/path");
  EXPECT_EQ(request.version, "HTTP/1.1");
  EXPECT_EQ(request.headers, (HeaderList{{"hOsT", "x"},
                                         {"X-Twice", "one"},
                                         {"Other", "spaced"},
                                         {"x-twice", "two"},
                                         {"Content-Length", "5"}}));
  EXPECT_EQ(request.rawHead, head);
  EXPECT_EQ(request.body, "hello");
  EXPECT_TRUE(request.complete);
  EXPECT_EQ(request.header("HOST"), "x");
  EXPECT_EQ(request.header("absent"), std::nullopt);
  EXPECT_EQ(request.headerValues("X-TWICE"), (std::vector<std::string>{"one", "two"}));
  EXPECT_THROW(server.request(1), std::out_of_range);
}

TEST(ScriptedServer, RecordsAMalformedHeadInsteadOfJudgingIt) {
  ScriptedServer server;
  RawClient client(server.port());
  client.send("nonsense\r\nno colon\r\n\r\n");
  EXPECT_NE(client.readResponse().find("404"), std::string::npos);
  EXPECT_EQ(server.request(0).rawHead, "nonsense\r\nno colon\r\n\r\n");
}

TEST(ScriptedServer, FindsTheEndOfAHeadThatComesInPieces) {
  ScriptedServer server;
  server.route("/", Script().respond(200));
  RawClient client(server.port());
  const std::string first = "GET / HTTP/1.1\r\nX: " + std::string(100, 'x') + "\r\n\r";
  client.send(first);
  ASSERT_TRUE(server.waitForConnection(
      0, [&](const ConnectionRecord& own) { return own.bytesReceived == first.size(); }));
  client.send("\nGET / HTTP/1.1\r\n\r\n");
  EXPECT_NE(client.readResponse().find(" 200 "), std::string::npos);
  EXPECT_NE(client.readResponse().find(" 200 "), std::string::npos);
}

TEST(ScriptedServer, DecodesAChunkedBodyThatComesInPieces) {
  ScriptedServer server;
  server.route("/", Script().respond(200));
  RawClient client(server.port());
  client.send("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel");
  client.send("lo\r\n6;extension\r\n world\r\n0\r\nTrailer: x\r\n\r\n");
  client.readResponse();
  EXPECT_EQ(server.request(0).body, "hello world");
}

TEST(ScriptedServer, RecordsABodyThatTheClientBrokeOffAsIncomplete) {
  ScriptedServer server;
  RawClient client(server.port());
  client.send("POST / HTTP/1.1\r\nContent-Length: 100\r\n\r\npartial");
  client.close();
  ASSERT_TRUE(server.waitForConnectionsClosed(1));
  ASSERT_TRUE(server.waitForRequests(1));
  EXPECT_EQ(server.request(0).body, "partial");
  EXPECT_FALSE(server.request(0).complete);
}

TEST(ScriptedServer, CountsWithoutKeepingRequestsWhenAskedTo) {
  ScriptedServer server(false);
  server.route("/", Script().respond(200));
  RawClient client(server.port());
  client.get("/");
  client.readResponse();
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_TRUE(server.requests().empty());
}

// ---- Which script

TEST(ScriptedServer, KeepsTheConnectionForFurtherAndPipelinedRequests) {
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest& r) { return Script().respond(200, {}, r.target); });
  RawClient client(server.port());
  client.get("/one");
  EXPECT_TRUE(client.readResponse().ends_with("/one"));
  std::string many;
  for (int i = 0; i < 2000; ++i) many += "GET /more HTTP/1.1\r\n\r\n";
  client.send(many);
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(client.readResponse().ends_with("/more"));
  RawClient second(server.port());
  second.get("/two");
  second.readResponse();
  EXPECT_EQ(server.request(0).connection, 0);
  EXPECT_EQ(server.request(2000).connection, 0);
  EXPECT_EQ(server.request(2001).connection, 1);
  EXPECT_EQ(server.connections()[0].requests, 2001);
  EXPECT_EQ(server.connectionCount(), 2u);
  EXPECT_EQ(server.openConnections(), 2u);
  EXPECT_EQ(server.peakConnections(), 2u);
}

TEST(ScriptedServer, ClosesWhenTheRequestAsksForIt) {
  for (const char* request :
       {"GET / HTTP/1.1\r\nConnection: Close\r\n\r\n", "GET / HTTP/1.0\r\n\r\n"}) {
    SCOPED_TRACE(request);
    ScriptedServer server;
    server.route("/", Script().respond(200, {}, "x"));
    RawClient client(server.port());
    client.send(request);
    EXPECT_TRUE(client.readToEnd().ends_with("\r\n\r\nx"));
    EXPECT_EQ(client.end(), End::closed);
  }
}

TEST(ScriptedServer, ChoosesByPathThenHandlerThenNotFound) {
  ScriptedServer server;
  server.route("/fixed", Script().respond(201));
  server.routeSequence("/sequence", {Script().respond(503), Script().respond(202)});
  RawClient client(server.port());
  const auto statusOf = [&](const char* target) {
    client.get(target);
    return client.readResponse().substr(9, 3);
  };
  EXPECT_EQ(statusOf("/fixed?query"), "201");
  EXPECT_EQ(statusOf("/sequence"), "503");
  EXPECT_EQ(statusOf("/sequence"), "202");
  EXPECT_EQ(statusOf("/sequence"), "202");
  EXPECT_EQ(statusOf("/other"), "404");
  server.setHandler([](const ReceivedRequest&) { return Script().respond(204); });
  EXPECT_EQ(statusOf("/other"), "204");
  server.setHandler([](const ReceivedRequest&) -> Script { throw std::runtime_error("oops"); });
  EXPECT_EQ(statusOf("/other"), "500");
}

TEST(ScriptedServer, NamesItsAddress) {
  ScriptedServer server;
  const std::string port = std::to_string(server.port());
  EXPECT_EQ(server.url("/a?b"), "http://127.0.0.1:" + port + "/a?b");
  EXPECT_EQ(server.localhostUrl("/a"), "http://localhost:" + port + "/a");
}

// ---- Each step

struct StepCase {
  const char* name;
  Script script;
  std::string request;
  std::string expected;
  End end;
};

TEST(ScriptSteps, SendWhatTheySay) {
  const std::string get = "GET / HTTP/1.1\r\nConnection: close\r\n\r\n";
  const std::string headRequest = "HEAD / HTTP/1.1\r\nConnection: close\r\n\r\n";
  const std::string post = "POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody";
  const StepCase cases[] = {
      {"send", Script().send("anything"), get, "anything", End::closed},
      {"respond", Script().respond(404, {{"X-A", "b"}}, "no"), get,
       "HTTP/1.1 404 Not Found\r\nX-A: b\r\nContent-Length: 2\r\n\r\nno", End::closed},
      {"respond to HEAD", Script().respond(200, {}, "body"), headRequest,
       "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n", End::closed},
      {"no length for 204", Script().respond(204), get, "HTTP/1.1 204 No Content\r\n\r\n",
       End::closed},
      {"own length kept", Script().respond(200, {{"content-length", "9"}}, "x"), get,
       "HTTP/1.1 200 OK\r\ncontent-length: 9\r\n\r\nx", End::closed},
      {"head", Script().head(200, {{"A", "b"}}).close(), post, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n",
       End::closed},
      {"interim", Script().interim(103, {{"Link", "x"}}).respond(200), get,
       "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
       End::closed},
      {"chunked", Script().respondChunked(200, {}, {"hello", std::string(17, 'x')}, {{"T", "v"}}),
       get,
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n11\r\n"
       "xxxxxxxxxxxxxxxxx\r\n0\r\nT: v\r\n\r\n",
       End::closed},
      {"drip", Script().drip("abcde", 2, 1ms), get, "abcde", End::closed},
      {"repeat", Script().repeat("abc", 3), get, "abcabcabc", End::closed},
      {"close", Script().send("a").close().send("never"), post, "a", End::closed},
      {"truncate", Script().send("a").truncate().send("never"), post, "a", End::closed},
      {"reset", Script().send("a").reset().send("never"), post, "a", End::reset},
      {"reset at once", Script().reset(), post, "", End::reset},
      {"half-close", Script().send("a").halfClose().stall(), post, "a", End::closed},
      {"after head", Script::afterHead().send("early").close(),
       "POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n", "early", End::closed},
      {"close over an unread body", Script::afterHead().send("early").close(),
       "POST / HTTP/1.1\r\nContent-Length: 100000\r\n\r\n" + std::string(100000, 'x'), "early",
       End::closed},
  };
  for (const StepCase& row : cases) {
    SCOPED_TRACE(row.name);
    ScriptedServer server;
    server.route("/", row.script);
    RawClient client(server.port());
    client.send(row.request);
    EXPECT_EQ(client.readToEnd(), row.expected);
    EXPECT_EQ(client.end(), row.end);
  }
}

TEST(ScriptSteps, DripAndDelayTakeTheirTime) {
  ScriptedServer server;
  server.route("/drip", Script().drip("abc", 1, 20ms));
  server.route("/delay", Script().delay(40ms).send("abc"));
  for (const char* path : {"/drip", "/delay"}) {
    SCOPED_TRACE(path);
    RawClient client(server.port());
    const auto start = steady_clock::now();
    client.get(path);
    EXPECT_EQ(client.read(3), "abc");
    EXPECT_GE(steady_clock::now() - start, 40ms);
  }
}

TEST(ScriptSteps, DripSendsItsFirstPieceBeforeItPauses) {
  ScriptedServer server;
  server.route("/", Script().drip("abc", 2, 1h));
  RawClient client(server.port());
  client.get("/");
  EXPECT_EQ(client.read(2), "ab");
  EXPECT_FALSE(client.hasInput());
}

TEST(ScriptSteps, RepeatSendsExactlySoMuchMoreThanABlock) {
  ScriptedServer server;
  server.route("/", Script().repeat("0123456789abc", 100000).close());
  RawClient client(server.port());
  client.get("/");
  const std::string all = client.readToEnd();
  ASSERT_EQ(all.size(), 1300000u);
  for (std::size_t at = 0; at < all.size(); at += 13) {
    ASSERT_EQ(all.compare(at, 13, "0123456789abc"), 0) << at;
  }
  EXPECT_TRUE(server.waitForConnection(
      0, [](const ConnectionRecord& own) { return own.bytesSent == 1300000; }));
}

TEST(ScriptSteps, RepeatForeverGoesOnUntilTheClientLeaves) {
  ScriptedServer server;
  server.route("/", Script().repeatForever("garbage"));
  RawClient client(server.port());
  client.get("/");
  EXPECT_EQ(client.read(10 << 20).size(), std::size_t{10 << 20});
  EXPECT_EQ(server.openConnections(), 1u);
  client.close();
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(ScriptSteps, StallHoldsUntilReleased) {
  ScriptedServer server;
  server.route("/", Script().send("a").stall().send("b").stall().send("c"));
  RawClient client(server.port());
  client.get("/");
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(client.read(1), "a");
  EXPECT_FALSE(client.hasInput());
  server.releaseStalls();
  EXPECT_EQ(client.read(1), "b");
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_FALSE(client.hasInput());
  server.releaseStalls();
  EXPECT_EQ(client.read(1), "c");
  EXPECT_EQ(server.stalledConnections(), 0u);
}

TEST(ScriptSteps, WaitingStepsNoticeThatTheClientLeft) {
  const std::pair<const char*, Script> waits[] = {
      {"stall", Script().stall()},
      {"delay", Script().delay(1h)},
      {"drip", Script().drip("ab", 1, 1h)},
      {"stall after half-close", Script().halfClose().stall()},
      {"stall over an unread body", Script::afterHead().stall()},
  };
  for (const auto& [name, script] : waits) {
    for (const bool reset : {false, true}) {
      SCOPED_TRACE(std::string(name) + (reset ? ", RST" : ", FIN"));
      ScriptedServer server;
      server.route("/", script);
      RawClient client(server.port());
      client.send("POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody");
      ASSERT_TRUE(server.waitForRequests(1));
      EXPECT_FALSE(server.waitForConnectionsClosed(1, 5ms));
      reset ? client.reset() : client.close();
      ASSERT_TRUE(server.waitForConnectionsClosed(1));
      EXPECT_TRUE(server.waitForOpenConnections(0));
      EXPECT_EQ(server.stalledConnections(), 0u);
      const ConnectionRecord record = server.connections()[0];
      EXPECT_TRUE(record.closedByClient);
      // A drip leaves a byte unread at the client, which then resets even when it closes properly.
      if (std::string(name) != "drip") {
        EXPECT_EQ(record.resetByClient, reset);
      }
    }
  }
}

TEST(ScriptSteps, AnsweringAfterTheHeadLeavesTheBodyForLater) {
  ScriptedServer server;
  server.route("/", Script::afterHead().interim(100).stall().readBody().respond(201));
  RawClient client(server.port());
  client.send("POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
  EXPECT_EQ(client.readUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_FALSE(server.request(0).complete);
  server.releaseStalls();
  client.send("body");
  EXPECT_NE(client.readResponse().find("201"), std::string::npos);
  EXPECT_TRUE(server.request(0).complete);
  EXPECT_EQ(server.request(0).body, "body");
}

TEST(ScriptSteps, AnUnreadBodyIsReadBeforeTheNextRequest) {
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "early"); },
                    ScriptedServer::When::headRead);
  RawClient client(server.port());
  client.send("POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
  EXPECT_TRUE(client.readResponse().ends_with("early"));
  client.send("bodyGET /next HTTP/1.1\r\n\r\n");
  client.readResponse();
  ASSERT_EQ(server.requestCount(), 2u);
  EXPECT_EQ(server.request(0).body, "body");
  EXPECT_EQ(server.request(1).target, "/next");
}

TEST(ScriptSteps, ServerWithoutReadingBoundsWhatAClientCanSend) {
  ScriptedServer server;
  server.route("/", Script::afterHead().stall().respond(200));
  RawClient client(server.port());
  const std::size_t size = 16 << 20;
  std::thread sender([&] {
    client.send("POST / HTTP/1.1\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    client.send(std::string(size, 'x'));
  });
  EXPECT_TRUE(server.waitForStalls(1));
  EXPECT_LT(server.connections()[0].bytesReceived, 100000u);
  server.releaseStalls();
  sender.join();
  EXPECT_TRUE(server.waitForConnection(
      0, [&](const ConnectionRecord& own) { return own.bytesReceived > size; }));
}

// ---- Connections

TEST(ScriptedServer, ActsOnAConnectionBeforeAnyRequest) {
  ScriptedServer server;
  server.route("/", Script().respond(200));
  server.onConnect(Script().send("garbage"));
  RawClient greeted(server.port());
  EXPECT_EQ(greeted.read(7), "garbage");
  greeted.get("/");
  EXPECT_NE(greeted.readResponse().find("200"), std::string::npos);

  server.onConnect(Script().awaitInput().reset());
  RawClient client(server.port());
  EXPECT_FALSE(client.hasInput());
  client.send("x");
  EXPECT_EQ(client.readToEnd(), "");
  EXPECT_EQ(client.end(), End::reset);
}

TEST(ScriptedServer, NoticesThatTheClientLeftBeforeAnyRequest) {
  ScriptedServer server;
  server.onConnect(Script().stall());
  RawClient client(server.port());
  client.send("unread");
  ASSERT_TRUE(server.waitForStalls(1));
  client.close();
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(ScriptedServer, ClosesIdleAndStalledConnectionsOnDemand) {
  ScriptedServer server;
  server.route("/", Script().respond(200));
  server.route("/stall", Script().stall());
  RawClient idle(server.port());
  idle.get("/");
  idle.readResponse();
  RawClient stalled(server.port());
  stalled.get("/stall");
  ASSERT_TRUE(server.waitForStalls(1));
  server.closeConnections();
  EXPECT_EQ(server.openConnections(), 0u);
  EXPECT_EQ(idle.readToEnd(), "");
  EXPECT_EQ(idle.end(), End::closed);
  EXPECT_EQ(stalled.readToEnd(), "");
  EXPECT_FALSE(server.waitForConnectionsClosed(1, 0ms)) << "the server closed, not the client";
}

TEST(ScriptedServer, RefusesConnectionsOnceItStopsListening) {
  ScriptedServer server;
  server.route("/", Script().respond(200));
  RawClient client(server.port());
  ASSERT_TRUE(server.waitForConnections(1));
  server.stopListening();
  EXPECT_EQ(RawClient::tryConnect(server.port(), 5000), ECONNREFUSED);
  client.get("/");
  EXPECT_NE(client.readResponse().find("200"), std::string::npos);
}

TEST(ScriptedServer, EndsWhateverItsConnectionsAreDoing) {
  std::thread([] {}).join();  // a sanitizer's own thread comes with the first one, and stays
  const std::size_t descriptors = openFileDescriptorCount();
  const std::size_t threads = threadCount();
  std::vector<std::unique_ptr<RawClient>> clients;
  {
    ScriptedServer server;
    server.route("/0", Script().stall());
    server.route("/1", Script().drip("abc", 1, 1h));
    server.route("/2", Script().delay(1h));
    server.route("/3", Script().repeatForever("x"));
    server.route("/4", Script().respond(200));
    for (int i = 0; i < 5; ++i) {
      clients.push_back(std::make_unique<RawClient>(server.port()));
      clients.back()->get("/" + std::to_string(i));
    }
    clients.push_back(std::make_unique<RawClient>(server.port()));
    ASSERT_TRUE(server.waitForRequests(5));
    EXPECT_EQ(threadCount(), threads + 1);
  }
  for (const auto& client : clients) {
    client->readToEnd();
    EXPECT_NE(client->end(), End::timedOut);
  }
  clients.clear();
  EXPECT_EQ(openFileDescriptorCount(), descriptors);
  EXPECT_EQ(threadCount(), threads);
}

TEST(ScriptedServer, WaitsAreBounded) {
  ScriptedServer server;
  EXPECT_FALSE(server.waitForRequests(1, 1ms));
  EXPECT_FALSE(server.waitForConnections(1, 1ms));
  EXPECT_FALSE(server.waitForConnectionsClosed(1, 1ms));
  EXPECT_FALSE(server.waitForStalls(1, 1ms));
  EXPECT_FALSE(server.waitForConnection(
      0, [](const ConnectionRecord&) { return true; }, 1ms));
  RawClient client(server.port());
  ASSERT_TRUE(server.waitForConnections(1));
  EXPECT_FALSE(server.waitForOpenConnections(0, 1ms));
}

TEST(ScriptedServer, ServesManyClientsOfWhichSomeReset) {
  constexpr int threads = 4;
  constexpr int clientsPerThread = 16;
  constexpr int requestsPerClient = 313;
  ScriptedServer server;
  server.setHandler([](const ReceivedRequest& r) { return Script().respond(200, {}, r.body); });
  std::vector<std::vector<std::unique_ptr<RawClient>>> groups(threads);
  for (auto& clients : groups) {
    for (int i = 0; i < clientsPerThread; ++i) {
      clients.push_back(std::make_unique<RawClient>(server.port()));
    }
  }
  ASSERT_TRUE(server.waitForConnections(std::size_t{threads * clientsPerThread}));
  EXPECT_EQ(server.peakConnections(), std::size_t{threads * clientsPerThread});
  std::atomic<int> wrong{0};
  std::vector<std::thread> runners;
  for (int runner = 0; runner < threads; ++runner) {
    runners.emplace_back([&, runner] {
      auto& clients = groups[static_cast<std::size_t>(runner)];
      for (int round = 0; round < requestsPerClient; ++round) {
        const std::string body = std::to_string(runner) + "-" + std::to_string(round);
        const std::string request =
            "POST / HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        for (const auto& client : clients) client->send(request);
        for (auto& client : clients) {
          if (!client->readResponse().ends_with("\r\n\r\n" + body)) ++wrong;
        }
        // Leaves with an answer under way.
        auto& leaving = clients[static_cast<std::size_t>(round) % clients.size()];
        leaving->send(request);
        leaving->reset();
        leaving = std::make_unique<RawClient>(server.port());
      }
      clients.clear();
    });
  }
  for (std::thread& runner : runners) runner.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(server.waitForOpenConnections(0));
  EXPECT_GE(server.requestCount(), std::size_t{threads * clientsPerThread * requestsPerClient});
}

// ---- Ports, processes, files, compression

TEST(Ports, RefuseOrLeaveConnectionsUnanswered) {
  const RefusedPort refused;
  EXPECT_EQ(RawClient::tryConnect(refused.port(), 5000), ECONNREFUSED);
  EXPECT_EQ(refused.url("/x"), "http://127.0.0.1:" + std::to_string(refused.port()) + "/x");
  const UnansweredPort unanswered;
  EXPECT_EQ(RawClient::tryConnect(unanswered.port(), 100), ETIMEDOUT);
}

TEST(Collector, GathersFromOtherThreadsAndOutlivesItsTest) {
  std::function<void(int)> late;
  {
    const Collector<int> collector;
    late = collector.callback();
    EXPECT_FALSE(collector.waitFor(1, 1ms));
    std::thread other([callback = collector.callback()] {
      callback(1);
      callback(2);
    });
    EXPECT_TRUE(collector.waitFor(2));
    other.join();
    EXPECT_EQ(collector.values(), (std::vector<int>{1, 2}));
    EXPECT_EQ(collector.value(1), 2);
    EXPECT_THROW(collector.value(2), std::out_of_range);
    EXPECT_EQ(collector.take().size(), 2u);
    EXPECT_EQ(collector.count(), 0u);
  }
  late(3);
}

TEST(Collector, WaiterCountsWhateverTheArgumentsAre) {
  const Waiter waiter;
  EXPECT_FALSE(waiter.waitFor(1, 1ms));
  waiter.callback()(1, "two");
  waiter.callback()();
  EXPECT_TRUE(waiter.waitFor(2));
  EXPECT_EQ(waiter.count(), 2u);
}

TEST(System, EnvironmentIsPutBack) {
  const char* name = "TARN_TEST_VARIABLE";
  const ScopedEnvironment outer(name, "outer");
  {
    const ScopedEnvironment inner(name, "inner");
    EXPECT_STREQ(std::getenv(name), "inner");
    const ScopedEnvironment removed(name, std::nullopt);
    EXPECT_EQ(std::getenv(name), nullptr);
  }
  EXPECT_STREQ(std::getenv(name), "outer");
}

TEST(System, TemporaryDirectoriesDifferAndGo) {
  std::string path;
  {
    const TemporaryDirectory one;
    const TemporaryDirectory two;
    EXPECT_NE(one.path(), two.path());
    path = one.file("content");
    const std::string content("a\0b\n", 4);
    writeFile(path, content);
    EXPECT_EQ(readFile(path), content);
    EXPECT_TRUE(fileExists(path));
  }
  EXPECT_FALSE(fileExists(path));
  EXPECT_THROW(readFile(path), std::runtime_error);
  EXPECT_THROW(writeFile(path, ""), std::runtime_error);
}

TEST(Compression, MakesTheThreeForms) {
  const std::string text(100000, 'x');
  const std::string packed = gzip(text);
  EXPECT_LT(packed.size(), 1000u);
  EXPECT_EQ(packed.substr(0, 2), "\x1f\x8b");
  EXPECT_EQ(gunzip(packed), text);
  EXPECT_EQ(gunzip(gzip("")), "");
  EXPECT_THROW(gunzip(packed.substr(0, packed.size() - 1)), std::runtime_error);
  EXPECT_THROW(gunzip(packed + "x"), std::runtime_error);
  EXPECT_EQ(zlibDeflate(text).substr(0, 1), "\x78");
  // A zlib stream is the raw one in a frame of two bytes before and four after.
  EXPECT_EQ(zlibDeflate(text).substr(2, rawDeflate(text).size()), rawDeflate(text));
}

}  // namespace
}  // namespace tarn::test
