#pragma once

#include <Tambour/FileRepresentable.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Transport/UploadTaskProducer.hpp>

#include <concepts>
#include <memory>
#include <optional>
#include <utility>

namespace tarn {

/// A request that sends its `body` as an upload: a FileRepresentable one, such as File, from the
/// file as it is sent, of any size; any other from memory. Runs on the shared UploadTaskProducer
/// and is answered with a DataResponse unless it names another record.
///
/// A file is sent as it is: with a `contentEncoder` it is read and encoded in memory instead. A
/// request without a body fails when it is sent.
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct UploadRequestable : Base {
  using Response = DataResponse;
  using TaskProducer = UploadTaskProducer;
  std::shared_ptr<UploadTaskProducer> taskProducer() const { return UploadTaskProducer::shared(); }

  /// A file is what the extension of its name says; bytes and values that are written as JSON are
  /// what they are in every request.
  template <class R = Self>
  requires(detail::hasContentType<detail::BodyOf<R>> ||
           FileRepresentable<detail::BodyOf<R>>) HTTPMediaType contentType()
  const {
    if constexpr (FileRepresentable<detail::BodyOf<R>>) {
      return HTTPMediaType(mimeType(detail::property::body(static_cast<const R&>(*this))));
    } else {
      return detail::contentTypeOf<detail::BodyOf<R>>();
    }
  }

  /// The request, with its body unless that is sent from a file. Throws what the body throws.
  template <class R = Self>
  URLRequest urlRequest() const {
    if constexpr (detail::property::bodyExists<R>) {
      if constexpr (FileRepresentable<detail::BodyOf<R>>) {
        const R& self = static_cast<const R&>(*this);
        if (!std::optional<HTTPContentEncoderType>(detail::property::contentEncoder(self))) {
          URLRequest request = self.generateRequest();
          request.setValue(detail::property::contentType(self).rawValue, "Content-Type");
          return request;
        }
      }
    }
    return Base::urlRequest();
  }

  using Base::send;
  /// Sends the request as send() without progress does. `progress` is for symmetry with downloads:
  /// it is never called, since nothing reports how much of a body has been sent.
  template <class P, class F>
  void send(std::optional<DispatchQueue> completionQueue, P&& progress, F&& completion) const {
    detail::sendWithProgress(static_cast<const Self&>(*this), std::move(completionQueue),
                             std::forward<P>(progress), std::forward<F>(completion));
  }
};

template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct UploadPostRequestable : UploadRequestable<Self, HTTPPostRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct UploadPutRequestable : UploadRequestable<Self, HTTPPutRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct UploadPatchRequestable : UploadRequestable<Self, HTTPPatchRequestable<Self, Base>> {};

}  // namespace tarn
