#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Types/FatalError.hpp>
#include <TarnLogger/ErrorLoggable.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Responses/FoundationError.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

#include <cstdint>
#include <string>

namespace tarn::detail {

const DispatchQueue& sendQueue() {
  const NoForkScope scope;  // not while it is being made
  static const auto& queue =
      *new DispatchQueue(queueLabel("tarnservice.sendqueue"), QualityOfService::unspecified,
                         DispatchQueue::Attribute::concurrent);
  return queue;
}

void logSendFailure(std::string_view requestType, const Error& error) noexcept {
  try {
    logger().error(
        "Failure sending request " + std::string(requestType) + ": " + error.localizedDescription(),
        {}, {}, SourceLocation::in("_send(completionQueue:_:)"));
  } catch (...) {
    // Out of memory: the response tells all the same.
  }
}

void reportThrowing(std::string_view callback, const Error& error) noexcept {
  try {
    logger().fault(std::string(callback) + " threw: " + error.localizedDescription(),
                   createLogInfoDictionary(error));
  } catch (...) {
    // Out of memory: there is nobody left to tell.
  }
}

Error networkError(const Error& transportError) {
  const std::int64_t code = transportError.code();
  if (!std::in_range<std::int32_t>(code)) {
    fatalError("A transport error has a code that is no network error: " + std::to_string(code));
  }
  return CFNetworkErrors(static_cast<std::int32_t>(code));
}

Error unacceptableStatus(const URLResponse* response) {
  const auto* http = httpResponse(response);
  return HTTPResponseError::unacceptableStatus(http ? status(*http)
                                                    : HTTPStatus(HTTPStatus::unknown));
}

}  // namespace tarn::detail
