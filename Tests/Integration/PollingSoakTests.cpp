#include <Support/Eventually.hpp>
#include <Support/LogRecorder.hpp>
#include <Support/ScriptedServer.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tarn {
namespace {

// What the soak knows of one of its types.
struct Watched {
  std::mutex turn;  // whose holder may start and stop it
  bool isPolled = false;
  std::int64_t makesWhenStopped = 0;
  std::int64_t callsWhenStopped = 0;
  std::atomic<std::int64_t> makes = 0;
  std::atomic<std::int64_t> calls = 0;
};

constexpr std::size_t watchedCount = 50;
std::array<Watched, watchedCount> allWatched;
std::string soakAddress;

template <std::size_t N>
struct Soaked : DataGetRequestable<Soaked<N>>, HTTPPolling<Soaked<N>> {
  static constexpr double pollingRate = 0.005;
  static std::optional<Soaked> make() {
    if (++allWatched[N].makes % 4 != 0) return std::nullopt;
    return Soaked();
  }
  // By way of one request type, so that not fifty sends have to be compiled.
  void _send(std::optional<DispatchQueue> queue, Completion<DataResponse> completion) const {
    DataGetRequest(URL(soakAddress)).send(std::move(queue), std::move(completion));
  }
};

struct Operations {
  void (*poll)(std::function<void()> handler);
  void (*add)(std::function<void()> handler);
  void (*stop)();
  void (*fire)(std::function<void()> completion);
};

template <std::size_t N>
Operations operationsOf() {
  using R = Soaked<N>;
  return {[](std::function<void()> f) { R::poll([f](const R&, const DataResponse&) { f(); }); },
          [](std::function<void()> f) {
            R::addPollingHandler([f](const R&, const DataResponse&) { f(); });
          },
          [] { R::stopPolling(); },
          [](std::function<void()> f) {
            R::firePoll(R(), std::nullopt, [f](const DataResponse&) { f(); });
          }};
}

template <std::size_t... N>
std::array<Operations, sizeof...(N)> allOperations(std::index_sequence<N...>) {
  return {operationsOf<N>()...};
}

/// Many types that threads start, stop and fire at random. Of most, one thread at a time starts or
/// stops them, so that what must not happen in between can be seen.
class PollingSoakTests : public testing::Test {
 protected:
  static constexpr std::size_t threadCount = 8;
  static constexpr std::size_t unguarded = 5;  // these, whoever comes
  static constexpr std::intptr_t limit = 8;

  /// A second, or as many as TARN_SOAK_SECONDS says.
  static std::chrono::seconds duration() {
    const char* const seconds = std::getenv("TARN_SOAK_SECONDS");
    return std::chrono::seconds(seconds ? std::max(std::atoi(seconds), 1) : 1);
  }

  PollingSoakTests() {
    server.route("/", test::Script().respond(200, {}, "tock"));
    soakAddress = server.url("/");
  }

  std::function<void()> handler(std::size_t type) {
    return [type, token = token] { ++allWatched[type].calls; };
  }

  void startOrStop(std::size_t type) {
    auto& watched = allWatched[type];
    const std::unique_lock turn(watched.turn, std::try_to_lock);
    if (!turn) return;
    if (watched.isPolled) {
      operations[type].stop();
      watched.makesWhenStopped = watched.makes;
      DispatchQueue::main().sync([] {});  // a handler that was being called has returned
      watched.callsWhenStopped = watched.calls;
      ++stops;
    } else {
      EXPECT_EQ(watched.makes, watched.makesWhenStopped);
      EXPECT_EQ(watched.calls, watched.callsWhenStopped);
      operations[type].poll(handler(type));
    }
    watched.isPolled = !watched.isPolled;
  }

  void fire(std::size_t type) {
    inFlight.wait();
    ++fires;
    operations[type].fire([this] {
      ++completions;
      inFlight.signal();
    });
  }

  void useAtRandom(std::size_t thread) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(thread));
    const auto end = std::chrono::steady_clock::now() + duration();
    while (std::chrono::steady_clock::now() < end) {
      const std::size_t type = random() % watchedCount;
      const auto choice = random() % 4;
      if (choice == 0) {
        fire(type);
      } else if (type >= unguarded) {
        startOrStop(type);
      } else if (choice == 1) {
        operations[type].poll(handler(type));
      } else if (choice == 2) {
        operations[type].add(handler(type));
      } else {
        operations[type].stop();
      }
    }
  }

  void stopAll() {
    for (std::size_t type = 0; type < watchedCount; ++type) {
      if (type < unguarded || allWatched[type].isPolled) operations[type].stop();
      allWatched[type].isPolled = false;
      allWatched[type].makesWhenStopped = allWatched[type].makes;
      allWatched[type].callsWhenStopped = allWatched[type].calls;
    }
  }

  const std::array<Operations, watchedCount> operations =
      allOperations(std::make_index_sequence<watchedCount>());
  std::atomic<std::int64_t> stops = 0;
  std::atomic<std::int64_t> fires = 0;
  std::atomic<std::int64_t> completions = 0;
  const DispatchSemaphore inFlight{limit};
  std::shared_ptr<int> token = std::make_shared<int>(0);  // every handler holds it
  test::LogRecorder log;
  test::ScriptedServer server{false};
};

TEST_F(PollingSoakTests, NothingFiresOnceStopped) {
  std::atomic<std::size_t> running = threadCount;
  {
    std::vector<std::jthread> threads;
    for (std::size_t thread = 0; thread < threadCount; ++thread) {
      threads.emplace_back([this, thread, &running] {
        useAtRandom(thread);
        if (--running == 0) MainQueue::stop();
      });
    }
    MainQueue::run();
  }
  stopAll();
  for (std::intptr_t fire = 0; fire < limit; ++fire) {
    ASSERT_TRUE(inFlight.wait(TimeInterval(60))) << "a fire was not answered";
  }
  EXPECT_EQ(completions, fires);
  // Handlers, and so entries with their timers, are gone.
  EXPECT_TRUE(test::eventually([&] {
    MainQueue::drain();
    return token.use_count() == 1;
  }));
  std::int64_t makes = 0;
  std::int64_t calls = 0;
  for (auto& watched : allWatched) {
    makes += watched.makes;
    calls += watched.calls;
    EXPECT_EQ(watched.calls, watched.callsWhenStopped);
  }
  EXPECT_GT(calls, 0);
  for (const auto& message : log.messages(LogLevel::fault)) {
    EXPECT_THAT(message,
                testing::AnyOf(testing::StartsWith("Not currently polling Soaked<"),
                               testing::StartsWith("Polling handler should already be provided")));
  }
  RecordProperty("figures", std::to_string(stops) + " stops, " + std::to_string(makes) +
                                " ticks, " + std::to_string(calls) + " handler calls, " +
                                std::to_string(fires) + " fires");
}

}  // namespace
}  // namespace tarn
