#pragma once

#include <Tambour/FutureCoroutine.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/Responses/HTTPResponse.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Sending/RequestProgress.hpp>

#include <concepts>
#include <optional>
#include <utility>

namespace tarn {

/// The future of a request: its answer with the body that is certain to be there.
template <HTTPRequestable R>
using ResponseFuture =
    Future<HTTPResponse<typename R::Response, typename R::Response::Result::Body>>;

namespace detail {

/// The sends of a request that answer a future.
template <class R>
struct PromiseOperations {
  using Response = typename R::Response;
  using Body = typename Response::Result::Body;

  static ResponseFuture<R> createFuture() { return {}; }

  static ResponseFuture<R> send(const R& request) {
    const ResponseFuture<R> future = makeFuture(request);
    request.send(std::nullopt, completion(future));
    return future;
  }

  /// Tells the future's handlers of a download's progress too.
  static ResponseFuture<R> sendWithProgress(const R& request, std::optional<DispatchQueue> queue) {
    const ResponseFuture<R> future = makeFuture(request);
    request.send(
        std::move(queue), [future](RequestProgress progress) { future.reportProgress(progress); },
        completion(future));
    return future;
  }

  static void mark(const ResponseFuture<R>& future, Response response) {
    if (const std::optional<Error> error = response.result.error()) {
      future.markFailure(*error);
      return;
    }
    std::optional<Body> body = std::move(response.result).body();
    if (!body) {
      // The line is kept: callers rely on it.
      future.markFailure(
          HTTPUnknownError::futureFailedToMapBody({__FILE__, "mark(future:with:)", 36}));
      return;
    }
    future.markCompletion({response, *std::move(body)});
  }

 private:
  static ResponseFuture<R> makeFuture(const R& request) {
    const ResponseFuture<R> future = request.createFuture();
    if constexpr (std::derived_from<R, HTTPRequestCancelable<R>>) {
      future.onCancel([request] { request.cancel(); });
    }
    return future;
  }

  static Completion<Response> completion(const ResponseFuture<R>& future) {
    return [promise = Promise(future)](Response response) {
      R::mark(promise.future(), std::move(response));
    };
  }
};

}  // namespace detail
}  // namespace tarn
