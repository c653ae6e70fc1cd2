#pragma once

#include <algorithm>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "RequestQueue.hpp"

namespace bench {

/// The client of a library whose calls block: a thread for each connection. A single request at a
/// time is sent by the calling thread.
class BlockingClient : public Client {
 public:
  /// One keep-alive connection, used by one thread at a time.
  class Connection {
   public:
    virtual ~Connection() = default;
    /// Does the workload's request once and records it.
    virtual void exchange(RequestQueue::Clock::time_point queued, Recorder& recorder) = 0;
  };

  template <class Make>
  BlockingClient(const Workload& workload, Make makeConnection)
      : inFlight_(workload.name == "burst" ? workload.requests : workload.inFlight) {
    for (std::size_t count = std::min(workload.connections, inFlight_); count > 0; --count) {
      connections_.push_back(makeConnection());
    }
  }

  void run(std::size_t requests, Recorder& recorder) override {
    RequestQueue queue(requests, inFlight_);
    const auto work = [&](Connection& connection) {
      try {
        while (const auto queued = queue.take()) {
          connection.exchange(*queued, recorder);
          queue.finish();
        }
      } catch (const std::exception& error) {
        fail(error.what());
      }
    };
    if (connections_.size() == 1) return work(*connections_.front());
    std::vector<std::jthread> threads;
    for (const auto& connection : connections_) {
      threads.emplace_back([&work, &connection] { work(*connection); });
    }
  }

 private:
  const std::size_t inFlight_;
  std::vector<std::unique_ptr<Connection>> connections_;
};

}  // namespace bench
