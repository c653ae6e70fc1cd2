#pragma once

#include <Platform/URLLoading/Curl/SocketOwner.hpp>
#include <Platform/URLLoading/Curl/TimerHeap.hpp>

#include <cstdint>
#include <vector>

namespace tarn::detail {

class Engine;

/// What waits for a route to its host.
class RouteWaiter {
 public:
  virtual void routesChanged() noexcept = 0;

 protected:
  RouteWaiter() = default;
  ~RouteWaiter() = default;
};

/// Hears of changes to the machine's links, addresses and routes, for as long as somebody waits for
/// one. A burst of changes is told once, when it is over.
///
/// On the loop thread only.
class RouteMonitor final : private SocketOwner, private Timer {
 public:
  explicit RouteMonitor(Engine& engine) noexcept : engine_(engine) {}

  /// Counts the changes. What was found before it grew says nothing about the routes there are now.
  std::uint64_t changes() const noexcept { return changes_; }
  /// From now on `waiter` is told, in order of arrival. Listening begins with the first one, which
  /// counts as a change: nobody has heard of those before. False where the system tells of none.
  bool add(RouteWaiter& waiter);
  void remove(RouteWaiter& waiter) noexcept;

 private:
  bool listen();
  void socketReady(int socket, std::uint32_t events) noexcept override;
  void timerFired() noexcept override;

  Engine& engine_;
  int socket_ = -1;
  std::uint64_t changes_ = 0;
  Clock::time_point burstEnd_;  // at the latest, however long it goes on
  bool inBurst_ = false;
  std::vector<RouteWaiter*> waiters_;
};

}  // namespace tarn::detail
