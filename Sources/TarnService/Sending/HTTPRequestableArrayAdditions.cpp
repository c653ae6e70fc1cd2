#include <Platform/Dispatch/ForkSafety.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Sending/HTTPRequestableArrayAdditions.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <cmath>

namespace tarn::detail {

const DispatchQueue& serialArrayQueue() {
  const NoForkScope scope;  // not while it is being made
  static const auto& queue =
      *new DispatchQueue(queueLabel("tarnservice.httprequestable.array.serial"));
  return queue;
}

TimeInterval waitLimit(TimeInterval timeoutInterval) {
  return TimeInterval(std::trunc(timeoutInterval.count()));
}

Error requestTimeout() { return HTTPResponseError::unacceptableStatus(HTTPStatus::requestTimeout); }

}  // namespace tarn::detail
