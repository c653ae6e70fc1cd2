#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/Error.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLAuthenticationChallenge.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tarn {

class URLSession;

/// Receives the events of a session and its tasks.
///
/// Every member runs on the session's delegate queue: events of one task one after another and in
/// order, events of several tasks at once. An event that throws is reported as an uncaught error
/// and counts as handled.
class URLSessionDelegate {
 public:
  virtual ~URLSessionDelegate() = default;

  /// The last event of a session; no error where the application asked for it.
  virtual void didBecomeInvalid(URLSession& session, const std::optional<Error>& error);

  /// A new TLS connection asks whether to trust the server, or for a certificate of the client.
  /// Comes once a connection for each, of whatever task opened it. By default, default handling.
  virtual void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                                   URLChallengeHandler completionHandler);

  /// An answer to the task asks for a name and password (401 or 407). By default, default handling.
  virtual void didReceiveTaskChallenge(URLSession& session, URLSessionTask& task,
                                       const URLAuthenticationChallenge& challenge,
                                       URLChallengeHandler completionHandler);

  /// The task has no route to its host and waits for one; told once a task, where the session's
  /// configuration asks for waiting.
  virtual void taskIsWaitingForConnectivity(URLSession& session, URLSessionTask& task);

  /// An answer asks for another address. Calling back with a request follows it, with nothing takes
  /// the redirecting answer itself as the outcome. Must be called back once, from any thread; a
  /// handler that is dropped instead cancels the task. By default the new request is followed.
  virtual void willPerformHTTPRedirection(
      URLSession& session, URLSessionTask& task,
      const std::shared_ptr<const HTTPURLResponse>& response, URLRequest newRequest,
      std::function<void(std::optional<URLRequest>)> completionHandler);

  /// The next bytes of the body, decoded. Never called after didComplete.
  virtual void didReceiveData(URLSession& session, URLSessionDataTask& task, Data data);

  /// The file of a download is whole, and removed when the call returns unless it has been moved
  /// away. Comes once, before didComplete, and only for a task that does not fail.
  virtual void didFinishDownloading(URLSession& session, URLSessionDownloadTask& task,
                                    const URL& location);

  /// The file of a download has grown by `bytesWritten` to `totalBytesWritten` bytes. One event for
  /// all that arrived since the last; `totalBytesExpectedToWrite` is -1 where it is unknown.
  virtual void didWriteData(URLSession& session, URLSessionDownloadTask& task,
                            std::int64_t bytesWritten, std::int64_t totalBytesWritten,
                            std::int64_t totalBytesExpectedToWrite);

  /// The server goes on where an earlier download stopped; otherwise it starts from 0 without this
  /// event. `expectedTotalBytes` is -1 where it is unknown.
  virtual void didResume(URLSession& session, URLSessionDownloadTask& task, std::int64_t fileOffset,
                         std::int64_t expectedTotalBytes);

  /// The task is over: the last event of a task, exactly once. Without an error the answer is
  /// whole.
  virtual void didComplete(URLSession& session, URLSessionTask& task,
                           const std::optional<Error>& error);
};

}  // namespace tarn
