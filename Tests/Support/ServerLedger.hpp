#pragma once
#include <Support/ScriptedServer.hpp>

#include <condition_variable>
#include <mutex>

// Private to the scripted server: what its thread writes down and the test's threads read.
namespace tarn::test::detail {

struct ServerLedger {
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  bool recordRequests = true;
  std::vector<ReceivedRequest> requests;
  std::vector<ConnectionRecord> connections;
  std::size_t requestCount = 0;
  std::size_t open = 0;
  std::size_t peak = 0;
  std::size_t closedByClient = 0;
  std::size_t stalled = 0;

  template <class Change>
  auto change(Change change) {
    std::lock_guard lock(mutex);
    changed.notify_all();
    return change(*this);
  }
  template <class Read>
  auto read(Read read) const {
    std::lock_guard lock(mutex);
    return read(*this);
  }
  template <class Condition>
  bool waitUntil(Condition condition, std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return condition(*this); });
  }
};

}  // namespace tarn::test::detail
