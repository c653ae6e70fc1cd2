#include <Support/LogRecorder.hpp>
#include <Support/ScriptedServer.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

using test::Script;

constexpr std::size_t threadCount = 4;
constexpr std::size_t sendsPerThread = 5000;

struct Shot : DataGetRequestable<Shot>, HTTPRequestCancelable<Shot> {
  explicit Shot(const std::string& address) : url(address) {}

  URL url;
  UUID cancellationIdentifier;
  TimeInterval timeoutInterval{0.2};  // what ends a stalled answer that nobody cancels
};

// One answer in a hundred stalls, one is reset, one is cut short and one is an error.
Script answer(const test::ReceivedRequest& request) {
  switch (request.target.back()) {
    case '0':
      return Script().stall();
    case '1':
      return Script().reset();
    case '2':
      return Script().head(200, {{"Content-Length", "100"}}).send("half").close();
    case '3':
      return Script().respond(404, {}, "no");
    default:
      return Script().respond(200, {}, "yes");
  }
}

class StressTests : public testing::Test {
 protected:
  StressTests() { server.setHandler(answer); }

  // Cancels a third of the sends: some at once, some while later ones are being sent.
  void sendMany(std::size_t thread) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(thread));
    std::vector<Shot> toCancel;
    for (std::size_t index = 0; index < sendsPerThread; ++index) {
      inFlight.wait();
      const auto kind = random() % 100;
      const Shot shot(server.url("/" + std::to_string(kind < 4 ? kind : 9)));
      shot.send(queue, [this, at = thread * sendsPerThread + index](const DataResponse& response) {
        ++completions[at];
        ++outcomes[outcomeOf(response)];
        inFlight.signal();
      });
      if (random() % 3 == 0) toCancel.push_back(shot);
      if (random() % 8 == 0) {
        cancel(toCancel);
        toCancel.clear();
      }
    }
    cancel(toCancel);
  }

  enum Outcome { succeeded, cancelled, timedOut, connectionLost, refused, outcomeCount };
  static Outcome outcomeOf(const DataResponse& response) {
    const auto error = response.result.error();
    if (!error) return succeeded;
    if (const auto* own = error->as<HTTPResponseError>()) {
      return own->kind() == HTTPResponseError::Case::taskCancelled ? cancelled : refused;
    }
    switch (error->code()) {
      case -999:
        return cancelled;
      case -1001:
        return timedOut;
      case -1005:
        return connectionLost;
      default:
        return outcomeCount;
    }
  }

  static constexpr std::int64_t limit = 200;

  test::LogRecorder log;
  test::ScriptedServer server{false};
  DispatchQueue queue{"test.completions", QualityOfService::unspecified,
                      DispatchQueue::Attribute::concurrent};
  DispatchSemaphore inFlight{limit};
  std::vector<std::atomic<int>> completions =
      std::vector<std::atomic<int>>(threadCount * sendsPerThread);
  std::array<std::atomic<int>, outcomeCount + 1> outcomes{};
};

TEST_F(StressTests, EverySendIsAnsweredOnceWhateverTheServerAndTheCallersDo) {
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([this, thread] { sendMany(thread); });
  }
  for (auto& thread : threads) thread.join();
  for (std::int64_t place = 0; place < limit; ++place) {
    ASSERT_TRUE(inFlight.wait(TimeInterval(60))) << "a send was not answered";
  }
  for (std::size_t at = 0; at < completions.size(); ++at) ASSERT_EQ(completions[at], 1) << at;
  EXPECT_EQ(taskManager().pendingCount(), 0u);
  // All that was to happen did, and nothing else.
  for (std::size_t outcome = 0; outcome < outcomeCount; ++outcome)
    EXPECT_GT(outcomes[outcome], 0) << outcome;
  EXPECT_EQ(outcomes[outcomeCount], 0);
  for (const auto& entry : log.entries()) {
    EXPECT_EQ(entry.message, "Failure sending request Shot: Task has been cancelled");
  }
}

}  // namespace
}  // namespace tarn
