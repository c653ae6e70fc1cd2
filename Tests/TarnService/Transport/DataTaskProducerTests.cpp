#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
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
  // The transfer is over, and what tells it waits in the queue.
  ASSERT_TRUE(server.waitForConnectionsClosed(1));
  producer->resetSession();
  start("/ok", after);
  DataTaskProducer::sessionQueue()->setSuspended(false);
  ASSERT_TRUE(before.waitFor(1));
  ASSERT_TRUE(after.waitFor(1));
  EXPECT_EQ(before.value(0).error->code(), URLError::cancelled);
  EXPECT_EQ(after.value(0).data, Data("ok"));
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

}  // namespace
}  // namespace tarn
