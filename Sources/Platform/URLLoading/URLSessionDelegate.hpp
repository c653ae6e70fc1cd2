#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/Error.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

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

  /// The task has no route to its host and waits for one.
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

  /// The task is over: the last event of a task, exactly once. Without an error the answer is
  /// whole.
  virtual void didComplete(URLSession& session, URLSessionTask& task,
                           const std::optional<Error>& error);
};

}  // namespace tarn
