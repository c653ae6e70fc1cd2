#pragma once

#include <Platform/Dispatch/OperationQueue.hpp>
#include <Platform/URLLoading/URLSessionConfiguration.hpp>
#include <Platform/URLLoading/URLSessionDelegate.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

#include <memory>

namespace tarn {

/// Loads requests over HTTP/1.1 and HTTP/2, with its own connections, cookies and limits.
///
/// Callable from any thread. Holds its delegate until it becomes invalid; its tasks hold the
/// session. Proxy variables of the environment are read once, when the session is made.
class URLSession {
 public:
  /// Events go to `delegate` on `delegateQueue`; without a queue the session makes one of its own.
  /// Throws InvalidRequestError or InvalidConfigurationError for settings that can't work.
  static std::shared_ptr<URLSession> make(URLSessionConfiguration configuration,
                                          std::shared_ptr<URLSessionDelegate> delegate,
                                          std::shared_ptr<OperationQueue> delegateQueue = nullptr);

  virtual ~URLSession() = default;
  URLSession(const URLSession&) = delete;
  URLSession& operator=(const URLSession&) = delete;

  const URLSessionConfiguration& configuration() const noexcept { return configuration_; }

  /// A new suspended task. On an invalid session the task fails with URLError::cancelled when it is
  /// resumed.
  virtual std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request) = 0;

  /// As dataTask(), with a body of its own in place of the request's.
  virtual std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest request, Data fromData) = 0;
  /// As above; the file is opened when the task's turn to connect comes. The task fails with
  /// URLError::fileDoesNotExist, fileIsDirectory or noPermissionsToReadFile, and with
  /// cannotOpenFile for what is no regular file.
  virtual std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest request, URL fromFile) = 0;

  /// As dataTask(), with the body going to a file.
  virtual std::shared_ptr<URLSessionDownloadTask> downloadTask(URLRequest request) = 0;
  /// Goes on with a download that was cancelled with resume data; starts afresh where the server's
  /// file has changed or the kept part has. The part belongs to the resume data until an answer
  /// continues or replaces it, so a task that fails before can be tried again. Fails with
  /// URLError::cannotOpenFile where the data is no resume data.
  virtual std::shared_ptr<URLSessionDownloadTask> downloadTask(const Data& withResumeData) = 0;

  /// Cancels every task; the session becomes invalid once they have completed.
  virtual void invalidateAndCancel() = 0;
  /// Lets running tasks finish, then becomes invalid; tasks made later fail.
  virtual void finishTasksAndInvalidate() = 0;

 protected:
  explicit URLSession(URLSessionConfiguration configuration)
      : configuration_(std::move(configuration)) {}

 private:
  URLSessionConfiguration configuration_;
};

}  // namespace tarn
