#pragma once

#include <Platform/URLLoading/URLSession.hpp>
#include <TarnService/Transport/TaskKey.hpp>
#include <TarnService/Transport/ThreadSafeDictionary.hpp>
#include <TarnService/Transport/URLSessionTaskRef.hpp>

#include <atomic>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace tarn {

/// Owns a URL session, makes tasks on it and routes their events back to the requests that started
/// them.
///
/// The operations are callable from any thread; the report operations run the record's callback on
/// the calling thread, which is the delegate queue's when they are called from a delegate.
class HTTPTaskProducer {
 public:
  virtual ~HTTPTaskProducer() = default;
  HTTPTaskProducer(const HTTPTaskProducer&) = delete;
  HTTPTaskProducer& operator=(const HTTPTaskProducer&) = delete;

  virtual std::shared_ptr<URLSession> session() = 0;
  /// Invalidates the session and puts a new one in its place; tasks of the old one end as
  /// cancelled.
  virtual void resetSession() = 0;

  /// Stores the record under the key of its task; a record of an earlier session under the same key
  /// is replaced.
  void addTaskRefToQueue(std::shared_ptr<URLSessionTaskRef> ref) const;
  /// Cancels a task that waits for connectivity unless its request is willing to wait.
  void checkWaitForConnectivity(const URLSessionTask& forTask) const;
  /// Adds bytes to the body in the task's record.
  void write(Data data, std::int64_t forTaskIdentifier) const;
  /// Calls the data callback with the body. A record with a file callback ends the process: it is a
  /// programming error.
  void reportSuccess(std::int64_t forTaskIdentifier,
                     const std::shared_ptr<const URLResponse>& urlResponse) const;
  /// Calls the record's callback with the error; bytes that came before are not passed on.
  void reportFailure(std::int64_t forTaskIdentifier,
                     const std::shared_ptr<const URLResponse>& urlResponse,
                     const std::optional<Error>& error) const;
  /// Answers a challenge, before it returns: a server whose chain is trusted with the last usable
  /// file of TarnService::debugCertificateURLs as an anchor beside the system's is accepted; all
  /// else, and everything where no files are named, gets default handling. A file that can't be
  /// read, or is no certificate, is left out without a word.
  void validate(URLSession& session, const URLAuthenticationChallenge& didReceive,
                const URLChallengeHandler& completionHandler) const;

 protected:
  HTTPTaskProducer() = default;

  // For delegate events, which know their task: the same, but certain of the record even where a
  // task of a newer session, or of another producer of the class, has taken over the key.
  void write(Data data, const URLSessionTask& forTask) const;
  void reportCompletion(const URLSessionTask& task, const std::optional<Error>& error) const;

  using TaskRef = std::shared_ptr<URLSessionTaskRef>;

  // Null where there is no record.
  TaskRef taskRef(std::int64_t taskIdentifier) const;
  TaskRef taskRef(const URLSessionTask& task) const;
  // The same for the one report of a task's end.
  TaskRef endedTaskRef(const URLSessionTask& task) const;

 private:
  detail::TaskKey key(std::int64_t forTaskIdentifier) const;

  // Found when first needed: the class is not known to the constructor.
  mutable std::atomic<const detail::TaskKeySuffix*> keySuffix_ = nullptr;
};

/// A producer of tasks whose body is gathered in memory.
class HTTPDataTaskProducer : public HTTPTaskProducer {
 public:
  /// A new suspended task and its record. Throws InvalidRequestError and the like where no task can
  /// be made of the request.
  virtual std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                                 bool shouldWaitForConnectivity,
                                                 URLSessionTaskRef::DataCompletion completion);
};

/// A producer of tasks whose body goes to a file.
class HTTPDownloadTaskProducer : public HTTPDataTaskProducer {
 public:
  /// Always throws std::logic_error: a download is answered with a file.
  std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                         bool shouldWaitForConnectivity,
                                         URLSessionTaskRef::DataCompletion completion) override;
  /// A new suspended task and its record. Throws as HTTPDataTaskProducer::create() does.
  std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                         bool shouldWaitForConnectivity,
                                         URLSessionTaskRef::FileCompletion completion);
  /// As above, with `progress` called on the delegate queue.
  virtual std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                                 bool shouldWaitForConnectivity,
                                                 URLSessionTaskRef::Progress progress,
                                                 URLSessionTaskRef::FileCompletion completion);

  using HTTPDataTaskProducer::reportSuccess;
  /// Copies the file to a temporary directory of its own, where it stays until the application
  /// removes it, and calls the file callback with its URL. The copy is named as the answer
  /// suggests. Where it can't be made the callback gets `location` itself, which is gone soon after
  /// it returns. A record with a data callback ends the process: it is a programming error.
  void reportSuccess(std::int64_t forTaskIdentifier, const URL& location,
                     const std::shared_ptr<const URLResponse>& urlResponse) const;
  void reportProgress(std::int64_t forTaskIdentifier, std::int64_t totalBytesWritten,
                      std::int64_t totalBytesExpectedToWrite) const;

 protected:
  void reportSuccess(const URLSessionDownloadTask& task, const URL& location) const;
  void reportProgress(const URLSessionDownloadTask& task, std::int64_t totalBytesWritten,
                      std::int64_t totalBytesExpectedToWrite) const;
};

/// Where the body of an upload comes from: bytes, or the file at a URL.
class HTTPUploadTaskKind {
 public:
  static HTTPUploadTaskKind data(Data body) { return HTTPUploadTaskKind(std::move(body)); }
  static HTTPUploadTaskKind file(URL body) { return HTTPUploadTaskKind(std::move(body)); }

  /// Calls `onData` with the bytes or `onFile` with the URL, and answers what that answers.
  template <class OnData, class OnFile>
  std::invoke_result_t<OnData, const Data&> match(OnData&& onData, OnFile&& onFile) const {
    if (const auto* file = std::get_if<URL>(&body_)) return onFile(*file);
    return onData(std::get<Data>(body_));
  }

 private:
  explicit HTTPUploadTaskKind(Data body) : body_(std::move(body)) {}
  explicit HTTPUploadTaskKind(URL body) : body_(std::move(body)) {}

  std::variant<Data, URL> body_;
};

/// A producer of tasks that send a body of their own.
class HTTPUploadTaskProducer : public HTTPTaskProducer {
 public:
  /// A new suspended task and its record. Throws as HTTPDataTaskProducer::create() does.
  std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                         const HTTPUploadTaskKind& kind,
                                         bool shouldWaitForConnectivity,
                                         URLSessionTaskRef::DataCompletion completion);
  /// As above; `progress` is kept in the record.
  virtual std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                                 const HTTPUploadTaskKind& kind,
                                                 bool shouldWaitForConnectivity,
                                                 URLSessionTaskRef::Progress progress,
                                                 URLSessionTaskRef::DataCompletion completion);

 private:
  std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                         const HTTPUploadTaskKind& kind);
};

/// The records of all producers, by task key: the identifier of the task and the class of its
/// producer, as in "7-TarnService.DataTaskProducer".
///
/// A record is never removed, only replaced by a later task with the same key, as sessions number
/// their tasks afresh.
ThreadSafeDictionary<std::string, std::shared_ptr<URLSessionTaskRef>>& taskDictionary();

}  // namespace tarn
