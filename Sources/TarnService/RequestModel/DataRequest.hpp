#pragma once

#include <TarnService/RequestModel/DataRequestable.hpp>

#include <utility>

namespace tarn {
namespace detail {

/// What every ready-made request stores. The URL is taken verbatim: the query items are not added
/// to it, they are carried for debug output and for types that build a URL of their own.
template <class Interface>
struct StoredRequest : Interface {
  URL url;
  HTTPMethod method;
  HTTPHeaders headers;
  HTTPQueryItems queryItems;

  StoredRequest(URL url, HTTPMethod method, HTTPHeaders headers, HTTPQueryItems queryItems)
      : url(std::move(url)),
        method(std::move(method)),
        headers(std::move(headers)),
        queryItems(std::move(queryItems)) {}

  /// The stored URL's own base URL, or URL::empty().
  URL baseURL() const { return url.baseURL().value_or(URL::empty()); }
};

/// The same with a body.
template <class Interface, class Body>
struct StoredBodyRequest : StoredRequest<Interface> {
  Body body;

  StoredBodyRequest(URL url, HTTPMethod method, Body body, HTTPHeaders headers,
                    HTTPQueryItems queryItems)
      : StoredRequest<Interface>(std::move(url), std::move(method), std::move(headers),
                                 std::move(queryItems)),
        body(std::move(body)) {}
};

}  // namespace detail

/// A request for raw bytes with any method and a body, made from its parts.
struct DataRequest
    : detail::StoredBodyRequest<
          DataRequestable<DataRequest, HTTPBodyRequestableDefaults<DataRequest>>, Data> {
  explicit DataRequest(URL url, HTTPMethod method, Data body = {}, HTTPHeaders headers = {},
                       HTTPQueryItems queryItems = {})
      : StoredBodyRequest(std::move(url), std::move(method), std::move(body), std::move(headers),
                          std::move(queryItems)) {}
};

/// GET for raw bytes.
struct DataGetRequest : detail::StoredRequest<DataGetRequestable<DataGetRequest>> {
  explicit DataGetRequest(URL url, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : StoredRequest(std::move(url), HTTPMethod::get, std::move(headers), std::move(queryItems)) {}
};

/// POST of bytes.
struct DataPostRequest : detail::StoredBodyRequest<DataPostRequestable<DataPostRequest>, Data> {
  DataPostRequest(URL url, Data body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : StoredBodyRequest(std::move(url), HTTPMethod::post, std::move(body), std::move(headers),
                          std::move(queryItems)) {}
};

/// PUT of bytes.
struct DataPutRequest : detail::StoredBodyRequest<DataPutRequestable<DataPutRequest>, Data> {
  DataPutRequest(URL url, Data body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : StoredBodyRequest(std::move(url), HTTPMethod::put, std::move(body), std::move(headers),
                          std::move(queryItems)) {}
};

/// PATCH with bytes.
struct DataPatchRequest : detail::StoredBodyRequest<DataPatchRequestable<DataPatchRequest>, Data> {
  DataPatchRequest(URL url, Data body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : StoredBodyRequest(std::move(url), HTTPMethod::patch, std::move(body), std::move(headers),
                          std::move(queryItems)) {}
};

/// DELETE.
struct DataDeleteRequest : detail::StoredRequest<DataDeleteRequestable<DataDeleteRequest>> {
  explicit DataDeleteRequest(URL url, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : StoredRequest(std::move(url), HTTPMethod::delete_, std::move(headers),
                      std::move(queryItems)) {}
};

}  // namespace tarn
