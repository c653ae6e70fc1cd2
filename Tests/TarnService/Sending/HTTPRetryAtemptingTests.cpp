#include <Platform/Dispatch/ManualDispatchClock.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using test::Script;
using testing::ElementsAre;
using Result = HTTPRetryResult<DataResponse>;
using Case = Result::Case;

// What differs from test to test; a request type's settings are its own.
std::atomic<std::int64_t> limitOfProbes = 0;
std::atomic<int> readsOfLimit = 0;

struct Probe : DataGetRequestable<Probe>, HTTPRetryAttempting<Probe> {
  static constexpr double retryInterval = 0.5;
  static std::int64_t retryLimit() {
    ++readsOfLimit;
    return limitOfProbes;
  }
  URL url;
};

std::string bodyOf(const DataResponse& response) {
  return response.data ? std::string(response.data->view()) : "";
}

std::vector<std::string> bodiesOf(const std::vector<DataResponse>& responses) {
  std::vector<std::string> bodies;
  for (const auto& response : responses) bodies.push_back(bodyOf(response));
  return bodies;
}

std::vector<double> inSeconds(const std::vector<TimeInterval>& intervals) {
  std::vector<double> seconds;
  for (const auto interval : intervals) seconds.push_back(interval.count());
  return seconds;
}

DataResponse answer(const std::string& body) {
  return DataResponse(Data(body), std::nullopt,
                      std::make_shared<HTTPURLResponse>(URL("http://localhost/"), 200, "HTTP/1.1",
                                                        HTTPHeaderFields()),
                      std::nullopt);
}

DataResponse failure(int attempt) {
  return DataResponse(std::nullopt, std::nullopt, nullptr,
                      Error(std::runtime_error(std::to_string(attempt))));
}

/// A server that answers each attempt as it is told, and a clock that the test moves.
class HTTPRetryAttemptingTests : public test::ServiceTest {
 protected:
  /// The n-th answer has the body n; 's' is a success, 'f' a failure.
  URL urlOf(const std::string& answers) {
    const std::string path = "/" + std::to_string(++paths_);
    std::vector<Script> scripts;
    for (const char kind : answers) {
      scripts.push_back(
          Script().respond(kind == 's' ? 200 : 503, {}, std::to_string(scripts.size() + 1)));
    }
    server.routeSequence(path, std::move(scripts));
    return URL(server.url(path));
  }

  /// Moves the clock on by every delay that is asked for, until the result is there.
  Result resultOf(std::size_t retries) {
    for (std::size_t retry = 1; retry <= retries; ++retry) {
      EXPECT_TRUE(clock.waitForRequestedDelays(retry, test::patience));
      if (clock.requestedDelays().size() < retry) break;
      clock.advance(clock.requestedDelays()[retry - 1]);
    }
    EXPECT_TRUE(results.waitFor(1));
    return results.value(0);
  }

  ManualDispatchClock clock;
  test::ScriptedServer server;
  DispatchQueue queue{"test.completions"};
  test::Collector<Result> results;

 private:
  int paths_ = 0;
};

struct RuleRow {
  std::int64_t retryLimit;
  std::string answers;
  Case kind;
  std::string successful;
  std::vector<std::string> failures;
  std::vector<double> delays;
};

class RetryRuleTests : public HTTPRetryAttemptingTests,
                       public testing::WithParamInterface<RuleRow> {};

TEST_P(RetryRuleTests, Holds) {
  const RuleRow& row = GetParam();
  SCOPED_TRACE(std::to_string(row.retryLimit) + ", " + row.answers);
  limitOfProbes = row.retryLimit;
  readsOfLimit = 0;
  Probe{{}, {}, urlOf(row.answers)}.sendAttemptingRetry(queue, results.callback());
  const Result result = resultOf(row.delays.size());

  EXPECT_EQ(result.kind(), row.kind);
  EXPECT_EQ(result.successfulResponse() ? bodyOf(*result.successfulResponse()) : "",
            row.successful);
  EXPECT_EQ(bodiesOf(result.failedResponses()), row.failures);
  EXPECT_EQ(result.failCount(), static_cast<std::int64_t>(row.failures.size()));
  EXPECT_EQ(inSeconds(clock.requestedDelays()), row.delays);
  EXPECT_EQ(server.requestCount(), row.answers.size());
  EXPECT_EQ(readsOfLimit, static_cast<int>(row.answers.size()));
  queue.sync([] {});
  EXPECT_EQ(results.count(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RetryRuleTests,
    testing::Values(
        RuleRow{-1, "s", Case::noFailure, "1", {}, {}},
        RuleRow{-1, "f", Case::noFailure, "1", {}, {}},
        RuleRow{0, "s", Case::noFailure, "1", {}, {}},
        RuleRow{0, "fs", Case::partialFailure, "2", {"1"}, {0.5}},
        RuleRow{0, "ff", Case::partialFailure, "2", {"1"}, {0.5}},
        RuleRow{1, "s", Case::noFailure, "1", {}, {}},
        RuleRow{1, "fs", Case::totalFailure, "", {"1", "2"}, {0.5}},
        RuleRow{1, "ffs", Case::partialFailure, "3", {"1", "2"}, {0.5, 1.5}},
        RuleRow{1, "fff", Case::partialFailure, "3", {"1", "2"}, {0.5, 1.5}},
        RuleRow{2, "s", Case::noFailure, "1", {}, {}},
        RuleRow{2, "fs", Case::partialFailure, "2", {"1"}, {0.5}},
        RuleRow{2, "ffs", Case::totalFailure, "", {"1", "2", "3"}, {0.5, 1.5}},
        RuleRow{2, "fffs", Case::partialFailure, "4", {"1", "2", "3"}, {0.5, 1.5, 2.5}},
        RuleRow{2, "ffff", Case::partialFailure, "4", {"1", "2", "3"}, {0.5, 1.5, 2.5}},
        RuleRow{3, "s", Case::noFailure, "1", {}, {}},
        RuleRow{3, "fs", Case::partialFailure, "2", {"1"}, {0.5}},
        RuleRow{3, "ffs", Case::partialFailure, "3", {"1", "2"}, {0.5, 1.5}},
        RuleRow{3, "fffs", Case::totalFailure, "", {"1", "2", "3", "4"}, {0.5, 1.5, 2.5}},
        RuleRow{3, "ffffs", Case::partialFailure, "5", {"1", "2", "3", "4"}, {0.5, 1.5, 2.5, 3.5}},
        RuleRow{
            3, "fffff", Case::partialFailure, "5", {"1", "2", "3", "4"}, {0.5, 1.5, 2.5, 3.5}}));

TEST_F(HTTPRetryAttemptingTests, TheResultArrivesOnTheQueueOfTheCaller) {
  limitOfProbes = 1;
  test::Collector<bool> onQueue;
  Probe{{}, {}, urlOf("fs")}.sendAttemptingRetry(
      queue, [this, onQueue, results = results](const Result& result) {
        onQueue.add(queue.isCurrent());
        results.add(result);
      });
  resultOf(1);
  EXPECT_THAT(onQueue.values(), ElementsAre(true));
}

TEST_F(HTTPRetryAttemptingTests, WithoutAQueueTheResultArrivesOnAnotherThread) {
  test::Collector<std::thread::id> threads;
  Probe{{}, {}, urlOf("s")}.sendAttemptingRetry(
      std::nullopt, [threads](const Result&) { threads.add(std::this_thread::get_id()); });
  ASSERT_TRUE(threads.waitFor(1));
  EXPECT_NE(threads.value(0), std::this_thread::get_id());
}

TEST_F(HTTPRetryAttemptingTests, AMoveOnlyCompletionIsTakenAndLetGo) {
  auto owned = std::make_unique<std::shared_ptr<int>>(std::make_shared<int>(7));
  const std::weak_ptr<int> watched = *owned;
  const test::Waiter done;
  limitOfProbes = 1;
  Probe{{}, {}, urlOf("fs")}.sendAttemptingRetry(
      queue, [owned = std::move(owned), done](const Result&) { done.signal(); });
  ASSERT_TRUE(clock.waitForRequestedDelays(1, test::patience));
  EXPECT_FALSE(watched.expired());
  clock.advance(TimeInterval(0.5));
  ASSERT_TRUE(done.waitFor());
  EXPECT_TRUE(test::eventually([&] { return watched.expired(); }));
}

TEST_F(HTTPRetryAttemptingTests, AThrowingCompletionIsLogged) {
  Probe{{}, {}, urlOf("s")}.sendAttemptingRetry(
      queue, [](const Result&) { throw std::runtime_error("my mistake"); });
  expectLog(LogLevel::fault, "A completion threw: my mistake");
}

TEST_F(HTTPRetryAttemptingTests, ATransportErrorIsRetriedToo) {
  limitOfProbes = 2;
  server.routeSequence("/cut", {Script().reset(), Script().respond(200, {}, "2")});
  Probe{{}, {}, URL(server.url("/cut"))}.sendAttemptingRetry(queue, results.callback());
  const Result result = resultOf(1);
  EXPECT_EQ(result.kind(), Case::partialFailure);
  EXPECT_NE(result.failedResponses().at(0).result.error()->as<CFNetworkErrors>(), nullptr);
}

// A request whose send is its own, as a mock's is.
struct Overriding : DataGetRequestable<Overriding>, HTTPRetryAttempting<Overriding> {
  static constexpr double retryInterval = 0.25;
  static constexpr std::int64_t retryLimit = 4;
  static constexpr std::int64_t retryDelta = 10;
  std::function<void(const Completion<DataResponse>&)> answer;
  void send(std::optional<DispatchQueue>, Completion<DataResponse> completion) const {
    answer(completion);
  }
};

TEST_F(HTTPRetryAttemptingTests, EveryAttemptGoesThroughTheRequestsOwnSend) {
  const auto attempts = std::make_shared<int>(0);
  Overriding request;
  request.answer = [attempts](const Completion<DataResponse>& completion) {
    if (++*attempts == 4) return completion(answer("own"));
    completion(failure(*attempts));
  };
  request.sendAttemptingRetry(queue, results.callback());
  const Result result = resultOf(3);
  EXPECT_EQ(bodyOf(*result.successfulResponse()), "own");
  EXPECT_EQ(result.failedResponses().at(2).result.error()->message(), "3");
  EXPECT_THAT(inSeconds(clock.requestedDelays()), ElementsAre(0.25, 10.25, 20.25));
}

TEST_F(HTTPRetryAttemptingTests, AnAttemptWhoseSendThrowsHasFailed) {
  const auto attempts = std::make_shared<int>(0);
  Overriding request;
  request.answer = [attempts](const Completion<DataResponse>& completion) {
    if (++*attempts < 3) throw std::runtime_error("attempt " + std::to_string(*attempts));
    completion(answer("own"));
  };
  request.sendAttemptingRetry(queue, results.callback());
  const Result result = resultOf(2);
  ASSERT_EQ(result.failCount(), 2);
  EXPECT_EQ(result.failedResponses()[0].result.error()->message(), "attempt 1");
  EXPECT_EQ(result.failedResponses()[1].result.error()->message(), "attempt 2");
}

TEST_F(HTTPRetryAttemptingTests, ASecondResponseOfOneAttemptIsDropped) {
  expectLog(LogLevel::fault, "A completion was called a second time; the call is dropped");
  Overriding request;
  request.answer = [](const Completion<DataResponse>& completion) {
    completion(answer("first"));
    completion(answer("second"));
  };
  request.sendAttemptingRetry(queue, results.callback());
  EXPECT_EQ(bodyOf(*resultOf(0).successfulResponse()), "first");
  queue.sync([] {});
  EXPECT_EQ(results.count(), 1u);
}

TEST_F(HTTPRetryAttemptingTests, ARequestThatDeclinesLetsItsCompletionGo) {
  struct Declining : DataGetRequestable<Declining>, HTTPRetryAttempting<Declining> {
    static double retryInterval() { return 0; }
    static std::int64_t retryLimit() { return 1; }
    bool shouldSend() const { return false; }
  };
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  Declining().sendAttemptingRetry(queue, [results = results, held = std::move(held)](
                                             const Result& result) { results.add(result); });
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(results.count(), 0u);
}

TEST_F(HTTPRetryAttemptingTests, EachReadOfTheRetryQueueMakesOne) {
  const Probe probe;
  EXPECT_EQ(probe.retryQueue().label(), "dev.tarnservice.HTTPRetryAttempting.queue");
  EXPECT_EQ(probe.retryQueue().qualityOfService(), QualityOfService::unspecified);
  EXPECT_FALSE(probe.retryQueue() == probe.retryQueue());
}

TEST_F(HTTPRetryAttemptingTests, TheNextTryIsCountedFromNow) {
  const Probe probe;
  EXPECT_EQ((probe.nextTryDispatchTime(0) - clock.now()).count(), 0.5);
  EXPECT_EQ((probe.nextTryDispatchTime(7) - clock.now()).count(), 7.5);
  clock.advance(TimeInterval(10));
  EXPECT_EQ((probe.nextTryDispatchTime(1) - clock.now()).count(), 1.5);
}

TEST(HTTPRetryAttemptingDeathTests, ADelayOutOfRangeIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(detail::nextTryDispatchTime(0, std::int64_t{1} << 62, 2), "out of range");
  EXPECT_DEATH(detail::nextTryDispatchTime(0, std::int64_t{-1} << 62, 3), "out of range");
}

// Fails three times, without a pause.
struct Quick : DataGetRequestable<Quick>, HTTPRetryAttempting<Quick> {
  static constexpr double retryInterval = 0;
  static constexpr std::int64_t retryLimit = 5;
  static constexpr std::int64_t retryDelta = 0;
  std::shared_ptr<std::atomic<int>> attempts = std::make_shared<std::atomic<int>>(0);
  void send(std::optional<DispatchQueue> queue, Completion<DataResponse> completion) const {
    async(queue, [attempt = ++*attempts, completion] {
      if (attempt == 4) return completion(answer("own"));
      completion(failure(attempt));
    });
  }
};

// By the system's clock, at once and without a pause: for the sanitizers.
TEST(HTTPRetryAttemptingStressTests, SendsFromManyThreadsEachGetTheirOwnResult) {
  constexpr int threads = 4;
  constexpr int sends = 25;
  test::Collector<Result> results;
  {
    std::vector<std::jthread> senders;
    for (int thread = 0; thread < threads; ++thread) {
      senders.emplace_back([results] {
        for (int send = 0; send < sends; ++send) {
          Quick().sendAttemptingRetry(std::nullopt, results.callback());
        }
      });
    }
  }
  ASSERT_TRUE(results.waitFor(threads * sends));
  for (const auto& result : results.values()) {
    ASSERT_EQ(result.kind(), Case::partialFailure);
    ASSERT_EQ(result.failCount(), 3);
    EXPECT_EQ(result.failedResponses()[2].result.error()->message(), "3");
  }
}

TEST(HTTPRetryResultTests, TellsWhatItHolds) {
  const auto described = [](const Result& result) {
    return result.match(
        [](const DataResponse& successful) { return "no " + bodyOf(successful); },
        [](const DataResponse& successful, const std::vector<DataResponse>& failures) {
          return "partial " + bodyOf(successful) + " " + std::to_string(failures.size());
        },
        [](const std::vector<DataResponse>& failures) {
          return "total " + std::to_string(failures.size());
        });
  };
  const Result none = Result::noFailure(answer("a"));
  EXPECT_EQ(none.kind(), Case::noFailure);
  EXPECT_EQ(bodyOf(*none.successfulResponse()), "a");
  EXPECT_TRUE(none.failedResponses().empty());
  EXPECT_EQ(none.failCount(), 0);
  EXPECT_EQ(described(none), "no a");

  const Result partial = Result::partialFailure(answer("c"), {answer("a"), answer("b")});
  EXPECT_EQ(partial.kind(), Case::partialFailure);
  EXPECT_EQ(bodyOf(*partial.successfulResponse()), "c");
  EXPECT_THAT(bodiesOf(partial.failedResponses()), ElementsAre("a", "b"));
  EXPECT_EQ(partial.failCount(), 2);
  EXPECT_EQ(described(partial), "partial c 2");

  const Result total = Result::totalFailure({answer("a")});
  EXPECT_EQ(total.kind(), Case::totalFailure);
  EXPECT_EQ(total.successfulResponse(), std::nullopt);
  EXPECT_THAT(bodiesOf(total.failedResponses()), ElementsAre("a"));
  EXPECT_EQ(total.failCount(), 1);
  EXPECT_EQ(described(total), "total 1");
}

}  // namespace
}  // namespace tarn
