#include <TarnService/RequestModel/DataRequestable.hpp>

#include <string>

/// A request that can be cancelled has an identifier.
struct Request : tarn::DataGetRequestable<Request>, tarn::HTTPRequestCancelable<Request> {
#ifdef FAULT_identifierIsText
  std::string cancellationIdentifier;
#elif !defined(FAULT_withoutIdentifier)
  tarn::UUID cancellationIdentifier;
#endif
};

void cancel() { Request().cancel(); }
