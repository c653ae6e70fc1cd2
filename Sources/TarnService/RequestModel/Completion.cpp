#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/RequestModel/Completion.hpp>

namespace tarn {

void detail::reportSecondCompletion() noexcept {
  logger().fault("A completion was called a second time; the call is dropped");
}

}  // namespace tarn
