#pragma once
#include <Platform/URLLoading/URLSession.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/TestAuthority.hpp>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {

/// What a delegate was told of one task.
struct TaskRecord {
  Data body;
  int dataEvents = 0;
  std::vector<std::pair<int, std::string>> redirects;  // status, then the address offered
  std::vector<URLAuthenticationChallenge> challenges;  // of the task, not of its connection
  int completions = 0;
  int waits = 0;                                     // as taskIsWaitingForConnectivity was told
  std::vector<std::array<std::int64_t, 3>> writes;   // as didWriteData was told
  std::vector<std::array<std::int64_t, 2>> resumes;  // as didResume was told
  std::vector<std::string> files;                    // locations
  int misplacedEvents = 0;  // after the end, or while another event of the task ran
  bool busy = false;
  std::optional<Error> error;

  /// The code of the failure; 0 for none.
  std::int64_t code() const { return error ? error->code() : 0; }
};

/// A delegate that writes down all it is told, for the test to wait on.
class RecordingDelegate : public URLSessionDelegate {
 public:
  using RedirectAnswer = std::function<void(std::optional<URLRequest>)>;

  // Set before the first task starts; each runs on the delegate queue.
  std::function<void(URLSessionTask&, URLRequest, const RedirectAnswer&)> onRedirect;
  std::function<void(const URLAuthenticationChallenge&, const URLChallengeHandler&)> onChallenge;
  std::function<void(URLSessionTask&, const URLAuthenticationChallenge&,
                     const URLChallengeHandler&)>
      onTaskChallenge;
  std::function<void(URLSessionTask&, const Data&)> onData;
  std::function<void(URLSessionDownloadTask&)> onWrite;
  std::function<void(URLSessionDownloadTask&, const std::string& path)> onFile;
  std::function<void(URLSessionTask&)> onComplete;

  void didBecomeInvalid(URLSession&, const std::optional<Error>&) override {
    const std::lock_guard lock(mutex_);
    ++invalidations_;
    changed_.notify_all();
  }

  void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                           URLChallengeHandler answer) override {
    {
      const std::lock_guard lock(mutex_);
      if (invalidations_ > 0) ++lateChallenges_;
      challenges_.push_back(challenge.protectionSpace);
      changed_.notify_all();
    }
    if (onChallenge) return onChallenge(challenge, answer);
    URLSessionDelegate::didReceiveChallenge(session, challenge, std::move(answer));
  }

  void taskIsWaitingForConnectivity(URLSession&, URLSessionTask& task) override {
    told(task, [](TaskRecord& record) {
      ++record.waits;
      return [] {};
    });
  }

  void willPerformHTTPRedirection(URLSession&, URLSessionTask& task,
                                  const std::shared_ptr<const HTTPURLResponse>& response,
                                  URLRequest newRequest, RedirectAnswer answer) override {
    told(task, [&](TaskRecord& record) {
      record.redirects.emplace_back(response->statusCode(), newRequest.url().absoluteString());
      return [&] {
        if (onRedirect) {
          onRedirect(task, newRequest, answer);
        } else {
          answer(newRequest);
        }
      };
    });
  }

  void didReceiveTaskChallenge(URLSession& session, URLSessionTask& task,
                               const URLAuthenticationChallenge& challenge,
                               URLChallengeHandler answer) override {
    told(task, [&](TaskRecord& record) {
      record.challenges.push_back(challenge);
      return [&] {
        if (onTaskChallenge) {
          onTaskChallenge(task, challenge, answer);
        } else {
          URLSessionDelegate::didReceiveTaskChallenge(session, task, challenge, answer);
        }
      };
    });
  }

  void didReceiveData(URLSession&, URLSessionDataTask& task, Data data) override {
    told(task, [&](TaskRecord& record) {
      ++record.dataEvents;
      record.body.append(data);
      return [&] {
        if (onData) onData(task, data);
      };
    });
  }

  void didWriteData(URLSession&, URLSessionDownloadTask& task, std::int64_t bytes,
                    std::int64_t total, std::int64_t expected) override {
    told(task, [&](TaskRecord& record) {
      if (!record.files.empty()) ++record.misplacedEvents;
      record.writes.push_back({bytes, total, expected});
      return [&] {
        if (onWrite) onWrite(task);
      };
    });
  }

  void didResume(URLSession&, URLSessionDownloadTask& task, std::int64_t offset,
                 std::int64_t expected) override {
    told(task, [&](TaskRecord& record) {
      if (!record.writes.empty()) ++record.misplacedEvents;
      record.resumes.push_back({offset, expected});
      return [] {};
    });
  }

  void didFinishDownloading(URLSession&, URLSessionDownloadTask& task,
                            const URL& location) override {
    told(task, [&](TaskRecord& record) {
      record.files.push_back(location.path());
      return [&] {
        if (onFile) onFile(task, location.path());
      };
    });
  }

  void didComplete(URLSession&, URLSessionTask& task, const std::optional<Error>& error) override {
    told(task, [&](TaskRecord& record) {
      if (error) record.error.emplace(*error);
      return [&] {
        if (onComplete) onComplete(task);
      };
    });
    const std::lock_guard lock(mutex_);
    ++records_[task.taskIdentifier()].completions;
    completionOrder_.push_back(task.taskIdentifier());
    changed_.notify_all();
  }

  /// False when the condition did not come to hold in time. The condition is asked with the
  /// delegate's lock held.
  [[nodiscard]] bool waitUntil(const std::function<bool()>& condition,
                               std::chrono::milliseconds limit = patience) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, condition);
  }
  [[nodiscard]] bool waitForCompletion(std::int64_t task,
                                       std::chrono::milliseconds limit = patience) {
    return waitUntil([&] { return records_[task].completions > 0; }, limit);
  }
  [[nodiscard]] bool waitForCompletions(std::size_t count,
                                        std::chrono::milliseconds limit = patience) {
    return waitUntil([&] { return completionOrder_.size() >= count; }, limit);
  }
  [[nodiscard]] bool waitForBytes(std::int64_t task, std::size_t count) {
    return waitUntil([&] { return records_[task].body.size() >= count; });
  }
  /// Bytes in the file of a download.
  [[nodiscard]] bool waitForWritten(std::int64_t task, std::int64_t count) {
    return waitUntil([&] { return totalWritten(records_[task]) >= count; });
  }
  [[nodiscard]] bool waitForFileOrEnd(std::int64_t task) {
    return waitUntil([&] {
      const auto& record = records_[task];
      return !record.writes.empty() || record.completions > 0;
    });
  }
  [[nodiscard]] bool waitForRedirects(std::int64_t task, std::size_t count) {
    return waitUntil([&] { return records_[task].redirects.size() >= count; });
  }
  /// Of connections.
  [[nodiscard]] bool waitForChallenges(std::size_t count) {
    return waitUntil([&] { return challenges_.size() >= count; });
  }
  [[nodiscard]] bool waitForChallenges(std::int64_t task, std::size_t count) {
    return waitUntil([&] { return records_[task].challenges.size() >= count; });
  }
  [[nodiscard]] bool waitForWait(std::int64_t task) {
    return waitUntil([&] { return records_[task].waits > 0; });
  }
  [[nodiscard]] bool waitForInvalid() {
    return waitUntil([&] { return invalidations_ > 0; });
  }

  TaskRecord record(std::int64_t task) {
    const std::lock_guard lock(mutex_);
    return records_[task];
  }
  std::vector<std::int64_t> completionOrder() {
    const std::lock_guard lock(mutex_);
    return completionOrder_;
  }
  std::vector<URLProtectionSpace> challenges() {
    const std::lock_guard lock(mutex_);
    return challenges_;
  }
  int lateChallenges() {
    const std::lock_guard lock(mutex_);
    return lateChallenges_;
  }
  int invalidations() {
    const std::lock_guard lock(mutex_);
    return invalidations_;
  }

 private:
  static std::int64_t totalWritten(const TaskRecord& record) {
    return record.writes.empty() ? 0 : record.writes.back()[1];
  }

  // Notes the event, then runs the test's part of it without the lock.
  template <class Note>
  void told(const URLSessionTask& task, Note note) {
    std::unique_lock lock(mutex_);
    TaskRecord& record = records_[task.taskIdentifier()];
    if (record.busy || record.completions > 0 || invalidations_ > 0) ++record.misplacedEvents;
    record.busy = true;
    const auto then = note(record);
    changed_.notify_all();
    lock.unlock();
    struct End {
      std::unique_lock<std::mutex>& lock;
      TaskRecord& record;
      ~End() {
        lock.lock();
        record.busy = false;
      }
    } end{lock, record};
    then();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::int64_t, TaskRecord> records_;
  std::vector<std::int64_t> completionOrder_;
  std::vector<URLProtectionSpace> challenges_;
  int lateChallenges_ = 0;  // after the session's end
  int invalidations_ = 0;
};

/// The head of an answer of a task; null where none came.
inline std::shared_ptr<const HTTPURLResponse> httpResponse(const URLSessionTask& task) {
  return std::dynamic_pointer_cast<const HTTPURLResponse>(task.response());
}

/// The one authority that this process trusts: the system's anchors are read once.
inline TestAuthority& trustedAuthority() {
  static TestAuthority* const authority = [] {
    static TestAuthority made;
    setenv("SSL_CERT_FILE", made.caFile().c_str(), 1);
    return &made;
  }();
  return *authority;
}

/// Where many tests share a process, those that trust this authority may come after one that has
/// the anchors read. The child of a death test has its parent's.
inline const bool trustsFromTheStart = std::getenv("GTEST_TOTAL_SHARDS") != nullptr &&
                                       std::getenv("SSL_CERT_FILE") == nullptr &&
                                       (trustedAuthority(), true);

/// What came of one load.
struct Loaded {
  TaskRecord record;
  std::shared_ptr<const HTTPURLResponse> response;  // null where none came
  std::shared_ptr<URLSessionTask> task;

  int status() const { return response ? response->statusCode() : 0; }
  std::string text() const { return std::string(record.body.view()); }
  std::int64_t code() const { return record.code(); }
  std::string header(std::string_view name) const {
    return std::string(response ? response->allHeaderFields().value(name).value_or("") : "");
  }
};

/// A session together with its recording delegate and the tasks that a test started in it.
class RecordedSession {
 public:
  explicit RecordedSession(
      const URLSessionConfiguration& configuration = URLSessionConfiguration::ephemeral())
      : delegate_(std::make_shared<RecordingDelegate>()),
        session_(URLSession::make(configuration, delegate_)) {}
  ~RecordedSession() {
    if (session_) end();
  }
  RecordedSession(const RecordedSession&) = delete;
  RecordedSession& operator=(const RecordedSession&) = delete;

  URLSession& operator*() { return *session_; }
  URLSession* operator->() { return session_.get(); }
  RecordingDelegate& delegate() { return *delegate_; }

  static URLRequest request(const std::string& url) { return URLRequest(URL(url)); }

  template <class Task>
  std::shared_ptr<Task> start(std::shared_ptr<Task> task) {
    started_.push_back(task->taskIdentifier());
    task->resume();
    return task;
  }
  std::shared_ptr<URLSessionDataTask> start(const URLRequest& request) {
    return start(session_->dataTask(request));
  }
  std::shared_ptr<URLSessionDataTask> start(const std::string& url) { return start(request(url)); }

  /// Waits for the end of a task.
  Loaded finished(const std::shared_ptr<URLSessionTask>& task,
                  std::chrono::milliseconds limit = patience) {
    EXPECT_TRUE(delegate_->waitForCompletion(task->taskIdentifier(), limit)) << "no completion";
    return {delegate_->record(task->taskIdentifier()), httpResponse(*task), task};
  }
  Loaded load(const URLRequest& request) { return finished(start(request)); }
  Loaded load(const std::string& url) { return load(request(url)); }

  /// The session becomes invalid once and lets go of its delegate; every task started had exactly
  /// one last event.
  void end() {
    session_->invalidateAndCancel();
    EXPECT_TRUE(delegate_->waitForInvalid()) << "the session did not become invalid";
    for (const auto task : started_) {
      SCOPED_TRACE("task " + std::to_string(task));
      EXPECT_EQ(delegate_->record(task).completions, 1);
      EXPECT_EQ(delegate_->record(task).misplacedEvents, 0);
    }
    EXPECT_EQ(delegate_->invalidations(), 1);
    EXPECT_EQ(delegate_->lateChallenges(), 0);
    session_.reset();
  }

 private:
  std::shared_ptr<RecordingDelegate> delegate_;
  std::shared_ptr<URLSession> session_;
  std::vector<std::int64_t> started_;
};

}  // namespace tarn::test
