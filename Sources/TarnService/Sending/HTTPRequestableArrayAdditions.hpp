#pragma once

#include <Platform/Dispatch/DispatchGroup.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Transport/ThreadSafeDictionary.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarn {

/// What is told of each answer of a batch, with the request that it answers.
template <class R>
using BatchUpdate = std::function<void(const R& request, const typename R::Response& response)>;

namespace detail {

/// The queue on which every serial batch of the process runs, one batch after another.
const DispatchQueue& serialArrayQueue();
/// How long a serial batch waits for an answer: whole seconds, the fraction dropped.
TimeInterval waitLimit(TimeInterval timeoutInterval);
/// What stands in a serial batch for an answer that was not waited for any longer.
Error requestTimeout();

/// One enter() of a group, balanced when the object goes.
class GroupMember {
 public:
  explicit GroupMember(DispatchGroup group) : group_(std::move(group)) { group_->enter(); }
  GroupMember(GroupMember&& other) noexcept : group_(std::exchange(other.group_, std::nullopt)) {}
  ~GroupMember() {
    if (group_) group_->leave();
  }
  GroupMember& operator=(GroupMember&&) = delete;

 private:
  std::optional<DispatchGroup> group_;
};

/// A batch on its way, shared by the completions of its requests, which may outlast it.
template <class R>
struct Batch {
  using Response = typename R::Response;
  using Ref = std::shared_ptr<Batch>;

  const std::vector<R> requests;
  const std::optional<DispatchQueue> completionQueue;
  const BatchUpdate<R> update;
  const Completion<std::vector<Response>> completion;
  ThreadSafeArray<Response> responses = {};  // in the order in which they came

  static void sendParallel(const Ref& batch) {
    const DispatchGroup group;
    for (const R& request : batch->requests) {
      // Left when the completion is let go, by a request that declines to be sent too.
      send(batch, request, [member = GroupMember(group)] {});
    }
    group.notify(batch->completionQueue.value_or(DispatchQueue::global()),
                 [batch] { batch->complete(batch->responses.takeAll()); });
  }

  static void sendSerial(const Ref& batch) {
    serialArrayQueue().async([batch] {
      for (const R& request : batch->requests) sendAndWait(batch, request);
      async(batch->completionQueue, [batch, responses = batch->responses.takeAll()]() mutable {
        batch->complete(std::move(responses));
      });
    });
  }

 private:
  static void sendAndWait(const Ref& batch, const R& request) {
    const DispatchSemaphore answered(0);
    send(batch, request, [answered] { answered.signal(); });
    TimeInterval limit{0};
    callLogged("A request's timeoutInterval",
               [&] { limit = waitLimit(property::timeoutInterval(request)); });
    // The answer, if it comes after all, still goes to the list: kept, and without harm where the
    // list was delivered before.
    if (!answered.wait(limit)) batch->responses.append(failure(requestTimeout()));
  }

  /// Sends one request through its own send; `whenDone` is called once the answer is in the list. A
  /// send that throws has failed.
  template <class F>
  static void send(const Ref& batch, const R& request, F whenDone) {
    const Completion<Response> onResponse([batch, &request,
                                           whenDone = std::move(whenDone)](Response response) {
      if (batch->update) {
        callLogged("A batch's update", [&] { batch->update(request, std::as_const(response)); });
      }
      batch->responses.append(std::move(response));
      whenDone();
    });
    std::optional<Error> thrown;
    try {
      request.send(std::nullopt, onResponse);
    } catch (...) {
      thrown = Error::current();
    }
    if (thrown) onResponse(failure(*std::move(thrown)));
  }

  static Response failure(Error error) {
    return Response(std::nullopt, std::nullopt, nullptr, std::move(error));
  }

  void complete(std::vector<Response> all) const {
    callLogged("A completion", [&] { completion(std::move(all)); });
  }
};

}  // namespace detail

/// Sends each request of a range, all at once or one after another, and completes once with all
/// responses, in the order in which they came, which need not be that of the requests.
///
/// Each request goes through its own `send`, so that retries and mocks take part, and is copied:
/// the range may change meanwhile. `update` is called with each request and its response, on
/// DispatchQueue::global(), in a parallel batch from several threads at once; nullptr or an empty
/// std::function is none. `completion` receives the `std::vector` of responses on
/// `completionQueue`, or, with std::nullopt for a queue, on DispatchQueue::global(); an empty one
/// for an empty range. Returns at once; callable from any thread. Throws only what a copy of a
/// request throws: a request whose send throws has failed.
///
/// In parallel every request is sent on the caller's thread. One that declines to be sent
/// (`shouldSend`) counts as done and has no response.
///
/// Serial batches of the process run one after another, on a queue of their own that calls `send`.
/// Each request is waited for as long as its `timeoutInterval` says, in whole seconds, the fraction
/// dropped; without end where that is infinite or no number. After that, and for a request that
/// declines, HTTPResponseError::unacceptableStatus(requestTimeout) takes the place of its response.
/// `update` is not told. The response may still come: `update` is called with it, and it joins the
/// list unless that was delivered before.
template <std::ranges::input_range Requests, class Update, class F>
void send(Requests&& requests, std::optional<DispatchQueue> completionQueue, bool shouldParallelize,
          Update&& update, F&& completion) {
  using R = std::ranges::range_value_t<Requests>;
  detail::requireHTTPRequestable<R>();
  static_assert(std::is_convertible_v<Update&&, BatchUpdate<R>>,
                "The update of a batch is callable with a request and its `Response`.");
  using Responses = std::vector<typename R::Response>;
  static_assert(std::is_convertible_v<F&&, Completion<Responses>>,
                "The completion of a batch is callable with a `std::vector` of the requests' "
                "`Response`.");
  std::vector<R> copies;
  for (auto&& request : requests) copies.push_back(request);
  Completion<Responses> onEnd(std::forward<F>(completion));
  if (copies.empty()) {
    return async(completionQueue, [onEnd = std::move(onEnd)] {
      detail::callLogged("A completion", [&] { onEnd({}); });
    });
  }
  const typename detail::Batch<R>::Ref batch(
      new detail::Batch<R>{std::move(copies), std::move(completionQueue),
                           BatchUpdate<R>(std::forward<Update>(update)), std::move(onEnd)});
  shouldParallelize ? detail::Batch<R>::sendParallel(batch) : detail::Batch<R>::sendSerial(batch);
}
/// The same without an update.
template <std::ranges::input_range Requests, class F>
void send(Requests&& requests, std::optional<DispatchQueue> completionQueue, bool shouldParallelize,
          F&& completion) {
  tarn::send(std::forward<Requests>(requests), std::move(completionQueue), shouldParallelize,
             nullptr, std::forward<F>(completion));
}

}  // namespace tarn
