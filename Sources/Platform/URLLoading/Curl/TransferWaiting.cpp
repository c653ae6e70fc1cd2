#include <Platform/URLLoading/Curl/Failure.hpp>
#include <Platform/URLLoading/Curl/Routes.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

// The part of Transfer that waits for a route to the host.
namespace tarn::detail {

// libcurl tells the last error only, which may be that of one address among others that the machine
// has a route to. A name that can't be looked up has the same code whether it does not exist or
// nobody could be asked.
bool Transfer::lacksRoute(const Failure& failure) const noexcept {
  switch (failure.curlCode) {
    case CURLE_COULDNT_CONNECT:
      return maySayNoRoute(failure.systemError) && !hasRouteToAny(triedAddresses_);
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return !hasRouteForNames();
    default:
      return false;
  }
}

// It stays with the monitor until a connection stands, so that no change can come unheard between
// two attempts.
void Transfer::waitForRoute() {
  auto& routes = core_->engine().routes();
  if (!routes.add(*this)) return finish(std::move(outcome_));
  outcome_.reset();
  if (routes.changes() != routesTried_) return enterQueue();
  stage_ = Stage::waiting;
  if (!std::exchange(toldWaiting_, true)) task_->tellWaiting();
  armTimer();
}

void Transfer::routesChanged() noexcept {
  if (stage_ == Stage::waiting) guarded(&Transfer::enterQueue);
}

}  // namespace tarn::detail
