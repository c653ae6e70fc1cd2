#include <Platform/Dispatch/DispatchTimer.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/Trust/Certificates.hpp>
#include <Platform/Trust/SecTrust.hpp>
#include <Platform/Types/URLError.hpp>
#include <Support/DebugTrust.hpp>
#include <Support/NginxServer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <random>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#if defined(TARN_THREAD_SANITIZER)
#define TARN_SKIP_FORK() \
  GTEST_SKIP() << "The thread sanitizer cannot start threads after a fork of several"
#elif defined(TARN_ADDRESS_SANITIZER)
// Seen in one of a few hundred children: stuck in the allocator's lock, which a thread held that is
// not there.
#define TARN_SKIP_FORK() \
  GTEST_SKIP()           \
      << "The address sanitizer does not release its allocator's locks in the child of a fork"
#else
#define TARN_SKIP_FORK() static_cast<void>(0)
#endif

namespace tarn::test {
namespace {

using namespace std::chrono_literals;

constexpr unsigned childPatience = 30;  // seconds; a child that hangs is ended by the system

/// Runs `check` in a child of fork() and answers what it found wrong: nothing, if all is well.
std::string inChild(const std::function<std::string()>& check) {
  std::array<int, 2> pipe{};
  if (::pipe(pipe.data()) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    alarm(childPatience);
    std::string wrong;
    try {
      wrong = check();
    } catch (const std::exception& error) {
      wrong = error.what();
    }
    static_cast<void>(::write(pipe[1], wrong.data(), wrong.size()));
    _exit(0);
  }
  ::close(pipe[1]);
  std::string wrong;
  std::array<char, 256> buffer;
  for (ssize_t count = 0; (count = ::read(pipe[0], buffer.data(), buffer.size())) > 0;) {
    wrong.append(buffer.data(), static_cast<std::size_t>(count));
  }
  ::close(pipe[0]);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return "no child";
  if (status != 0) wrong += " (the child ended with " + std::to_string(status) + ")";
  return wrong;
}

/// Counts what becomes of the callable that holds it.
struct Probe {
  static inline std::atomic<int> destroyed = 0;
  ~Probe() { ++destroyed; }
};

/// Takes the lines of the log without a lock of its own.
class CountingSink final : public LogSink {
 public:
  void write(const LogEntry&) override { ++lines; }
  std::atomic<int> lines = 0;
};

/// The queues that the parent has filled before it forks.
struct Queues {
  DispatchQueue serial{"test.serial"};
  DispatchQueue concurrent{"test.concurrent", QualityOfService::unspecified,
                           DispatchQueue::Attribute::concurrent};
  OperationQueue operations{"test.operations"};
  DispatchGroup group;
  DispatchSemaphore semaphore{0};
  DispatchTimer timer{serial};

  Queues() { timer.resume(); }
};

constexpr TimeInterval limit{20};

std::string useQueues(Queues& queues) {
  const DispatchSemaphore done(0);
  const auto ran = [done] { done.signal(); };
  const auto passes = [&] { return done.wait(limit); };
  queues.serial.async(ran);
  if (!passes()) return "serial queue";
  if (queues.serial.sync([] { return 7; }) != 7) return "sync";
  queues.concurrent.async(ran);
  if (!passes()) return "concurrent queue";
  queues.concurrent.async([&] { queues.serial.async(ran); });
  if (!passes()) return "hop";
  queues.operations.addOperation(ran);
  if (!passes()) return "operation queue";
  queues.operations.waitUntilAllOperationsAreFinished();
  DispatchQueue::global().asyncAfter(TimeInterval(0.001), ran);
  if (!passes()) return "asyncAfter";
  queues.timer.setEventHandler(ran);
  queues.timer.schedule(DispatchTime::now() + TimeInterval(0.001));
  if (!passes()) return "timer";
  DispatchQueue::global().async(queues.group, ran);
  if (!queues.group.wait(limit) || !passes()) return "group";
  queues.group.notify(queues.serial, ran);
  if (!passes()) return "notify";
  DispatchQueue::global().async([&] { queues.semaphore.signal(); });
  if (!queues.semaphore.wait(limit)) return "semaphore";
  // Workers that wait for each other are made up for here too.
  DispatchSemaphore all(0);
  for (int i = 0; i < 5; ++i) DispatchQueue::global().async([all] { all.wait(limit); });
  DispatchQueue::global().async([all] {
    for (int i = 0; i < 5; ++i) all.signal();
  });
  DispatchQueue::global().async(ran);
  return passes() ? "" : "blocked workers";
}

std::string send(const std::string& url) {
  const DispatchSemaphore done(0);
  auto failure = std::make_shared<std::optional<Error>>();
  const DataGetRequest request{URL(url)};
  request.send(std::nullopt, [done, failure](const DataResponse& response) {
    *failure = response.result.error();
    done.signal();
  });
  if (!done.wait(limit)) return "a request is not answered";
  return *failure ? "a request fails: " + (*failure)->message() : "";
}

std::string download(const std::string& url) {
  const DispatchSemaphore done(0);
  auto path = std::make_shared<std::string>();
  const DownloadRequest request{URL(url)};
  request.send(std::nullopt, [done, path](const DownloadResponse<File>& response) {
    if (const auto& file = response.result.body()) *path = file->fileURL().path();
    done.signal();
  });
  if (!done.wait(limit)) return "a download is not answered";
  if (path->empty() || readFile(*path) != "ok") return "a download fails";
  ::unlink(path->c_str());
  ::rmdir(path->substr(0, path->rfind('/')).c_str());  // the download's own
  return "";
}

std::string sendEverything(ScriptedServer& server) {
  if (auto wrong = send(server.url("/child")); !wrong.empty()) return wrong;
  // A new session numbers its tasks afresh, and the registries begin empty.
  if (!taskDictionary()["1-TarnService.DataTaskProducer"])
    return "the first task has another number";
  if (taskDictionary().count() != 1) return "the registry holds tasks of the parent";
  if (taskManager().pendingCount() != 0) return "the parent's requests are still to be cancelled";
  return download(server.url("/child"));
}

/// Ten bytes, of which the first half comes at once and the rest to who asks for it.
Script fileAnswer(bool asksForRest) {
  Script script;
  const std::pair<std::string, std::string> tag{"ETag", "\"t\""};
  if (!asksForRest) return script.head(200, {{"Content-Length", "10"}, tag}).send("01234").stall();
  return script.respond(206, {{"Content-Range", "bytes 5-9/10"}, tag}, "56789");
}

/// Forks in one event of a download, and lets the child go back into the library.
struct ForkingDelegate final : URLSessionDelegate {
  ForkingDelegate(const char* event, int report) : event(event), report(report) {}

  void didWriteData(URLSession&, URLSessionDownloadTask&, std::int64_t, std::int64_t,
                    std::int64_t) override {
    hear("didWriteData");
    written.signal();
  }
  void didResume(URLSession&, URLSessionDownloadTask&, std::int64_t, std::int64_t) override {
    hear("didResume");
  }
  void didFinishDownloading(URLSession&, URLSessionDownloadTask&, const URL& location) override {
    std::ifstream(location.path()) >> content;
    hear("didFinishDownloading");
  }
  void didComplete(URLSession&, URLSessionTask&, const std::optional<Error>&) override {
    hear("didComplete");
    done.signal();
  }

  void hear(std::string_view told) {
    if (child == 0) {
      static_cast<void>(::write(report, told.data(), told.size()));
    } else if (isArmed && told == event) {
      child = ::fork();
      if (child != 0) return;
      alarm(childPatience);
      // The worker gets to it once it has done with this event and all that follows.
      DispatchQueue::global().async([] { _exit(0); });
    }
  }

  const std::string_view event;
  const int report;
  std::atomic<bool> isArmed = false;
  std::atomic<pid_t> child = -1;
  std::string content;
  DispatchSemaphore written{0};
  DispatchSemaphore done{0};
};

/// A program at work: full queues, armed timers, requests in every state.
class ForkTests : public testing::Test {
 protected:
  void SetUp() override {
    server_.setHandler([](const ReceivedRequest& request) {
      Script script;
      if (request.target == "/stall") script.stall();
      if (request.target == "/file") return fileAnswer(request.header("Range").has_value());
      return script.respond(200, {}, "ok");
    });
    // The tests' own log recorder has a lock, which a child may find held.
    Logger::setDefaultSink(nullptr);
    Logger::install(sink_);
  }
  void TearDown() override {
    server_.releaseStalls(0);
    Logger::remove(sink_);
    Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
  }

  void fill(Queues& queues) {
    const auto work = [this] { return [this, probe = std::make_shared<Probe>()] { ++ran_; }; };
    for (int i = 0; i < 20; ++i) {
      queues.serial.async(work());
      queues.concurrent.async(work());
      queues.operations.addOperation(work());
      DispatchQueue::global().asyncAfter(TimeInterval(0.0005 * i), work());
      DispatchQueue::main().async(work());
    }
    queues.timer.setEventHandler([this] { ++ran_; });
    queues.timer.schedule(DispatchTime::now(), TimeInterval(0.001));
  }

  /// Sends `count` requests, some of which stall.
  void sendMany(int count) {
    for (int i = 0; i < count; ++i) {
      ++sent_;
      const DataGetRequest request{
          URL(server_.url(i % 4 == 3 ? "/stall" : "/" + std::to_string(i)))};
      request.send(std::nullopt, [this](const DataResponse& response) {
        if (!response.result.error()) ++succeeded_;
        answered_.signal();
      });
    }
  }
  /// Every request of the parent comes to its end, as if nothing had happened.
  void expectAllAnswered() {
    for (int i = 0; i < sent_; ++i) {
      while (!answered_.wait(TimeInterval(0.05))) {
        ASSERT_LT(++waits_, 400) << "a request of the parent is not answered";
        server_.releaseStalls(0);
      }
    }
    EXPECT_EQ(succeeded_, sent_);
  }

  /// In a child: everything works, and nothing of the parent runs or is let go.
  std::string useEverything(Queues& queues) {
    const int ran = ran_;
    const int answered = succeeded_;
    const int destroyed = Probe::destroyed;
    const int lines = sink_->lines;
    if (auto wrong = useQueues(queues); !wrong.empty()) return wrong;
    if (auto wrong = sendEverything(server_); !wrong.empty()) return wrong;
    Logger("test").error("a line");
    if (sink_->lines == lines) return "the log is silent";
    // Later than whatever the parent left could have run.
    queues.serial.sync([] {});
    if (ran_ != ran) return "work of the parent runs in the child";
    if (succeeded_ != answered) return "a request of the parent is answered in the child";
    if (Probe::destroyed != destroyed) return "work of the parent is destroyed in the child";
    return "";
  }

  ScriptedServer server_{false};
  std::shared_ptr<CountingSink> sink_ = std::make_shared<CountingSink>();
  std::atomic<int> ran_ = 0;
  std::atomic<int> succeeded_ = 0;
  int sent_ = 0;
  int waits_ = 0;
  DispatchSemaphore answered_{0};
};

TEST_F(ForkTests, AChildOfABusyProgramWorksAtAnyMoment) {
  TARN_SKIP_FORK();
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    Queues queues;
    fill(queues);
    sendMany(4);
    ASSERT_EQ(inChild([&] { return useEverything(queues); }), "");
    queues.timer.cancel();
    queues.operations.waitUntilAllOperationsAreFinished();
    queues.serial.sync([] {});
    MainQueue::drain();
  }
  expectAllAnswered();
}

/// Where in the library a thread may be as it forks.
struct Place {
  const char* name;
  std::function<void(Queues&, const std::function<void()>& fork)> enter;
};

const Place places[] = {
    {"an item of a serial queue", [](Queues& q, const auto& fork) { q.serial.async(fork); }},
    {"an item of a concurrent queue",
     [](Queues& q, const auto& fork) { q.concurrent.async(fork); }},
    {"an item of a global queue",
     [](Queues&, const auto& fork) { DispatchQueue::global().async(fork); }},
    {"an item of a group", [](Queues& q, const auto& fork) { q.serial.async(q.group, fork); }},
    {"sync on a serial queue", [](Queues& q, const auto& fork) { q.serial.sync(fork); }},
    {"sync on a concurrent queue", [](Queues& q, const auto& fork) { q.concurrent.sync(fork); }},
    {"sync within sync",
     [](Queues& q, const auto& fork) { q.concurrent.async([&q, fork] { q.serial.sync(fork); }); }},
    {"an operation", [](Queues& q, const auto& fork) { q.operations.addOperation(fork); }},
    {"an item of the main queue",
     [](Queues&, const auto& fork) {
       DispatchQueue::main().async(fork);
       MainQueue::drain();
     }},
    {"a timer's handler",
     [](Queues& q, const auto& fork) {
       q.timer.setEventHandler(fork);
       q.timer.schedule(DispatchTime::now());
     }},
};

/// Used in the child by the thread that forked, which is inside of one of them, and by others.
std::string useOwned(Queues& queues) {
  // What the thread is inside of stays its own until it leaves.
  auto ranEarly = std::make_shared<std::atomic<bool>>(false);
  const bool owned = queues.serial.isCurrent();
  if (owned) queues.serial.async([ranEarly] { *ranEarly = true; });
  const DispatchSemaphore done(0);
  DispatchQueue::global().async([done] { done.signal(); });
  if (!done.wait(limit)) return "global queue";
  if (*ranEarly) return "a serial queue runs two items at once";
  queues.concurrent.async([done] { done.signal(); });
  return done.wait(limit) ? "" : "concurrent queue";
}

TEST_F(ForkTests, AThreadForksInsideOfAnyQueueAndLeavesItInTheChildToo) {
  TARN_SKIP_FORK();
  for (const Place& place : places) {
    for (int round = 0; round < 10; ++round) {
      SCOPED_TRACE(std::string(place.name) + ", round " + std::to_string(round));
      std::array<int, 2> pipe{};
      ASSERT_EQ(::pipe(pipe.data()), 0);
      const pid_t parent = ::getpid();
      auto queues = std::make_shared<Queues>();
      for (int i = 0; i < 3; ++i) queues->serial.async([] {});
      const DispatchSemaphore left(0);
      pid_t child = 0;
      place.enter(*queues, [&] {
        child = ::fork();
        if (child != 0) return left.signal();
        alarm(childPatience);
        // Checked inside of the queue, and again on another thread after this one has left it.
        const std::string wrong = useOwned(*queues);
        std::thread([queues, wrong, end = pipe[1]] {
          const std::string report = wrong.empty() ? useQueues(*queues) : wrong;
          static_cast<void>(::write(end, report.data(), report.size()));
          _exit(0);
        }).detach();
      });
      // In the child of a thread that came here by itself there is nothing more to do.
      while (::getpid() != parent) ::pause();
      ::close(pipe[1]);
      ASSERT_TRUE(left.wait(limit));
      std::array<char, 256> buffer;
      const auto count = ::read(pipe[0], buffer.data(), buffer.size());
      ::close(pipe[0]);
      int status = -1;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      EXPECT_EQ(status, 0);
      EXPECT_EQ(std::string(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0), "");
      // Nor has the parent's own side noticed anything.
      queues->timer.cancel();
      queues->serial.sync([] {});
      queues->operations.waitUntilAllOperationsAreFinished();
    }
  }
}

TEST_F(ForkTests, ManyThreadsForkAtOnceWhileOthersSend) {
  TARN_SKIP_FORK();
  std::vector<std::thread> threads;
  std::array<std::string, 4> wrong;
  for (auto& text : wrong) {
    threads.emplace_back([this, &text] {
      for (int round = 0; round < 25 && text.empty(); ++round) {
        text = inChild([&] { return send(server_.url("/child")); });
      }
    });
  }
  for (int i = 0; i < 50; ++i) sendMany(2);
  for (auto& thread : threads) thread.join();
  for (const auto& text : wrong) EXPECT_EQ(text, "");
  expectAllAnswered();
}

/// Evaluates as an application does that keeps to anchors of its own beside the system's.
std::string judge(const std::vector<SecCertificate>& chain, const SecCertificate& anchor) {
  const auto copy = SecCertificate::createWithData(chain.front().data());
  if (!copy || *copy != chain.front()) return "a certificate is not the same when it is read again";
  const auto trust = SecTrust::create({*copy}, "localhost");
  if (trust->evaluate() != SecTrustResultType::recoverableTrustFailure) return "a stranger passes";
  if (!trust->setAnchorCertificates({anchor})) return "no anchors";
  return trust->evaluate() == SecTrustResultType::unspecified ? "" : "a chain is not trusted";
}

TEST_F(ForkTests, OtherThreadsJudgeCertificatesMeanwhile) {
  TARN_SKIP_FORK();
  TestAuthority authority;
  const auto files = authority.issue(LeafOptions::unknownRoot());
  TLSOptions tls;
  tls.certFile = files.certFile;
  tls.keyFile = files.keyFile;
  ScriptedServer secure(tls);
  secure.route("/", Script().respond(200, {}, "ok"));
  const auto chain = certificatesOf(files.certFile);
  const auto anchor = certificatesOf(authority.unknownCaFile()).front();
  const DebugTrust trust(authority.unknownCaFile());

  std::atomic<bool> over = false;
  std::array<std::string, 4> wrong;
  std::vector<std::thread> threads;
  for (auto& text : wrong) {
    threads.emplace_back([&] {
      // For the most part in what OpenSSL shares between threads.
      const auto stranger = SecTrust::create(chain, "localhost");
      while (!over && text.empty()) {
        for (int i = 0; i < 20; ++i) stranger->evaluate();
        text = judge(chain, anchor);
      }
    });
  }
  std::string inChildren;
  for (int round = 0; round < 60 && inChildren.empty(); ++round) {
    inChildren = inChild([&] {
      if (auto fault = judge(chain, anchor); !fault.empty()) return fault;
      return round % 4 == 0 ? send(secure.localhostUrl("/")) : std::string();
    });
  }
  over = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(inChildren, "");
  for (const auto& text : wrong) EXPECT_EQ(text, "");
}

TEST_F(ForkTests, TheCompletionOfARequestForks) {
  TARN_SKIP_FORK();
  for (int round = 0; round < 20; ++round) {
    const DispatchSemaphore done(0);
    std::string wrong = "not run";
    const DataGetRequest request{URL(server_.url("/"))};
    request.send(std::nullopt, [&](const DataResponse&) {
      wrong = inChild([&] { return sendEverything(server_); });
      done.signal();
    });
    ASSERT_TRUE(done.wait(limit));
    ASSERT_EQ(wrong, "");
  }
}

TEST_F(ForkTests, TheRestOfADownloadIsTheParents) {
  TARN_SKIP_FORK();
  for (const char* event : {"didResume", "didWriteData", "didFinishDownloading"}) {
    SCOPED_TRACE(event);
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const auto delegate = std::make_shared<ForkingDelegate>(event, pipe[1]);
    const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
    const auto first = session->downloadTask(URLRequest(URL(server_.url("/file"))));
    first->resume();
    ASSERT_TRUE(delegate->written.wait(limit));
    std::optional<Data> resumeData;
    first->cancel([&](std::optional<Data> data) { resumeData = std::move(data); });
    ASSERT_TRUE(delegate->done.wait(limit));
    ASSERT_TRUE(resumeData.has_value());
    delegate->isArmed = true;
    session->downloadTask(*resumeData)->resume();
    ASSERT_TRUE(delegate->done.wait(limit));
    EXPECT_EQ(delegate->content, "0123456789");
    session->finishTasksAndInvalidate();
    ::close(pipe[1]);
    std::array<char, 256> heard;
    const auto count = ::read(pipe[0], heard.data(), heard.size());
    ::close(pipe[0]);
    EXPECT_EQ(std::string(heard.data(), count > 0 ? static_cast<std::size_t>(count) : 0), "");
    int status = -1;
    ASSERT_EQ(::waitpid(delegate->child, &status, 0), delegate->child);
    EXPECT_EQ(status, 0);
  }
}

TEST_F(ForkTests, AnItemAddedInTheFirstTurnOfAChildWaitsForItsEnd) {
  TARN_SKIP_FORK();
  const DispatchQueue queue("test.turns");
  EXPECT_EQ(inChild([&]() -> std::string {
              const DispatchSemaphore ran(0);
              const bool isEarly = queue.sync([&] {
                queue.async([ran] { ran.signal(); });
                return ran.wait(TimeInterval(0.2));
              });
              if (isEarly) return "it runs beside the turn";
              return ran.wait(limit) ? "" : "it does not run";
            }),
            "");
}

TEST_F(ForkTests, AChildForksInItsTurn) {
  TARN_SKIP_FORK();
  sendMany(4);
  EXPECT_EQ(inChild([&] {
              if (auto inner = send(server_.url("/child")); !inner.empty()) return inner;
              return inChild([&] { return sendEverything(server_); });
            }),
            "");
  expectAllAnswered();
}

TEST_F(ForkTests, TheParentsConnectionsStayItsOwn) {
  TARN_SKIP_FORK();
  ASSERT_EQ(send(server_.url("/")), "");
  const auto connections = server_.connectionCount();
  // The child ends without a word on the connection: the parent goes on using it.
  ASSERT_EQ(inChild([] { return std::string(); }), "");
  EXPECT_EQ(server_.openConnections(), connections);
  ASSERT_EQ(send(server_.url("/")), "");
  EXPECT_EQ(server_.connectionCount(), connections);
  // A child that lives on neither keeps it open nor says that it ends.
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    alarm(childPatience);
    ::close(pipe[1]);
    char byte = 0;
    _exit(::read(pipe[0], &byte, 1) == 0 ? 0 : 1);  // until the parent lets go
  }
  ASSERT_EQ(send(server_.url("/")), "");
  EXPECT_EQ(server_.connectionCount(), connections);
  resetDefaultTaskProducers();
  EXPECT_TRUE(server_.waitForOpenConnections(0));
  ::close(pipe[1]);
  ::close(pipe[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

/// How many descriptors of this process are connected to the port.
int connectionsTo(std::uint16_t port) {
  int count = 0;
  for (int descriptor = 3; descriptor < 1024; ++descriptor) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    sockaddr_in address{};
    std::memcpy(&address, &peer, sizeof address);  // the port is where IPv6 has it too
    const bool isInternet = peer.ss_family == AF_INET || peer.ss_family == AF_INET6;
    if (isInternet && ntohs(address.sin_port) == port) ++count;
  }
  return count;
}

TEST_F(ForkTests, TheParentsSharedConnectionsAreNotTheChildsEither) {
  TARN_SKIP_FORK();
  TestAuthority authority;
  const NginxServer nginx(authority, 8 << 20);
  const DebugTrust trust(authority.caFile());
  // The one that opens the connection is through with it before the other.
  const DispatchSemaphore done(0);
  for (const char* path : {"/hello", "/big"}) {
    const DataGetRequest request{URL(nginx.secureUrl(path))};
    request.send(std::nullopt, [done](const DataResponse& response) {
      EXPECT_FALSE(response.result.error());
      done.signal();
    });
  }
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(done.wait(limit));
  EXPECT_EQ(connectionsTo(nginx.httpsPort()), 1);
  EXPECT_EQ(inChild([&] { return connectionsTo(nginx.httpsPort()) == 0 ? "" : "still open"; }), "");
  EXPECT_EQ(connectionsTo(nginx.httpsPort()), 1);
}

TEST_F(ForkTests, ASessionOfTheParentIsDeadInTheChild) {
  TARN_SKIP_FORK();
  struct Delegate : URLSessionDelegate {
    void didComplete(URLSession&, URLSessionTask&, const std::optional<Error>& error) override {
      code = error ? error->code() : 0;
      done.signal();
    }
    std::atomic<std::int64_t> code = 0;
    DispatchSemaphore done{0};
  };
  const auto delegate = std::make_shared<Delegate>();
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral(), delegate);
  const URLRequest request(URL(server_.url("/stall")));
  const auto running = session->dataTask(request);
  running->resume();
  ASSERT_TRUE(server_.waitForStalls(1));
  const auto suspended = session->dataTask(request);
  EXPECT_EQ(inChild([&]() -> std::string {
              for (const auto& task : {suspended, session->dataTask(request)}) {
                task->resume();
                if (!delegate->done.wait(limit)) return "a task hangs";
                if (delegate->code != URLError::cancelled) return "a task fails with another error";
                if (task->state() != URLSessionTask::State::completed) return "a task is not over";
              }
              // One that was under way ends in the parent, and there only.
              running->cancel();
              session->invalidateAndCancel();
              if (delegate->done.wait(TimeInterval(0.05))) return "a task of the parent ends here";
              return "";
            }),
            "");
  EXPECT_EQ(running->state(), URLSessionTask::State::running);
  server_.releaseStalls();
  ASSERT_TRUE(delegate->done.wait(limit));
  EXPECT_EQ(delegate->code, 0);
  session->invalidateAndCancel();
  ASSERT_TRUE(delegate->done.wait(limit));
}

/// Polled in parent and child; its polls are made, and left out.
struct Polled : DataGetRequestable<Polled>, HTTPPolling<Polled> {
  static constexpr double pollingRate = 0.002;
  static inline DispatchSemaphore made{0};
  URL url = URL::empty();
  static std::optional<Polled> make() {
    made.signal();
    return std::nullopt;
  }
};

TEST_F(ForkTests, AChildPollsWhatTheParentPolls) {
  TARN_SKIP_FORK();
  const auto probe = std::make_shared<Probe>();
  Polled::poll([probe](const auto&, const auto&) {});
  ASSERT_TRUE(Polled::made.wait(limit));
  EXPECT_EQ(inChild([&]() -> std::string {
              const int destroyed = Probe::destroyed;
              const int lines = sink_->lines;
              Polled::stopPolling();
              if (sink_->lines != lines + 1) return "the child polls before it has begun";
              while (Polled::made.wait(TimeInterval(0))) {
              }
              Polled::poll();
              if (!Polled::made.wait(limit)) return "no poll is made in the child";
              Polled::stopPolling();
              if (sink_->lines != lines + 1) return "the child does not know that it polls";
              return Probe::destroyed == destroyed ? "" : "a handler of the parent is destroyed";
            }),
            "");
  while (Polled::made.wait(TimeInterval(0))) {
  }
  EXPECT_TRUE(Polled::made.wait(limit));
  Polled::stopPolling();
}

TEST_F(ForkTests, AFutureTellsTheHandlersOfEachProcess) {
  TARN_SKIP_FORK();
  const Future<int> future;
  DispatchSemaphore told(0);
  future.onCompletion([this, told](int) {
    ++ran_;
    told.signal();
  });
  EXPECT_EQ(inChild([&]() -> std::string {
              const DispatchSemaphore toldHere(0);
              future.onCompletion([toldHere](int) { toldHere.signal(); });
              future.markCompletion(7);
              if (!toldHere.wait(limit)) return "a handler of the child is not called";
              return ran_ == 0 ? "" : "a handler of the parent is called in the child";
            }),
            "");
  future.markCompletion(7);
  EXPECT_TRUE(told.wait(limit));
}

TEST_F(ForkTests, TheMainQueuesDescriptorIsTheChildsOwn) {
  TARN_SKIP_FORK();
  const auto isReadable = [descriptor = MainQueue::fileDescriptor()] {
    pollfd entry{descriptor, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  };
  DispatchQueue::main().async([] {});
  EXPECT_EQ(inChild([&]() -> std::string {
              if (isReadable()) return "readable for the parent's item";
              int ran = 0;
              DispatchQueue::main().async([&] { ++ran; });
              if (!isReadable()) return "not readable";
              return MainQueue::drain() == 1 && ran == 1 && !isReadable() ? "" : "not drained";
            }),
            "");
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(MainQueue::drain(), 1u);
}

TEST_F(ForkTests, AWorkersChildHearsSignals) {
  TARN_SKIP_FORK();
  const DispatchSemaphore done(0);
  std::string wrong;
  DispatchQueue::global().async([&] {
    wrong = inChild([]() -> std::string {
      sigset_t blocked;
      pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
      return sigismember(&blocked, SIGTERM) == 0 ? "" : "SIGTERM is blocked";
    });
    done.signal();
  });
  ASSERT_TRUE(done.wait(limit));
  EXPECT_EQ(wrong, "");
}

TEST_F(ForkTests, OtherProgramsAreStartedMeanwhile) {
  sendMany(40);
  std::string program = "/bin/true";
  std::array<char*, 2> arguments{program.data(), nullptr};
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    pid_t child = 0;
    if (round % 2 == 0) {
      ASSERT_EQ(::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ),
                0);
    } else {
      child = ::fork();
      if (child == 0) {
        ::execv(program.c_str(), arguments.data());
        _exit(127);
      }
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  expectAllAnswered();
}

}  // namespace
}  // namespace tarn::test
