#pragma once

#include <Platform/Types/AnyValue.hpp>
#include <Platform/Types/TimeInterval.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/URLLoading/URLRequest.hpp>
#include <Tambour/DataRepresentable.hpp>
#include <Tambour/JSONEncodable.hpp>
#include <TarnService/RequestModel/HTTPContentEncoder.hpp>
#include <TarnService/RequestModel/HTTPMediaType.hpp>
#include <TarnService/RequestModel/HTTPMethod.hpp>
#include <TarnService/Responses/HTTPResponsable.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>

#include <concepts>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

using HTTPHeaders = std::map<std::string, std::string>;
/// Names and values of a query; a value is sent as its textual description.
using HTTPQueryItems = std::map<std::string, AnyValue>;

namespace detail::property {

// How the library reads the properties of a request: a property is a const member function without
// arguments or a stored field of the same name. The concepts look at the members themselves: asking
// by way of the functions below would compile the defaults of a type that only fails to conform.
#define TARN_PROPERTY(name)                           \
  template <class R>                                  \
  concept name##Exists = requires(const R& request) { \
    request.name();                                   \
  }                                                   \
  || requires(const R& request) { request.name; };    \
  template <class R>                                  \
  decltype(auto) name(const R& request) {             \
    if constexpr (requires { request.name(); }) {     \
      return request.name();                          \
    } else {                                          \
      return (request.name);                          \
    }                                                 \
  }                                                   \
  template <class R, class T>                         \
  concept name##Is = requires(const R& request) {     \
    { request.name() } -> std::convertible_to<T>;     \
  }                                                   \
  || requires(const R& request) {                     \
    { request.name } -> std::convertible_to<T>;       \
  };

TARN_PROPERTY(shouldSend)
TARN_PROPERTY(taskProducer)
TARN_PROPERTY(cachePolicy)
TARN_PROPERTY(method)
TARN_PROPERTY(timeoutInterval)
TARN_PROPERTY(shouldWaitForConnectivity)
TARN_PROPERTY(headers)
TARN_PROPERTY(url)
TARN_PROPERTY(baseURL)
TARN_PROPERTY(path)
TARN_PROPERTY(queryItems)
TARN_PROPERTY(acceptType)
TARN_PROPERTY(contentType)
TARN_PROPERTY(contentEncoder)
TARN_PROPERTY(body)
TARN_PROPERTY(cancellationIdentifier)
TARN_PROPERTY(mockHeaders)
TARN_PROPERTY(mockURL)
TARN_PROPERTY(mockStatus)
TARN_PROPERTY(mockResponseTime)
TARN_PROPERTY(mockExpectedContentLength)
TARN_PROPERTY(mockSuggestedFilename)
TARN_PROPERTY(mockMimeType)
TARN_PROPERTY(mockTextEncodingName)
TARN_PROPERTY(mockError)
TARN_PROPERTY(mockResponseData)
TARN_PROPERTY(testHeaders)
TARN_PROPERTY(testURL)
TARN_PROPERTY(testStatus)
TARN_PROPERTY(testResponseTime)
TARN_PROPERTY(testExpectedContentLength)
TARN_PROPERTY(testSuggestedFilename)
TARN_PROPERTY(testMimeType)
TARN_PROPERTY(testTextEncodingName)
TARN_PROPERTY(testError)
TARN_PROPERTY(testResponseData)
#undef TARN_PROPERTY

}  // namespace detail::property

namespace detail {

/// What can be sent as a body: bytes, what turns itself into bytes, and what is written as JSON. A
/// text would be sent in quotes where bytes that are JSON already are meant, so it has to say
/// which.
template <class Body>
concept SendableBody = DataRepresentable<Body> ||
    (JSONEncodable<Body> && !std::convertible_to<const Body&, std::string_view>);

/// The bytes of a body.
template <SendableBody Body>
Data bytesOf(const Body& body) {
  if constexpr (DataRepresentable<Body>) {
    return body.asData();
  } else {
    return encoderOf<Body>().encode(body);
  }
}

}  // namespace detail

/// One concept for each thing that a request has to say of itself.
namespace requirement {

namespace property = detail::property;

template <class R>
concept NamesItsResponse = requires {
  typename R::Response;
}
&&HTTPResponsable<typename R::Response>;
template <class R>
concept NamesItsTaskProducer = requires {
  typename R::TaskProducer;
}
&&std::derived_from<typename R::TaskProducer, HTTPTaskProducer>&&
    property::taskProducerIs<R, std::shared_ptr<typename R::TaskProducer>>;
template <class R>
concept HasMethod = property::methodIs<R, HTTPMethod>;
template <class R>
concept HasHeaders = property::headersIs<R, HTTPHeaders>;
template <class R>
concept HasAddress =
    property::urlIs<R, URL> && property::baseURLIs<R, URL> && property::pathIs<R, std::string>;
template <class R>
concept HasQueryItems = property::queryItemsIs<R, HTTPQueryItems>;
template <class R>
concept HasAcceptType = property::acceptTypeIs<R, HTTPMediaType>;
template <class R>
concept HasSettings =
    property::shouldSendIs<R, bool> && property::shouldWaitForConnectivityIs<R, bool> &&
    property::cachePolicyIs<R, URLRequest::CachePolicy> &&
    property::timeoutIntervalIs<R, TimeInterval>;
template <class R>
concept HasBody = property::bodyExists<R> && requires(const R& request) {
  requires detail::SendableBody<std::remove_cvref_t<decltype(property::body(request))>>;
};
template <class R>
concept HasContentType = property::contentTypeIs<R, HTTPMediaType>;
template <class R>
concept HasContentEncoder = property::contentEncoderIs<R, std::optional<HTTPContentEncoderType>>;

}  // namespace requirement

/// A request: a value that says its method, address, headers, accepted media type and settings, and
/// which response record and task producer it uses. Derive from HTTPRequestableDefaults, or from
/// one of the interfaces of DataRequestable.hpp, and only what differs has to be said.
template <class R>
concept HTTPRequestable = std::copy_constructible<R> && requirement::NamesItsResponse<R> &&
    requirement::NamesItsTaskProducer<R> && requirement::HasMethod<R> &&
    requirement::HasHeaders<R> && requirement::HasAddress<R> && requirement::HasQueryItems<R> &&
    requirement::HasAcceptType<R> && requirement::HasSettings<R>;

/// A request with a body: its bytes, their media type and perhaps a content encoder.
template <class R>
concept HTTPBodyRequestable =
    requirement::HasBody<R> && requirement::HasContentType<R> && requirement::HasContentEncoder<R>;

namespace detail {

/// The type of a request's body.
template <class R>
using BodyOf = std::remove_cvref_t<decltype(property::body(std::declval<const R&>()))>;

/// Says in one sentence what a request type lacks.
template <class R>
consteval void requireHTTPRequestable() {
  static_assert(std::copy_constructible<R>, "A request is a value: it has to be copyable.");
  static_assert(requirement::NamesItsResponse<R>,
                "A request names its response record: `using Response = tarn::DataResponse;`.");
  static_assert(requirement::NamesItsTaskProducer<R>,
                "A request names its task producer, `using TaskProducer = ...;`, and answers a "
                "shared pointer to one "
                "from `taskProducer()`.");
  static_assert(requirement::HasMethod<R>,
                "A request has a method: `tarn::HTTPMethod method() const`.");
  static_assert(requirement::HasHeaders<R>, "A request's `headers` are a `tarn::HTTPHeaders`.");
  static_assert(
      requirement::HasAddress<R>,
      "A request's `url` and `baseURL` are a `tarn::URL`, its `path` is a `std::string`.");
  static_assert(requirement::HasQueryItems<R>,
                "A request's `queryItems` are a `tarn::HTTPQueryItems`.");
  static_assert(requirement::HasAcceptType<R>,
                "A request's `acceptType` is a `tarn::HTTPMediaType`.");
  static_assert(requirement::HasSettings<R>,
                "A request's `shouldSend` and `shouldWaitForConnectivity` are a `bool`, its "
                "`cachePolicy` is a "
                "`tarn::URLRequest::CachePolicy`, its `timeoutInterval` a `tarn::TimeInterval`.");
}

/// The same for a request with a body.
template <class R>
consteval void requireHTTPBodyRequestable() {
  static_assert(requirement::HasBody<R>,
                "A request with a body answers it from `body()`: bytes, a value that turns itself "
                "into bytes through `asData()`, or one that is written as JSON. A text has to say "
                "which: `tarn::Data(text)` or `tarn::JSONReference(text)`.");
  static_assert(requirement::HasContentType<R>,
                "A request with a body that is no `tarn::Data` and no JSON has a `contentType`, a "
                "`tarn::HTTPMediaType`.");
  static_assert(requirement::HasContentEncoder<R>,
                "A request's `contentEncoder` is a `std::optional<tarn::HTTPContentEncoderType>`.");
}

}  // namespace detail
}  // namespace tarn
