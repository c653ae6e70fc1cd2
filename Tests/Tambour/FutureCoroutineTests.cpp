#include <Support/Collector.hpp>
#include <Tambour/FutureCoroutine.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace tarn {
namespace {

const auto cancelledText = FutureError::cancelled().message();

template <class T>
std::string errorOf(const Future<T>& future) {
  try {
    future.get();
    return "no error";
  } catch (const std::exception& error) {
    return error.what();
  }
}

Future<int> doubled(Future<int> future) { co_return 2 * co_await future; }

Future<void> rethrows(Future<int> future) { co_await future; }

TEST(FutureCoroutineTests, ACoroutineAnswersWhatItMakesOfAFuture) {
  const Future<int> source;
  const auto result = doubled(source);
  EXPECT_TRUE(result.isPending());
  source.markCompletion(21);
  EXPECT_EQ(result.get(), 42);
  EXPECT_EQ(doubled(source).get(), 42);
}

TEST(FutureCoroutineTests, AnErrorIsThrownWhereItIsAwaited) {
  const Future<int> source;
  const auto result = rethrows(source);
  source.markFailure(std::runtime_error("no"));
  EXPECT_EQ(errorOf(result), "no");
  EXPECT_EQ(errorOf(rethrows(source)), "no");
}

Future<std::string> startsHere(std::thread::id& thread, Future<void> gate) {
  thread = std::this_thread::get_id();
  co_await gate;
  co_return "done";
}

TEST(FutureCoroutineTests, ACoroutineStartsAtOnceOnItsCallersThread) {
  const Future<void> gate;
  std::thread::id thread;
  const auto result = startsHere(thread, gate);
  EXPECT_EQ(thread, std::this_thread::get_id());
  gate.markCompletion();
  EXPECT_EQ(result.get(), "done");
}

Future<std::string> hops(DispatchQueue queue, Future<int> pending, Future<int> settled) {
  std::string places;
  const auto note = [&] {
    places += queue.isCurrent() ? "queue " : DispatchQueue::global().isCurrent() ? "global " : "? ";
  };
  co_await pending.on(queue);
  note();
  co_await settled.on(queue);
  note();
  co_await settled;
  note();
  co_await pending.on(queue);
  note();
  co_return places;
}

TEST(FutureCoroutineTests, EachAwaitNamesTheQueueToGoOnOn) {
  const Future<int> pending;
  const Future<int> settled;
  settled.markCompletion(1);
  const auto places = hops(DispatchQueue("test.coroutine"), pending, settled);
  pending.markCompletion(1);
  EXPECT_EQ(places.get(), "queue queue global queue ");
}

Future<int> sums(Future<int> settled, int count) {
  int sum = 0;
  for (int index = 0; index < count; ++index) sum += co_await settled;
  co_return sum;
}

TEST(FutureCoroutineTests, ALoopOverSettledFuturesDoesNotGrowTheStack) {
  const Future<int> one;
  one.markCompletion(1);
  EXPECT_EQ(sums(one, 100000).get(), 100000);
}

struct Note {
  explicit Note(std::function<void()> note) : onEnd(std::move(note)) {}
  Note(const Note&) = delete;
  Note& operator=(const Note&) = delete;
  ~Note() { onEnd(); }
  std::function<void()> onEnd;
};

Future<int> notesItsEnd(Future<int> source, std::function<void()> onEnd) {
  const Note note(std::move(onEnd));
  co_return co_await source;
}

TEST(FutureCoroutineTests, ItsVariablesAreGoneWhenItsFutureIsSettled) {
  const Future<int> source;
  std::optional<Future<int>> result;
  std::optional<bool> pendingAtEnd;
  result = notesItsEnd(source, [&] { pendingAtEnd = result->isPending(); });
  source.markCompletion(1);
  EXPECT_EQ(result->get(), 1);
  EXPECT_EQ(pendingAtEnd, true);
}

TEST(FutureCoroutineTests, ItGoesOnWithoutAnybodyWhoHoldsItsFuture) {
  const Future<int> source;
  const test::Waiter ended;
  notesItsEnd(source, ended.callback());
  source.markCompletion(1);
  EXPECT_TRUE(ended.waitFor());
}

TEST(FutureCoroutineTests, CancellingItCancelsWhatItAwaits) {
  const Future<int> source;
  int calls = 0;
  source.onCancel([&] {
    ++calls;
    source.markFailure(std::runtime_error("stopped"));
  });
  const auto outer = doubled(doubled(source));
  outer.cancel();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(errorOf(outer), "stopped");
}

Future<int> stubborn(Future<void> gate, Future<int> next) {
  try {
    co_await gate;
  } catch (const FutureError&) {
    // goes on all the same
  }
  co_return co_await next;
}

TEST(FutureCoroutineTests, OnceCancelledEveryFurtherAwaitIsCancelled) {
  const Future<int> next;
  const auto result = stubborn(Future<void>(), next);
  result.cancel();
  EXPECT_EQ(errorOf(result), cancelledText);
  EXPECT_TRUE(next.isFailed());
}

TEST(FutureCoroutineTests, AFutureThatIsBrokenThrowsWhereItIsAwaited) {
  std::optional<Promise<int>> promise(std::in_place);
  const auto result = doubled(promise->future());
  promise.reset();
  EXPECT_EQ(errorOf(result), FutureError::broken().message());
}

// A coroutine type of an application's own, which destroys its frame when it goes.
class Owned {
 public:
  struct promise_type {
    Owned get_return_object() {
      return Owned(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    std::suspend_always final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const { throw; }
  };

  explicit Owned(std::coroutine_handle<> handle) : handle_(handle) {}
  Owned(Owned&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Owned& operator=(Owned&&) = delete;
  ~Owned() {
    if (handle_) handle_.destroy();
  }

 private:
  std::coroutine_handle<> handle_;
};

Owned counts(Future<int> future, DispatchQueue queue, int& resumed, std::shared_ptr<int> held) {
  resumed += co_await future.on(queue) + *held;
}

TEST(FutureCoroutineTests, DestroyedWhileSuspendedACoroutineCancelsAndIsNotResumed) {
  const DispatchQueue queue("test.coroutine");
  const Future<int> future;
  const test::Waiter cancelled;
  future.onCancel(cancelled.callback());
  int resumed = 0;
  { const auto owned = counts(future, queue, resumed, std::make_shared<int>(0)); }
  EXPECT_EQ(cancelled.count(), 1u);
  future.markCompletion(1);
  queue.sync([] {});
  EXPECT_EQ(resumed, 0);
}

TEST(FutureCoroutineTests, OnceResumedItsEndCancelsNothing) {
  const DispatchQueue queue("test.coroutine");
  const Future<int> future;
  int resumed = 0;
  const auto owned = counts(future, queue, resumed, std::make_shared<int>(0));
  future.markCompletion(1);
  queue.sync([] {});
  EXPECT_EQ(resumed, 1);
  EXPECT_EQ(future.get(), 1);
}

TEST(FutureCoroutineTests, SettlingWhileACoroutineIsDestroyedResumesItAtMostOnce) {
  const DispatchQueue queue("test.coroutine");
  int resumed = 0;
  for (int round = 0; round < 300; ++round) {
    const Future<int> future;
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = held;
    std::optional<Owned> owned(counts(future, queue, resumed, std::move(held)));
    std::thread settles([&] { future.markCompletion(1); });
    queue.sync([&] { owned.reset(); });
    settles.join();
    queue.sync([] {});
    EXPECT_TRUE(watched.expired());
    EXPECT_FALSE(future.isPending());
  }
  EXPECT_LE(resumed, 300);
}

TEST(FutureCoroutineTests, CancellingWhileItsFuturesAreSettledEndsTheCoroutine) {
  for (int round = 0; round < 300; ++round) {
    const Future<void> gate;
    const Future<int> next;
    const auto result = stubborn(gate, next);
    std::thread settles([&] {
      gate.markCompletion();
      next.markCompletion(1);
    });
    std::thread cancels([&] { result.cancel(); });
    const auto outcome = errorOf(result);
    EXPECT_TRUE(outcome == "no error" || outcome == cancelledText) << outcome;
    settles.join();
    cancels.join();
  }
}

}  // namespace
}  // namespace tarn
