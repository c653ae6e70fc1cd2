#include <Platform/Types/FatalError.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>
#include <TarnService/Sending/HTTPRetryAtempting.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <string>

namespace tarn::detail {

DispatchQueue makeRetryQueue() { return DispatchQueue(queueLabel("HTTPRetryAttempting.queue")); }

DispatchTime nextTryDispatchTime(double retryInterval, std::int64_t retryDelta,
                                 std::int64_t attempt) {
  std::int64_t growth = 0;
  if (__builtin_mul_overflow(retryDelta, attempt, &growth)) {
    fatalError("The delay before a retry is out of range: retryDelta * " + std::to_string(attempt));
  }
  return DispatchTime::now() + TimeInterval(retryInterval + static_cast<double>(growth));
}

Error completionWithoutResponse() {
  constexpr auto function = "sendFromPoll(completionQueue:completion:)";
  logger().fault("Hit completion without some sort response. This is an invalid state.", {}, {},
                 SourceLocation::in(function));
  // The line is kept: it identifies the error to those who read logs.
  return HTTPUnknownError::completionWithoutResponseFromPolling(
      SourceLocation::in(function, __builtin_FILE(), 116));
}

}  // namespace tarn::detail
