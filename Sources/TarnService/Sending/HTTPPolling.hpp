#pragma once

#include <TarnService/Sending/HTTPRetryAtempting.hpp>

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace tarn {

/// What receives each response of a polled type, with the request that it answers.
template <class R>
using PollingHandler = std::function<void(const R& request, const typename R::Response& response)>;

namespace requirement {

template <class R>
concept HasPollingRate = property::pollingRateIsSaid<R>;
template <class R>
concept HasShouldFirePoll = property::shouldFirePollIsSaid<R>;
template <class R>
concept MakesItself = requires {
  { R::make() } -> std::convertible_to<std::optional<R>>;
};

}  // namespace requirement

namespace detail {

class TimerHandler;

/// A PollingHandler of the type that it is kept for; null is no handler.
using AnyPollingHandler = std::shared_ptr<const void>;

/// Says in one sentence what a request type lacks to be polled.
template <class R>
consteval void requireHTTPPolling() {
  requireHTTPRequestable<R>();
  static_assert(requirement::HasPollingRate<R>,
                "The static `pollingRate` of a request is seconds, a `double`.");
  static_assert(requirement::HasShouldFirePoll<R>,
                "The static `shouldFirePoll` of a request is a `bool`.");
  static_assert(requirement::MakesItself<R>,
                "A request that is polled is made anew for each poll: where it can't be made from "
                "nothing, its static `make()` answers one, or nothing to leave that poll out.");
}

template <class R, class F>
consteval void requirePollingHandler() {
  static_assert(std::is_convertible_v<F, PollingHandler<R>>,
                "A polling handler is callable with the request and its `Response`.");
}

// The registry of polled types, one for the process. All callable from any thread.

/// Adds the handler to a type that is polled; answers whether it is.
bool addPollingHandler(const std::type_info& type, const AnyPollingHandler& handler);
/// Starts the type's timer, or adds the handler where it has started meanwhile. `tick` answers
/// whether it has sent a request.
void startPolling(const std::type_info& type, TimeInterval rate, std::function<bool()> tick,
                  const AnyPollingHandler& handler);
void stopPolling(const std::type_info& type);
bool isTimerRunning(const std::type_info& type);
/// Calls each handler of the type, in the order in which they were added, for as long as the type
/// is polled. What one throws is logged.
void callPollingHandlers(const std::type_info& type,
                         const std::function<void(const void* handler)>& call);
void logNotPolled(const std::type_info& type);

/// Holds the type's timer, if it is polled, until end().
class PollingPause {
 public:
  explicit PollingPause(const std::type_info& type);
  ~PollingPause() { end(); }
  PollingPause(PollingPause&&) noexcept = default;
  PollingPause& operator=(PollingPause&&) = delete;

  void end();

 private:
  std::weak_ptr<TimerHandler> timer_;  // gone once the type is stopped
};

}  // namespace detail

/// Makes a request type one that can be polled: while it is, a new request is sent at a fixed rate,
/// and every response is given to the handlers that were registered for the type.
///
/// The first poll is made one `pollingRate` after `poll`. Handlers are called on the main queue, in
/// the order in which they were added; a program that never drains it finds a fault in the log. The
/// operations are callable from any thread, also from handlers and while a poll is made. `make` and
/// `shouldFirePoll` run on the timer's queue and may not wait for other threads: `stopPolling` and
/// `firePoll` wait for them.
template <class Self>
struct HTTPPolling {
  /// Seconds between polls, at least a thousandth; read by the first `poll`.
  static constexpr double pollingRate = 300.0;
  /// Whether a poll that is due is made; read each time.
  static constexpr bool shouldFirePoll = true;
  /// The request of the next poll; nothing leaves that poll out.
  template <class R = Self>
  requires std::default_initializable<R>
  static std::optional<R> make() { return R{}; }
  /// For what a request makes of its response. The library does not call it; a handler may.
  template <class Response>
  void received(const Response& /*response*/) const {}

  /// Starts to poll, or adds the handler where the type is polled already. An empty handler is
  /// none.
  template <class F>
  static void poll(F&& handler) {
    detail::requireHTTPPolling<Self>();
    const auto erased = erase(std::forward<F>(handler));
    if (detail::addPollingHandler(typeid(Self), erased)) return;
    detail::startPolling(
        typeid(Self), TimeInterval(detail::property::pollingRate<Self>()),
        [] { return processTimerInvocation(); }, erased);
  }
  static void poll() { poll(nullptr); }

  /// Adds a handler to a type that is polled; a fault in the log where it is not.
  template <class F>
  static void addPollingHandler(F&& handler) {
    _addPollingHandler(std::forward<F>(handler));
  }
  template <class F>
  static void _addPollingHandler(F&& handler) {
    if (!detail::addPollingHandler(typeid(Self), erase(std::forward<F>(handler)))) {
      detail::logNotPolled(typeid(Self));
    }
  }

  /// Stops to poll and lets the handlers go; a fault in the log where the type is not polled.
  ///
  /// Once it has returned no request is made. One that was made before may still be sent and
  /// answered: no handler sees that, unless the type is polled anew by then. Called on the main
  /// queue, no handler is called any more; elsewhere, one that is being called may still run. Waits
  /// for a request that is being made; called while a request is made, for none.
  static void stopPolling() { detail::stopPolling(typeid(Self)); }

  /// Sends this request now. The type's timer, where it is polled, is held until `completion` is
  /// about to be called with the response, on the queue as with `send`. The send is not the
  /// request's own but `_send`.
  template <class F>
  static void firePoll(const Self& request, std::optional<DispatchQueue> completionQueue,
                       F&& completion) {
    using Response = typename Self::Response;
    static_assert(std::is_convertible_v<F&&, Completion<Response>>,
                  "The completion is callable with the request's `Response`.");
    _run(request, std::move(completionQueue),
         [pause = detail::PollingPause(typeid(Self)),
          completion =
              Completion<Response>(std::forward<F>(completion))](Response response) mutable {
           pause.end();
           completion(std::move(response));
         });
  }
  /// The same, for each attempt of `sendAttemptingRetry`.
  template <class F>
  static void firePollForRetryable(const Self& request,
                                   std::optional<DispatchQueue> completionQueue, F&& completion) {
    HTTPPolling::firePoll(request, std::move(completionQueue), std::forward<F>(completion));
  }

  /// Sends as `sendAttemptingRetry` does, its first attempt by the request's own send, and
  /// completes with the one response that counts: the successful one, else the last.
  template <class F, class R = Self>
  void sendFromPoll(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    static_assert(std::derived_from<R, HTTPRetryAttempting<R>>,
                  "`sendFromPoll` is for requests that are a `tarn::HTTPRetryAttempting` too.");
    detail::requireHTTPRetryAttempting<R>();
    using Response = typename R::Response;
    static_assert(std::is_convertible_v<F&&, Completion<Response>>,
                  "The completion is callable with the request's `Response`.");
    detail::sendAttemptingRetry<R>(
        static_cast<const R&>(*this), std::move(completionQueue),
        [completion = Completion<Response>(std::forward<F>(completion))](
            const HTTPRetryResult<Response>& result) { completion(detail::lastResponse(result)); },
        true);
  }

  template <class F>
  static void _run(const Self& request, std::optional<DispatchQueue> completionQueue,
                   F&& completion) {
    request._send(std::move(completionQueue), std::forward<F>(completion));
  }

 private:
  template <class F>
  static detail::AnyPollingHandler erase(F&& handler) {
    detail::requirePollingHandler<Self, F&&>();
    PollingHandler<Self> erased(std::forward<F>(handler));
    if (!erased) return nullptr;
    return std::make_shared<const PollingHandler<Self>>(std::move(erased));
  }

  static bool processTimerInvocation() {
    const std::optional<Self> request = Self::make();
    if (!request || !detail::property::shouldFirePoll<Self>()) return false;
    // Both are the application's: they may have stopped the timer.
    if (!detail::isTimerRunning(typeid(Self))) return false;
    _run(*request, DispatchQueue::main(),
         [request = *request](const typename Self::Response& response) {
           handle(request, response);
         });
    return true;
  }

  template <class Response>
  static void handle(const Self& request, const Response& response) {
    detail::callPollingHandlers(typeid(Self), [&](const void* handler) {
      (*static_cast<const PollingHandler<Self>*>(handler))(request, response);
    });
  }
};

}  // namespace tarn
