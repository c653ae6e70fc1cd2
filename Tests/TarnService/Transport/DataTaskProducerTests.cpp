#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/Eventually.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Transport/DataTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace tarn {
namespace {

using test::Script;

const std::string invalidated =
    "TarnService session became invalid with error: No error message attempting to reset";

struct Outcome {
  std::optional<Data> data;
  std::optional<Error> error;
};

class DataTaskProducerTests : public test::ServiceTest {
 protected:
  DataTaskProducerTests() {
    server.route("/ok", Script().respond(200, {}, "ok"));
    server.route("/stall", Script().stall());
  }

  std::shared_ptr<URLSessionTask> start(const std::string& path,
                                        test::Collector<Outcome> outcomes) {
    const auto task = producer->create(
        URLRequest(URL(server.url(path))), false,
        [outcomes](std::optional<Data> data, const auto&, std::optional<Error> error) {
          outcomes.add({std::move(data), std::move(error)});
        });
    task->resume();
    return task;
  }

  test::ScriptedServer server;
  std::shared_ptr<DataTaskProducer> producer = test::makeProducer();
};

TEST_F(DataTaskProducerTests, TheSessionIsMadeOnceAndKept) {
  EXPECT_EQ(producer->session(), producer->session());
}

TEST_F(DataTaskProducerTests, TheSharedProducerIsOne) {
  EXPECT_EQ(DataTaskProducer::shared(), DataTaskProducer::shared());
  EXPECT_EQ(DataTaskProducer::sessionQueue()->name(),
            "dev.tarnservice.tarnservice.datataskproducer");
}

TEST_F(DataTaskProducerTests, TheSessionHasDefaultSettings) {
  const auto configuration = producer->session()->configuration();
  EXPECT_FALSE(configuration.waitsForConnectivity);
  EXPECT_EQ(configuration.timeoutIntervalForRequest, TimeInterval(60));
  EXPECT_EQ(configuration.timeoutIntervalForResource, TimeInterval(7 * 24 * 3600));
  EXPECT_EQ(configuration.requestCachePolicy, URLRequest::CachePolicy::useProtocolCachePolicy);
}

TEST_F(DataTaskProducerTests, ATaskReportsItsBody) {
  test::Collector<Outcome> outcomes;
  start("/ok", outcomes);
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).data, Data("ok"));
  EXPECT_FALSE(outcomes.value(0).error);
}

TEST_F(DataTaskProducerTests, AResetCancelsTheTasksAndRenumbersTheNext) {
  test::Collector<Outcome> outcomes;
  const auto session = producer->session();
  start("/stall", outcomes);
  ASSERT_TRUE(server.waitForStalls(1));
  producer->resetSession();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).error->code(), URLError::cancelled);
  EXPECT_NE(producer->session(), session);
  test::Collector<Outcome> next;
  EXPECT_EQ(start("/ok", next)->taskIdentifier(), 1);
  ASSERT_TRUE(next.waitFor(1));
  EXPECT_EQ(next.value(0).data, Data("ok"));
  ASSERT_TRUE(log.waitForMessage(LogLevel::error, invalidated));
  expectLog(LogLevel::error, invalidated);
}

TEST_F(DataTaskProducerTests, ATaskWhoseKeyIsTakenOverStillReportsOnceAndToItsOwnCompletion) {
  test::Collector<Outcome> before;
  test::Collector<Outcome> after;
  start("/stall", before);
  ASSERT_TRUE(server.waitForStalls(1));
  // Another producer of the class numbers its tasks from 1 as well.
  auto other = test::makeProducer();
  std::swap(producer, other);
  start("/ok", after);
  ASSERT_TRUE(after.waitFor(1));
  EXPECT_EQ(before.count(), 0u);
  server.releaseStalls();
  server.closeConnections();
  ASSERT_TRUE(before.waitFor(1));
  EXPECT_TRUE(before.value(0).error);
  EXPECT_EQ(after.count(), 1u);
  EXPECT_EQ(after.value(0).data, Data("ok"));
}

TEST_F(DataTaskProducerTests, ATaskWhoseEndIsStillOnItsWayReportsToItsOwnCompletion) {
  test::Collector<Outcome> before;
  test::Collector<Outcome> after;
  const auto cancelled = start("/stall", before);
  ASSERT_TRUE(server.waitForStalls(1));
  DataTaskProducer::sessionQueue()->setSuspended(true);
  cancelled->cancel();
  // The task is over for all to see, and its end waits in the queue.
  ASSERT_TRUE(
      test::eventually([&] { return cancelled->state() == URLSessionTask::State::completed; }));
  producer->resetSession();
  start("/ok", after);
  DataTaskProducer::sessionQueue()->setSuspended(false);
  ASSERT_TRUE(before.waitFor(1));
  ASSERT_TRUE(after.waitFor(1));
  EXPECT_EQ(before.value(0).error->code(), URLError::cancelled);
  EXPECT_EQ(after.value(0).data, Data("ok"));
  expectLog(LogLevel::error, invalidated);
}

TEST_F(DataTaskProducerTests, AnInvalidSessionIsLoggedAndReplaced) {
  const auto session = producer->session();
  session->invalidateAndCancel();
  ASSERT_TRUE(log.waitForMessage(LogLevel::error, invalidated));
  expectLog(LogLevel::error, invalidated);
  test::Collector<Outcome> outcomes;
  // The log line comes just before the new session stands.
  DataTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  start("/ok", outcomes);
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).data, Data("ok"));
  EXPECT_NE(producer->session(), session);
}

TEST_F(DataTaskProducerTests, AProducerIsLetGoOnceItsSessionIsInvalid) {
  auto shortLived = DataTaskProducer::make();
  const std::weak_ptr<DataTaskProducer> watched = shortLived;
  shortLived->session()->invalidateAndCancel();
  ASSERT_TRUE(log.waitForMessage(LogLevel::error, invalidated));
  DataTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  shortLived.reset();
  EXPECT_TRUE(watched.expired());
  expectLog(LogLevel::error, invalidated);
}

TEST_F(DataTaskProducerTests, AResetEndsWithTheOldSession) {
  test::Collector<Outcome> outcomes;
  producer->session();
  producer->resetSession();
  const auto successor = producer->session();
  start("/stall", outcomes);
  ASSERT_TRUE(server.waitForStalls(1));
  ASSERT_TRUE(log.waitForMessage(LogLevel::error, invalidated));
  expectLog(LogLevel::error, invalidated);
  DataTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(producer->session(), successor);
  EXPECT_EQ(outcomes.count(), 0u);
  server.releaseStalls();
}

TEST_F(DataTaskProducerTests, ResetDefaultTaskProducersReplacesTheSharedSession) {
  test::Collector<DataResponse> responses;
  DataGetRequest(URL(server.url("/stall"))).send(std::nullopt, responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  const auto session = DataTaskProducer::shared()->session();
  resetDefaultTaskProducers();
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.error()->code(), URLError::cancelled);
  EXPECT_NE(DataTaskProducer::shared()->session(), session);
  ASSERT_TRUE(log.waitForMessage(LogLevel::error, invalidated));
  expectLog(LogLevel::error, invalidated);
}

}  // namespace
}  // namespace tarn
