#pragma once

#include <Platform/Dispatch/DispatchTime.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Sending/TypeProperties.hpp>

#include <concepts>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn {

template <class Self>
struct HTTPPolling;

/// What the attempts of one repeated send came to. A value; copies share what responses share.
template <class Response>
class HTTPRetryResult {
 public:
  enum class Case { noFailure, partialFailure, totalFailure };

  static HTTPRetryResult noFailure(Response successful) {
    return HTTPRetryResult(Case::noFailure, std::move(successful), {});
  }
  /// `failures` oldest first.
  static HTTPRetryResult partialFailure(Response successful, std::vector<Response> failures) {
    return HTTPRetryResult(Case::partialFailure, std::move(successful), std::move(failures));
  }
  static HTTPRetryResult totalFailure(std::vector<Response> failures) {
    return HTTPRetryResult(Case::totalFailure, std::nullopt, std::move(failures));
  }

  Case kind() const noexcept { return case_; }
  /// The last response; nothing for a total failure. In a partial failure it may carry an error all
  /// the same, where the attempts were used up.
  const std::optional<Response>& successfulResponse() const noexcept { return successful_; }
  /// Oldest first; empty for no failure. The last one of a total failure carries no error.
  const std::vector<Response>& failedResponses() const noexcept { return failures_; }
  /// The number of `failedResponses()`.
  std::int64_t failCount() const noexcept { return std::ssize(failures_); }

  /// Calls `onNoFailure(successful)`, `onPartialFailure(successful, failures)` or
  /// `onTotalFailure(failures)`, and answers what that answers.
  template <class OnNoFailure, class OnPartialFailure, class OnTotalFailure>
  decltype(auto) match(OnNoFailure&& onNoFailure, OnPartialFailure&& onPartialFailure,
                       OnTotalFailure&& onTotalFailure) const {
    if (case_ == Case::noFailure) return onNoFailure(*successful_);
    if (case_ == Case::partialFailure) return onPartialFailure(*successful_, failures_);
    return onTotalFailure(failures_);
  }

 private:
  HTTPRetryResult(Case kind, std::optional<Response> successful, std::vector<Response> failures)
      : case_(kind), successful_(std::move(successful)), failures_(std::move(failures)) {}

  Case case_;
  std::optional<Response> successful_;
  std::vector<Response> failures_;
};

namespace requirement {

template <class R>
concept HasRetryInterval = property::retryIntervalIsSaid<R>;
template <class R>
concept HasRetryLimit = property::retryLimitIsSaid<R>;
template <class R>
concept HasRetryDelta = property::retryDeltaIsSaid<R>;

}  // namespace requirement

namespace detail {

/// Says in one sentence what a request type lacks to be sent repeatedly.
template <class R>
consteval void requireHTTPRetryAttempting() {
  requireHTTPRequestable<R>();
  static_assert(requirement::HasRetryInterval<R>,
                "A request that is retried has a static `retryInterval`: seconds, a `double`.");
  static_assert(requirement::HasRetryLimit<R>,
                "A request that is retried has a static `retryLimit`, a `std::int64_t`.");
  static_assert(requirement::HasRetryDelta<R>,
                "The static `retryDelta` of a request is whole seconds, a `std::int64_t`.");
}

DispatchQueue makeRetryQueue();
/// An overflow of `retryDelta * attempt` is a fatal error.
DispatchTime nextTryDispatchTime(double retryInterval, std::int64_t retryDelta,
                                 std::int64_t attempt);
/// Logs that a repeated send ended without a response, and answers the error that says so.
Error completionWithoutResponse();

/// One repeated send: all that travels from attempt to attempt.
template <class R>
struct Retry {
  using Response = typename R::Response;
  using Result = HTTPRetryResult<Response>;

  R request;
  std::optional<DispatchQueue> completionQueue;
  DispatchQueue retryQueue;
  Completion<Result> completion;
  std::vector<Response> failedResponses = {};  // oldest first

  /// An attempt whose send throws has failed as well.
  static void send(Retry retry, bool isSentFromPoll) {
    const std::int64_t limit = property::retryLimit<R>();
    const R request = retry.request;
    const std::optional<DispatchQueue> queue = retry.completionQueue;
    const Completion<Response> onResponse(
        [retry = std::move(retry), limit](Response response) mutable {
          decide(std::move(retry), limit, std::move(response));
        });
    std::optional<Error> failure;
    try {
      fire(request, queue, onResponse, isSentFromPoll);
    } catch (...) {
      failure = Error::current();
    }
    if (failure) onResponse(Response(std::nullopt, std::nullopt, nullptr, std::move(failure)));
  }

 private:
  static void fire(const R& request, const std::optional<DispatchQueue>& queue,
                   const Completion<Response>& onResponse, bool isSentFromPoll) {
    if constexpr (std::derived_from<R, HTTPPolling<R>>) {
      if (!isSentFromPoll) {
        return HTTPPolling<R>::firePollForRetryable(request, queue, onResponse);
      }
    }
    request.send(queue, onResponse);
  }

  static void decide(Retry retry, std::int64_t limit, Response response) {
    if (std::ssize(retry.failedResponses) <= limit && response.result.error()) {
      return sendLater(std::move(retry), std::move(response));
    }
    async(retry.completionQueue, [completion = std::move(retry.completion),
                                  result = outcome(std::move(retry.failedResponses), limit,
                                                   std::move(response))]() mutable {
      callLogged("A completion", [&] { completion(std::move(result)); });
    });
  }

  static void sendLater(Retry retry, Response failed) {
    const DispatchTime deadline = nextTryDispatchTime(
        property::retryInterval<R>(), property::retryDelta<R>(), std::ssize(retry.failedResponses));
    const DispatchQueue queue = retry.retryQueue;
    queue.asyncAfter(deadline, [retry = std::move(retry), failed = std::move(failed)]() mutable {
      retry.failedResponses.push_back(std::move(failed));
      send(std::move(retry), false);
    });
  }

  // The order of the tests is kept, and so is what comes of it: a success after exactly as many
  // failures as the limit stands last among the failures, and a response beyond the limit is
  // reported as the successful one, whatever it carries.
  static Result outcome(std::vector<Response> failures, std::int64_t limit, Response response) {
    if (failures.empty()) return Result::noFailure(std::move(response));
    if (std::ssize(failures) == limit) {
      failures.push_back(std::move(response));
      return Result::totalFailure(std::move(failures));
    }
    return Result::partialFailure(std::move(response), std::move(failures));
  }
};

template <class R>
void sendAttemptingRetry(const R& request, std::optional<DispatchQueue> completionQueue,
                         Completion<HTTPRetryResult<typename R::Response>> completion,
                         bool isSentFromPoll) {
  Retry<R>::send({request, std::move(completionQueue), makeRetryQueue(), std::move(completion)},
                 isSentFromPoll);
}

/// The one response that stands for all attempts.
template <class Response>
Response lastResponse(const HTTPRetryResult<Response>& result) {
  if (const auto& successful = result.successfulResponse()) return *successful;
  if (!result.failedResponses().empty()) return result.failedResponses().back();
  return Response(std::nullopt, std::nullopt, nullptr, completionWithoutResponse());
}

}  // namespace detail

/// Makes a request one that can be sent again, after a growing delay, while its responses carry an
/// error.
///
/// The type says `retryInterval`, seconds before every retry, and `retryLimit`, the number of
/// failures up to which a failing response is retried, so that there are up to `retryLimit` + 2
/// attempts. Each is a static member or a static member function; they may be asked for on any
/// thread.
template <class Self>
struct HTTPRetryAttempting {
  /// Seconds added to the delay for each failure collected before.
  static constexpr std::int64_t retryDelta = 1;

  /// A new serial queue at each call.
  DispatchQueue retryQueue() const { return detail::makeRetryQueue(); }

  /// When the attempt that follows `attempt` + 1 failures is made: `retryInterval` seconds from now
  /// and `retryDelta` more for each of `attempt`.
  DispatchTime nextTryDispatchTime(std::int64_t attempt) const {
    detail::requireHTTPRetryAttempting<Self>();
    return detail::nextTryDispatchTime(detail::property::retryInterval<Self>(),
                                       detail::property::retryDelta<Self>(), attempt);
  }

  /// Sends the request, through its own `send`, or HTTPPolling::firePollForRetryable where the type
  /// is polled too, until a response carries no error or the attempts are used up; `completion`
  /// then receives one HTTPRetryResult, on the queue as with `send`. Returns at once. A pending
  /// retry can't be cancelled; a request that declines to be sent is dropped as with `send`.
  template <class F, class R = Self>
  void sendAttemptingRetry(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    detail::requireHTTPRetryAttempting<R>();
    static_assert(std::is_convertible_v<F&&, Completion<HTTPRetryResult<typename R::Response>>>,
                  "The completion is callable with a `tarn::HTTPRetryResult` of the request's "
                  "`Response`.");
    detail::sendAttemptingRetry<R>(static_cast<const R&>(*this), std::move(completionQueue),
                                   std::forward<F>(completion), false);
  }
};

}  // namespace tarn
