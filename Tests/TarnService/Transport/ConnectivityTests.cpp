#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/OwnNetwork.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace depot {

/// As the library's own producer, with a session that waits.
class Producer final : public tarn::HTTPDataTaskProducer,
                       public tarn::URLSessionDelegate,
                       public std::enable_shared_from_this<Producer> {
 public:
  std::shared_ptr<tarn::URLSession> session() override {
    if (!session_) {
      tarn::URLSessionConfiguration configuration;
      configuration.waitsForConnectivity = true;
      session_ = tarn::URLSession::make(configuration, shared_from_this());
    }
    return session_;
  }
  void resetSession() override {}

  void taskIsWaitingForConnectivity(tarn::URLSession&, tarn::URLSessionTask& task) override {
    checkWaitForConnectivity(task);
    waits.signal();
  }
  void didReceiveData(tarn::URLSession&, tarn::URLSessionDataTask& task, tarn::Data data) override {
    write(std::move(data), task);
  }
  void didComplete(tarn::URLSession&, tarn::URLSessionTask& task,
                   const std::optional<tarn::Error>& error) override {
    reportCompletion(task, error);
  }

  void didBecomeInvalid(tarn::URLSession&, const std::optional<tarn::Error>&) override {
    invalidations.signal();
  }

  tarn::test::Waiter waits;
  tarn::test::Waiter invalidations;

 private:
  std::shared_ptr<tarn::URLSession> session_;
};

struct Fetch : tarn::DataGetRequestable<Fetch> {
  using TaskProducer = Producer;
  tarn::URL url;
  std::shared_ptr<Producer> taskProducer;
  bool shouldWaitForConnectivity;

  Fetch(const std::string& address, std::shared_ptr<Producer> producer, bool waits)
      : url(address), taskProducer(std::move(producer)), shouldWaitForConnectivity(waits) {}
};

}  // namespace depot

namespace tarn {
namespace {

class ConnectivityTests : public test::ServiceTest {
 protected:
  void TearDown() override {
    // It and its session keep each other until then.
    producer->session()->invalidateAndCancel();
    EXPECT_TRUE(producer->invalidations.waitFor());
    ServiceTest::TearDown();
  }

  void send(const std::string& url, bool waits) {
    const depot::Fetch request(url, producer, waits);
    request.send(std::nullopt, responses.callback());
  }
  static std::shared_ptr<URLSessionTaskRef> record() {
    return taskDictionary()["1-depot.Producer"].value();
  }

  std::shared_ptr<depot::Producer> producer = std::make_shared<depot::Producer>();
  test::Collector<DataResponse> responses;
};

TEST_F(ConnectivityTests, ARequestThatDoesNotWaitIsCancelledWithoutARoute) {
  test::inOwnNetwork([&](test::OwnNetwork&) {
    send("http://127.0.0.1:9/", false);
    ASSERT_TRUE(responses.waitFor(1));
    EXPECT_TRUE(record()->wasCancelledForConnectivity);
    const auto error = responses.value(0).result.error();
    ASSERT_TRUE(error && error->as<CFNetworkErrors>());
    EXPECT_EQ(error->code(), URLError::cancelled);
    EXPECT_EQ(producer->waits.count(), 1u);
  });
}

TEST_F(ConnectivityTests, ARequestThatWaitsGoesOnWithTheRoute) {
  test::inOwnNetwork([&](test::OwnNetwork& network) {
    network.bringUp();
    test::ScriptedServer server;
    server.setHandler(
        [](const test::ReceivedRequest&) { return test::Script().respond(200, {}, "hello"); });
    network.takeAddressesAway();
    send(server.url("/"), true);
    ASSERT_TRUE(producer->waits.waitFor());
    network.giveAddressBack();
    ASSERT_TRUE(responses.waitFor(1));
    EXPECT_EQ(responses.value(0).result.body(), Data("hello"));
    EXPECT_FALSE(record()->wasCancelledForConnectivity);
    EXPECT_EQ(producer->waits.count(), 1u);
  });
}

TEST_F(ConnectivityTests, TheLibrarysOwnSessionsDoNotWait) {
  test::inOwnNetwork([&](test::OwnNetwork&) {
    DataGetRequest(URL("http://127.0.0.1:9/")).send(std::nullopt, responses.callback());
    ASSERT_TRUE(responses.waitFor(1));
    const auto error = responses.value(0).result.error();
    ASSERT_TRUE(error && error->as<CFNetworkErrors>());
    EXPECT_EQ(error->code(), URLError::notConnectedToInternet);
  });
}

}  // namespace
}  // namespace tarn
