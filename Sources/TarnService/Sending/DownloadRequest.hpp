#pragma once

#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/Sending/DownloadRequestable.hpp>

#include <utility>

namespace tarn {

/// A download with any method, made from its parts: `DownloadRequest(url)` gives the file.
template <class Body = File>
struct DownloadRequest : detail::StoredRequest<DownloadRequestable<DownloadRequest<Body>, Body>> {
  explicit DownloadRequest(URL url, HTTPMethod method = HTTPMethod::get, HTTPHeaders headers = {},
                           HTTPQueryItems queryItems = {})
      : detail::StoredRequest<DownloadRequestable<DownloadRequest<Body>, Body>>(
            std::move(url), std::move(method), std::move(headers), std::move(queryItems)) {}
};

}  // namespace tarn
