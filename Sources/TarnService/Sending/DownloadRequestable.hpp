#pragma once

#include <Tambour/File.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Responses/DownloadResponse.hpp>
#include <TarnService/Sending/HTTPRequestable+Promises.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Transport/DownloadTaskProducer.hpp>

#include <memory>
#include <optional>
#include <utility>

namespace tarn {

/// A request whose answer goes to a file, of any size. Runs on the shared DownloadTaskProducer and
/// is answered with a DownloadResponse of `BodyType`: File for the file itself, Data for its bytes,
/// or any DownloadBody.
///
/// The file lies in a directory of its own below the temporary directory, also where the answer is
/// a failure, and stays until the application moves or removes it. Where that directory or file
/// cannot be made, the answer is read from the session's own file: a body made from the contents is
/// whole, but a File names a file that is removed before the completion runs.
template <class Self, class BodyType = File, class Base = HTTPRequestableDefaults<Self>>
struct DownloadRequestable : Base {
  using Response = DownloadResponse<BodyType>;
  using TaskProducer = DownloadTaskProducer;
  std::shared_ptr<DownloadTaskProducer> taskProducer() const {
    return DownloadTaskProducer::shared();
  }

  using Base::send;
  /// Sends the request: `progress` receives a RequestProgress as the file grows, and then
  /// `completion` the one Response, on `completionQueue` or, with std::nullopt for a queue, on
  /// DispatchQueue::global().
  ///
  /// The calls come one after another, also on a concurrent queue: none overlaps another, the last
  /// progress comes before the completion, and none after it. A queue that is slow sees the latest
  /// progress only. An empty std::function is no handler: as without progress. Returns at once;
  /// throws as the send without progress does.
  template <class P, class F>
  void send(std::optional<DispatchQueue> completionQueue, P&& progress, F&& completion) const {
    detail::sendWithProgress(static_cast<const Self&>(*this), std::move(completionQueue),
                             std::forward<P>(progress), std::forward<F>(completion));
  }
  /// As the send() without arguments, with progress: the handlers of RequestProgress that are added
  /// to the future are called on `completionQueue` as the file grows. To miss nothing, add them on
  /// that queue.
  template <class R = Self>
  auto send(std::optional<DispatchQueue> completionQueue) const {
    detail::requireHTTPRequestable<R>();
    return detail::PromiseOperations<R>::sendWithProgress(static_cast<const R&>(*this),
                                                          std::move(completionQueue));
  }
};

template <class Self, class Body = File, class Base = HTTPRequestableDefaults<Self>>
struct DownloadGetRequestable : DownloadRequestable<Self, Body, HTTPGetRequestable<Self, Base>> {};
template <class Self, class Body = File, class Base = HTTPRequestableDefaults<Self>>
struct DownloadPostRequestable : DownloadRequestable<Self, Body, HTTPPostRequestable<Self, Base>> {
};

}  // namespace tarn
