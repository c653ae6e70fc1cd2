#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/Error.hpp>
#include <Platform/URLLoading/URLRequest.hpp>
#include <Platform/URLLoading/URLResponse.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tarn {

/// One load within a session. Made suspended by the session; every member is callable from any
/// thread and returns at once.
class URLSessionTask {
 public:
  enum class State { running, suspended, canceling, completed };

  virtual ~URLSessionTask() = default;
  URLSessionTask(const URLSessionTask&) = delete;
  URLSessionTask& operator=(const URLSessionTask&) = delete;

  /// Counts from 1 within its session.
  std::int64_t taskIdentifier() const noexcept { return taskIdentifier_; }
  virtual State state() const noexcept = 0;
  virtual URLRequest originalRequest() const = 0;
  /// The request on its way now; differs from the original after a redirect.
  virtual URLRequest currentRequest() const = 0;
  /// The head of the final answer, once it has come.
  virtual std::shared_ptr<const URLResponse> response() const = 0;
  /// Why the task failed, once it has.
  virtual std::optional<Error> error() const = 0;
  /// Body bytes taken from the network so far, before content decoding.
  virtual std::int64_t countOfBytesReceived() const noexcept = 0;

  /// Starts the task or goes on after suspend(). No effect on a finished task.
  virtual void resume() = 0;
  /// Stops reading; the time-out for progress stands still meanwhile, that for the whole load does
  /// not. No effect on a finished task.
  virtual void suspend() = 0;
  /// Ends the task with URLError::cancelled, which the delegate receives like any failure, also
  /// where the whole answer is on its way to it. No effect on a task whose state is completed.
  virtual void cancel() = 0;

 protected:
  explicit URLSessionTask(std::int64_t taskIdentifier) : taskIdentifier_(taskIdentifier) {}

 private:
  std::int64_t taskIdentifier_;
};

/// A task whose body comes to the delegate in memory.
class URLSessionDataTask : public URLSessionTask {
 protected:
  using URLSessionTask::URLSessionTask;
};

/// A data task that sends a body of its own, from memory or from a file.
///
/// A file is read as it is sent, and from its start again where a redirect or a dead connection
/// asks for it. It must stay as it was when sending began: one that is cut, grows, changes or is
/// replaced meanwhile fails the task with URLError::requestBodyStreamExhausted, one that vanishes
/// with URLError::fileDoesNotExist. A rewrite that keeps size and modification time goes unseen.
class URLSessionUploadTask : public URLSessionDataTask {
 protected:
  using URLSessionDataTask::URLSessionDataTask;
};

/// A task whose body goes to a temporary file as it arrives, whatever the status of the answer.
///
/// The file is written on the delegate queue, in the process's temporary directory (as it is when
/// the task is made), readable by its owner only. It is gone when didFinishDownloading returns, and
/// at once where the task fails: with URLError::cannotCreateFile, cannotWriteToFile or
/// cannotCloseFile where the disk does. A process that ends by exit() takes the unfinished files
/// along.
class URLSessionDownloadTask : public URLSessionTask {
 public:
  using ResumeDataHandler = std::function<void(std::optional<Data>)>;

  using URLSessionTask::cancel;
  /// As cancel(), but keeps what has been written for URLSession::downloadTask(withResumeData). The
  /// handler runs once, on the delegate queue, before didComplete.
  ///
  /// It gets nothing unless the load can go on later: some bytes of the answer to a GET are there,
  /// unencoded, with a strong ETag or a strong Last-Modified date, from a server that does not
  /// refuse ranges. The data names the kept file and holds the request, its header fields included:
  /// it is as secret as they are.
  virtual void cancel(ResumeDataHandler byProducingResumeData) = 0;

 protected:
  using URLSessionTask::URLSessionTask;
};

}  // namespace tarn
