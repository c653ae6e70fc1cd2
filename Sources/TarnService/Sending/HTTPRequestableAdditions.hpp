#pragma once

#include <Platform/Types/TypeName.hpp>
#include <Tambour/OptionalQueue.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>

#include <concepts>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace tarn {
namespace detail {

/// The queue that prepares every send: concurrent, so that no request waits for another.
const DispatchQueue& sendQueue();

void logSendFailure(std::string_view requestType, const Error& error) noexcept;
void reportThrowingCompletion(const Error& error) noexcept;
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
    if (!property::shouldSend(request)) return;
    request.insertPendingToTaskManager();
    sendQueue().async([request, queue = std::move(queue), completion = std::move(completion)] {
      start(request, queue, completion);
    });
  }

  static std::shared_ptr<URLSessionTask> createTask(const R& request, const Queue& queue,
                                                    Completion<Response> completion) {
    static_assert(
        std::derived_from<typename R::TaskProducer, HTTPDataTaskProducer>,
        "A request whose task producer makes no data tasks has a `createTask` of its own.");
    // What the send holds goes once it is answered; the record of the task stays for long.
    auto pending =
        std::make_shared<std::optional<Pending>>(Pending{request, queue, std::move(completion)});
    return property::taskProducer(request)->create(
        request.urlRequest(), request._shouldWaitForConnectivity(),
        [pending = std::move(pending)](std::optional<Data> data,
                                       std::shared_ptr<const URLResponse> response,
                                       std::optional<Error> error) {
          const auto ended = std::exchange(*pending, std::nullopt);
          if (!ended) return reportSecondCompletion();
          processTaskCompletion(
              ended->request,
              {std::move(data), std::nullopt, std::move(response), std::move(error)}, ended->queue,
              ended->completion);
        });
  }

  static void report(const R& request, Error error, const Queue& queue,
                     const Completion<Response>& completion) {
    if (!completion.claim()) return reportSecondCompletion();
    Response response(std::nullopt, std::nullopt, nullptr, std::move(error));
    request.removeFromTaskManager();
    deliver(queue, completion, std::move(response));
  }

  /// Turns a finished task into the response and delivers it.
  static void processTaskCompletion(const R& request, const TaskOutcome& outcome,
                                    const Queue& queue, const Completion<Response>& completion) {
    // A request that was cancelled just before its task was to start has its answer; the task, let
    // go unstarted, ends with its session.
    if (!completion.claim()) return;
    Response response = makeResponse(outcome, check(request, outcome));
    try {
      request.process(std::as_const(response));
    } catch (...) {
      response = makeResponse(outcome, Error::current());
    }
    request.removeFromTaskManager();
    deliver(queue, completion, std::move(response));
  }

 private:
  struct Pending {
    R request;
    Queue queue;
    Completion<Response> completion;
  };

  /// Runs the claimed completion asynchronously on the queue. What it throws is logged; it does not
  /// get past the queue.
  static void deliver(const Queue& queue, const Completion<Response>& completion,
                      Response response) {
    async(queue, [completion, response = std::move(response)]() mutable {
      try {
        completion.run(std::move(response));
      } catch (...) {
        reportThrowingCompletion(Error::current());
      }
    });
  }

  static void start(const R& request, const Queue& queue, const Completion<Response>& completion) {
    const auto failure = startTask(request, queue, completion);
    if (!failure) return;
    logSendFailure(unqualifiedTypeName<R>(), *failure);
    request.report(*failure, queue, completion);
  }

  /// Why the task could not be started; nothing where it runs.
  static std::optional<Error> startTask(const R& request, const Queue& queue,
                                        const Completion<Response>& completion) noexcept {
    try {
      request.checkPendingCancelable();
      request.validate();
      const std::shared_ptr<URLSessionTask> task = request.createTask(queue, completion);
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

}  // namespace detail
}  // namespace tarn
