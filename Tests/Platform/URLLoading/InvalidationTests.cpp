#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/Eventually.hpp>
#include <Support/Ports.hpp>
#include <Support/Rounds.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace tarn::test {
namespace {

constexpr int runs = rounds(100);

/// Servers on which a task comes to a stop in a state of one's choice.
class InvalidationTests : public testing::Test {
 protected:
  InvalidationTests() : secure_(secureOptions()) {
    secure_.onConnect(Script().stall());
    plain_.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "hello"); });
    plain_.route("/stall", Script().stall().respond(200, {}, "hello"));
    plain_.route("/endless", Script().head(200).repeatForever("endless "));
    plain_.route("/part", Script().head(200, {{"Content-Length", "100"}}).send("part").stall());
    plain_.route("/redirect", Script().respond(302, {{"Location", "/stall"}}));
  }

  void SetUp() override {
    // What is made once in a process is there before anything is counted.
    RecordedSession session;
    EXPECT_EQ(session.load(plain_.url("/")).code(), 0);
    session.end();
    ASSERT_TRUE(plain_.waitForOpenConnections(0));
    const DispatchSemaphore timerFired(0);
    DispatchQueue::global().asyncAfter(TimeInterval(0.001), [timerFired] { timerFired.signal(); });
    timerFired.wait();
    descriptors_ = openFileDescriptorCount();
    threads_ = threadCount();
  }

  /// No connection, descriptor or thread is left, on either side.
  void expectNothingLeft() {
    EXPECT_TRUE(plain_.waitForOpenConnections(0));
    EXPECT_TRUE(secure_.waitForOpenConnections(0));
    EXPECT_TRUE(eventually([&] { return openFileDescriptorCount() <= descriptors_; }))
        << openFileDescriptorCount() << " descriptors instead of " << descriptors_;
    // Of the shared threads, two stay for the next work.
    EXPECT_TRUE(eventually([&] { return threadCount() <= threads_ + 2; }))
        << threadCount() << " threads instead of " << threads_;
  }

  ScriptedServer plain_;
  ScriptedServer secure_;
  UnansweredPort unanswered_;
  std::size_t descriptors_ = 0;
  std::size_t threads_ = 0;
  std::mt19937 random_{2026};

 private:
  static TLSOptions secureOptions() {
    const auto files = trustedAuthority().issue();
    TLSOptions options;
    options.certFile = files.certFile;
    options.keyFile = files.keyFile;
    return options;
  }
};

TEST_F(InvalidationTests, EveryTaskIsCancelledOnceInWhateverStateItIs) {
  const std::array<std::string, 6> addresses{
      plain_.url("/stall"),  // past the sixth: waiting for a connection
      plain_.url("/endless"),         plain_.url("/part"), plain_.url("/redirect"),
      secure_.localhostUrl("/hello"),  // in the handshake
      unanswered_.url("/"),            // connecting
  };
  for (int run = 0; run < runs; ++run) {
    SCOPED_TRACE(run);
    RecordedSession session;
    std::vector<RecordingDelegate::RedirectAnswer> open;  // questions without an answer
    std::mutex openMutex;
    session.delegate().onRedirect = [&](URLSessionTask&, const URLRequest&, const auto& answer) {
      const std::lock_guard lock(openMutex);
      open.push_back(answer);
    };
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (int i = 0; i < 16; ++i) {
      tasks.push_back(session.start(addresses[random_() % addresses.size()]));
      if (random_() % 4 == 0) tasks.back()->suspend();
    }
    tasks.push_back(session->dataTask(RecordedSession::request(addresses[0])));  // never started
    // At any moment between the first step and the standstill.
    for (auto turns = random_() % 2000; turns > 0; --turns) std::this_thread::yield();
    if (run % 2 == 0) {
      session->invalidateAndCancel();
    } else {
      std::jthread other([&] { session->invalidateAndCancel(); });
      session->invalidateAndCancel();
    }
    ASSERT_TRUE(session.delegate().waitForInvalid());
    for (const auto& task : tasks) {
      const auto record = session.delegate().record(task->taskIdentifier());
      EXPECT_EQ(record.code(), URLError::cancelled);
      EXPECT_EQ(record.completions, 1);
      EXPECT_EQ(record.misplacedEvents, 0);
      EXPECT_EQ(task->state(), URLSessionTask::State::completed);
    }
    EXPECT_EQ(session.delegate().invalidations(), 1);
    for (const auto& answer : open) answer(std::nullopt);  // too late to have an effect
    session.end();
  }
  expectNothingLeft();
}

TEST_F(InvalidationTests, EveryTaskFinishesBeforeTheSessionEnds) {
  for (int run = 0; run < runs; ++run) {
    SCOPED_TRACE(run);
    RecordedSession session;
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    const auto count = 1 + random_() % 16;
    for (std::size_t i = 0; i < count; ++i) tasks.push_back(session.start(plain_.url("/")));
    for (auto turns = random_() % 500; turns > 0; --turns) std::this_thread::yield();
    session->finishTasksAndInvalidate();
    ASSERT_TRUE(session.delegate().waitForInvalid());
    for (const auto& task : tasks) {
      const auto record = session.delegate().record(task->taskIdentifier());
      EXPECT_EQ(record.code(), 0);
      EXPECT_EQ(record.completions, 1);
      EXPECT_EQ(record.misplacedEvents, 0);
    }
    session.end();
  }
  expectNothingLeft();
}

TEST_F(InvalidationTests, TasksOutliveTheLastHandleOfTheirSession) {
  for (int run = 0; run < runs; ++run) {
    SCOPED_TRACE(run);
    auto delegate = std::make_shared<RecordingDelegate>();
    const std::weak_ptr<RecordingDelegate> watched = delegate;
    auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
    const std::weak_ptr<URLSession> watchedSession = session;
    const auto count = 1 + random_() % 8;
    for (std::size_t i = 0; i < count; ++i) {
      session->dataTask(RecordedSession::request(plain_.url("/")))->resume();
    }
    session.reset();
    ASSERT_TRUE(delegate->waitForCompletions(count));
    for (std::size_t i = 1; i <= count; ++i) {
      EXPECT_EQ(delegate->record(static_cast<std::int64_t>(i)).code(), 0);
    }
    EXPECT_EQ(delegate->invalidations(), 0);  // there is nobody left to be told
    delegate.reset();
    EXPECT_TRUE(eventually([&] { return watched.expired() && watchedSession.expired(); }));
  }
  expectNothingLeft();
}

TEST_F(InvalidationTests, EverythingIsReleasedWithinAnEvent) {
  struct Owner {
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<URLSession> session =
        URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
  };
  for (int run = 0; run < runs; ++run) {
    SCOPED_TRACE(run);
    auto owner = std::make_shared<Owner>();
    const std::weak_ptr<RecordingDelegate> watched = owner->delegate;
    const std::weak_ptr<URLSession> watchedSession = owner->session;
    std::mutex mutex;
    const auto release = [&](URLSessionTask&) {
      std::shared_ptr<Owner> last;
      const std::lock_guard lock(mutex);
      last.swap(owner);
      if (last && run % 2 == 0) last->session->invalidateAndCancel();
    };
    if (run % 3 == 0) {
      owner->delegate->onData = [&](URLSessionTask& task, const Data&) { release(task); };
    } else {
      owner->delegate->onComplete = release;
    }
    for (int i = 0; i < 4; ++i) {
      owner->tasks.push_back(owner->session->dataTask(RecordedSession::request(plain_.url("/"))));
    }
    const auto tasks = owner->tasks;
    for (const auto& task : tasks) task->resume();
    EXPECT_TRUE(eventually([&] { return watched.expired() && watchedSession.expired(); }));
    for (const auto& task : tasks) EXPECT_EQ(task->state(), URLSessionTask::State::completed);
  }
  expectNothingLeft();
}

}  // namespace
}  // namespace tarn::test
