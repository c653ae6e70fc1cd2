#pragma once

#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Transport/DataTaskProducer.hpp>

#include <memory>

namespace tarn {

/// The HTTP verbs: each fixes the method. Those with a body ask for a `body()`.
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPGetRequestable : Base {
  HTTPMethod method() const { return HTTPMethod::get; }
};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPPostRequestable : HTTPBodyRequestableDefaults<Self, Base> {
  HTTPMethod method() const { return HTTPMethod::post; }
};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPPutRequestable : HTTPBodyRequestableDefaults<Self, Base> {
  HTTPMethod method() const { return HTTPMethod::put; }
};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPPatchRequestable : HTTPBodyRequestableDefaults<Self, Base> {
  HTTPMethod method() const { return HTTPMethod::patch; }
};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPDeleteRequestable : Base {
  HTTPMethod method() const { return HTTPMethod::delete_; }
};

/// A request that runs on the shared DataTaskProducer. Answered with a DataResponse unless it names
/// another record.
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataRequestable : Base {
  using Response = DataResponse;
  using TaskProducer = DataTaskProducer;
  std::shared_ptr<DataTaskProducer> taskProducer() const { return DataTaskProducer::shared(); }
};

template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataGetRequestable : DataRequestable<Self, HTTPGetRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataPostRequestable : DataRequestable<Self, HTTPPostRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataPutRequestable : DataRequestable<Self, HTTPPutRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataPatchRequestable : DataRequestable<Self, HTTPPatchRequestable<Self, Base>> {};
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct DataDeleteRequestable : DataRequestable<Self, HTTPDeleteRequestable<Self, Base>> {};

}  // namespace tarn
