#pragma once

#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Responses/JSONResponse.hpp>

#include <memory>

namespace tarn {

/// A request that is answered with JSON, decoded into a `JSONType`. Runs on the shared
/// DataTaskProducer.
template <class Self, class JSONType, class Base = HTTPRequestableDefaults<Self>>
struct JSONRequestable : Base {
  using JSON = JSONType;
  using Response = JSONResponse<JSON>;
  using TaskProducer = DataTaskProducer;
  HTTPMediaType acceptType() const { return HTTPMediaType::json; }
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};

/// A request with a body that is sent as JSON: any JSONEncodable value, encoded with the encoder of
/// its type.
template <class Self, class Base = HTTPBodyRequestableDefaults<Self>>
struct JSONBodyRequestable : Base {
  template <class R = Self>
  HTTPMediaType contentType() const {
    static_assert(
        JSONEncodable<detail::BodyOf<R>> || !detail::SendableBody<detail::BodyOf<R>>,
        "The body of a JSON request is written as JSON: bytes are sent by a data request, "
        "and a type that turns itself into bytes has to name its `encoder()`.");
    return HTTPMediaType::json;
  }
};

template <class Self, class JSON, class Base = HTTPRequestableDefaults<Self>>
struct JSONGetRequestable : JSONRequestable<Self, JSON, HTTPGetRequestable<Self, Base>> {};
template <class Self, class JSON, class Base = HTTPRequestableDefaults<Self>>
struct JSONPostRequestable
    : JSONRequestable<Self, JSON, JSONBodyRequestable<Self, HTTPPostRequestable<Self, Base>>> {};
template <class Self, class JSON, class Base = HTTPRequestableDefaults<Self>>
struct JSONPutRequestable
    : JSONRequestable<Self, JSON, JSONBodyRequestable<Self, HTTPPutRequestable<Self, Base>>> {};
template <class Self, class JSON, class Base = HTTPRequestableDefaults<Self>>
struct JSONPatchRequestable
    : JSONRequestable<Self, JSON, JSONBodyRequestable<Self, HTTPPatchRequestable<Self, Base>>> {};
template <class Self, class JSON, class Base = HTTPRequestableDefaults<Self>>
struct JSONDeleteRequestable : JSONRequestable<Self, JSON, HTTPDeleteRequestable<Self, Base>> {};

}  // namespace tarn
