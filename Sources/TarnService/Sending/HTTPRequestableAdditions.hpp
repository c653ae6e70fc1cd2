#pragma once

#include <Platform/Types/TypeName.hpp>
#include <Tambour/FileRepresentable.hpp>
#include <Tambour/OptionalQueue.hpp>
#include <TarnService/Diagnostics/HTTPRequestableDebugAdditions.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/Sending/ProgressRelay.hpp>

#include <atomic>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {
namespace detail {

/// The queue that prepares every send: concurrent, so that no request waits for another.
const DispatchQueue& sendQueue();

void logSendFailure(std::string_view requestType, const Error& error) noexcept;
/// Logs what a callback of the application has thrown.
void reportThrowing(std::string_view callback, const Error& error) noexcept;
/// Calls what the application gave; what that throws is logged.
template <class F>
void callLogged(std::string_view callback, F&& call) noexcept {
  try {
    call();
  } catch (...) {
    reportThrowing(callback, Error::current());
  }
}
/// What the transport's own error becomes: the network error with the same number.
Error networkError(const Error& transportError);
/// The failure of an answer that the request does not accept.
Error unacceptableStatus(const URLResponse* response);

/// What a finished task leaves.
struct TaskOutcome {
  std::optional<Data> data;
  std::optional<URL> url;
  std::shared_ptr<const URLResponse> response;
  std::optional<Error> error;
};

/// The road of one request from its value to its one completion.
template <class R>
struct SendOperations {
  using Response = typename R::Response;
  using Queue = std::optional<DispatchQueue>;

  static void send(const R& request, Queue queue, Completion<Response> completion) {
    submit(request, std::move(queue), std::move(completion),
           [](const R& value, const Queue& onQueue, const Completion<Response>& onEnd) {
             return value.createTask(onQueue, onEnd);
           });
  }

  /// As above with progress, called on the queue too, never beside the completion or after it.
  static void send(const R& request, Queue queue, ProgressHandler progress,
                   Completion<Response> completion) {
    if (!progress) return send(request, std::move(queue), std::move(completion));
    const auto relay = std::make_shared<ProgressRelay>(queue, std::move(progress));
    Completion<Response> afterProgress(
        [relay, completion = std::move(completion)](Response response) {
          relay->finish([completion, response = std::move(response)]() mutable {
            if (!completion.claim()) return reportSecondCompletion();
            runLogged(completion, std::move(response));
          });
        });
    submit(request, std::move(queue), std::move(afterProgress),
           [relay](const R& value, const Queue& onQueue, const Completion<Response>& onEnd) {
             return createTask(value, onQueue, onEnd,
                               [relay](std::int64_t done, std::int64_t expected) {
                                 relay->report({done, expected});
                               });
           });
  }

  static std::shared_ptr<URLSessionTask> createTask(const R& request, const Queue& queue,
                                                    Completion<Response> completion,
                                                    URLSessionTaskRef::Progress progress = {}) {
    using Producer = typename R::TaskProducer;
    constexpr bool isDownload = std::derived_from<Producer, HTTPDownloadTaskProducer>;
    constexpr bool isUpload = std::derived_from<Producer, HTTPUploadTaskProducer>;
    static_assert(isDownload || isUpload || std::derived_from<Producer, HTTPDataTaskProducer>,
                  "A request whose task producer makes no data, download or upload tasks has a "
                  "`createTask` of its own.");
    const std::shared_ptr<Producer> producer = property::taskProducer(request);
    const bool waits = request._shouldWaitForConnectivity();
    const URLRequest urlRequest = request.urlRequest();
    // By way of the interfaces: a producer that overrides one `create` hides the others.
    if constexpr (isDownload) {
      HTTPDownloadTaskProducer& downloads = *producer;
      return downloads.create(urlRequest, waits, std::move(progress),
                              onEnd<URL>(request, queue, std::move(completion)));
    } else if constexpr (isUpload) {
      HTTPUploadTaskProducer& uploads = *producer;
      return uploads.create(urlRequest, uploadKind(request, urlRequest), waits, std::move(progress),
                            onEnd<Data>(request, queue, std::move(completion)));
    } else {
      HTTPDataTaskProducer& plain = *producer;
      return plain.create(urlRequest, waits, onEnd<Data>(request, queue, std::move(completion)));
    }
  }

  static void report(const R& request, Error error, const Queue& queue,
                     const Completion<Response>& completion) {
    if (!completion.claim()) return reportSecondCompletion();
    auto answer = std::make_unique<Answer>(completion, TaskOutcome(), std::move(error));
    request.removeFromTaskManager();
    deliver(queue, std::move(answer));
  }

  /// Turns a finished task into the response and delivers it.
  static void processTaskCompletion(const R& request, const TaskOutcome& outcome,
                                    const Queue& queue, const Completion<Response>& completion) {
    // A request that was cancelled just before its task was to start has its answer; the task, let
    // go unstarted, ends with its session.
    if (!completion.claim()) return;
    auto answer = std::make_unique<Answer>(completion, outcome, check(request, outcome));
    try {
      request.process(std::as_const(answer->response));
    } catch (...) {
      answer->response = makeResponse(outcome, Error::current());
    }
    callLogged("A request's printDebugOutput", [&] {
      request.printDebugOutput(outcome.error, std::as_const(answer->response), outcome.data);
    });
    request.removeFromTaskManager();
    deliver(queue, std::move(answer));
  }

 private:
  struct Pending {
    struct Send {
      R request;
      Queue queue;
      Completion<Response> completion;
    };
    Pending(const R& request, const Queue& queue, Completion<Response> completion)
        : send(Send{request, queue, std::move(completion)}) {}

    std::optional<Send> send;
    std::atomic<bool> isEnded = false;
  };

  /// The response, made where it stays until the completion has it, and the completion.
  struct Answer {
    Answer(Completion<Response> completion, const TaskOutcome& outcome, std::optional<Error> error)
        : completion(std::move(completion)), response(makeResponse(outcome, std::move(error))) {}

    Completion<Response> completion;
    Response response;
  };

  /// What a task's record calls at its end, with the bytes or the file.
  template <class Body>
  static std::function<void(std::optional<Body>, std::shared_ptr<const URLResponse>,
                            std::optional<Error>)>
  onEnd(const R& request, const Queue& queue, Completion<Response> completion) {
    auto pending = std::make_shared<Pending>(request, queue, std::move(completion));
    return [pending = std::move(pending)](std::optional<Body> body,
                                          std::shared_ptr<const URLResponse> response,
                                          std::optional<Error> error) mutable {
      // What the send holds goes once it is answered; the task's record may stay for long.
      const auto ended = std::exchange(pending, nullptr);
      if (!ended || ended->isEnded.exchange(true)) return reportSecondCompletion();
      const auto send = std::exchange(ended->send, std::nullopt);
      TaskOutcome outcome{{}, {}, std::move(response), std::move(error)};
      if constexpr (std::same_as<Body, URL>) {
        outcome.url = std::move(body);
      } else {
        outcome.data = std::move(body);
      }
      processTaskCompletion(send->request, outcome, send->queue, send->completion);
    };
  }

  /// The body as the URL request has it, encoded perhaps; else the file that it lies in, or its
  /// bytes.
  static HTTPUploadTaskKind uploadKind(const R& request, const URLRequest& urlRequest) {
    if constexpr (property::bodyExists<R>) {
      if (urlRequest.httpBody()) return HTTPUploadTaskKind::data(*urlRequest.httpBody());
      const auto& body = property::body(request);
      if constexpr (FileRepresentable<BodyOf<R>>) return HTTPUploadTaskKind::file(body.fileURL());
      if constexpr (DataRepresentable<BodyOf<R>>) return HTTPUploadTaskKind::data(body.asData());
    }
    throw std::invalid_argument("An upload has no body.");
  }

  /// Runs the claimed completion asynchronously on the queue. What it throws is logged; it does not
  /// get past the queue.
  static void deliver(const Queue& queue, std::unique_ptr<Answer> answer) {
    async(queue, [answer = std::move(answer)] {
      runLogged(answer->completion, std::move(answer->response));
    });
  }

  static void runLogged(const Completion<Response>& completion, Response&& response) noexcept {
    callLogged("A completion", [&] { completion.run(std::move(response)); });
  }

  template <class MakeTask>
  static void submit(const R& request, Queue queue, Completion<Response> completion,
                     MakeTask makeTask) {
    if (!property::shouldSend(request)) return;
    request.insertPendingToTaskManager();
    sendQueue().async(
        [request, queue = std::move(queue), completion = std::move(completion),
         makeTask = std::move(makeTask)] { start(request, queue, completion, makeTask); });
  }

  template <class MakeTask>
  static void start(const R& request, const Queue& queue, const Completion<Response>& completion,
                    const MakeTask& makeTask) {
    const auto failure = startTask(request, queue, completion, makeTask);
    if (!failure) return;
    logSendFailure(unqualifiedTypeName<R>(), *failure);
    request.report(*failure, queue, completion);
  }

  /// Why the task could not be started; nothing where it runs.
  template <class MakeTask>
  static std::optional<Error> startTask(const R& request, const Queue& queue,
                                        const Completion<Response>& completion,
                                        const MakeTask& makeTask) noexcept {
    try {
      request.checkPendingCancelable();
      request.validate();
      const std::shared_ptr<URLSessionTask> task = makeTask(request, queue, completion);
      if (!task) throw std::logic_error("createTask answered no task");
      // A cancellation that came meanwhile wins: the task is let go without being started.
      request.checkPendingCancelable();
      request.insertTaskIntoTaskManager(task);
      task->resume();
    } catch (...) {
      return Error::current();
    }
    return std::nullopt;
  }

  /// The failure that the request sees in the outcome; nothing where it accepts the answer.
  static std::optional<Error> check(const R& request, const TaskOutcome& outcome) {
    if (outcome.error) return networkError(*outcome.error);
    const HTTPRequestableDefaults<R>& defaults = request;
    try {
      if (!defaults.isAcceptable(outcome.response.get())) {
        return unacceptableStatus(outcome.response.get());
      }
      request.checkAllCanceledStates();
    } catch (...) {
      return Error::current();
    }
    return std::nullopt;
  }

  static Response makeResponse(const TaskOutcome& outcome, std::optional<Error> error) {
    return Response(outcome.data, outcome.url, outcome.response, std::move(error));
  }
};

/// Empty for an empty std::function or a null pointer, which as they are would be called and throw.
template <class P>
ProgressHandler progressHandler(P&& progress) {
  if constexpr (requires { progress.operator bool(); }) {
    if (!progress.operator bool()) return {};
  } else if constexpr (std::is_pointer_v<std::remove_cvref_t<P>>) {
    if (progress == nullptr) return {};
  }
  return ProgressHandler(std::forward<P>(progress));
}

/// The send of the request families that report progress.
template <class R, class P, class F>
void sendWithProgress(const R& request, std::optional<DispatchQueue> queue, P&& progress,
                      F&& completion) {
  requireHTTPRequestable<R>();
  static_assert(std::is_convertible_v<P&&, ProgressHandler>,
                "The progress handler is callable with a `tarn::RequestProgress`.");
  static_assert(std::is_convertible_v<F&&, Completion<typename R::Response>>,
                "The completion is callable with the request's `Response`.");
  if constexpr (std::derived_from<R, HTTPMockable<R>>) {
    if (TarnService::isMocked) {
      return MockOperations<R>::send(request, std::move(queue), std::forward<F>(completion));
    }
  }
  SendOperations<R>::send(request, std::move(queue), progressHandler(std::forward<P>(progress)),
                          std::forward<F>(completion));
}

}  // namespace detail
}  // namespace tarn
