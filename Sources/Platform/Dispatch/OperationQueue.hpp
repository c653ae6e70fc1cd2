#pragma once

#include <Platform/Dispatch/UniqueFunction.hpp>

#include <cstddef>
#include <limits>
#include <memory>
#include <string>

namespace tarn {

namespace detail {
class OperationQueueCore;
}

/// Runs operations on the shared threads, several at once, started in the order in which they were
/// added.
///
/// Has identity: held by shared_ptr where several share it. Callable from any thread. Operations
/// already added still run when the object goes. An exception that leaves an operation is reported
/// under the queue's name.
class OperationQueue {
 public:
  static constexpr std::size_t noLimit = std::numeric_limits<std::size_t>::max();

  explicit OperationQueue(std::string name);
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  const std::string& name() const noexcept;

  void addOperation(Work operation);

  /// How many operations may run at once: noLimit by default, 1 makes the queue serial, 0 starts
  /// none.
  std::size_t maxConcurrentOperationCount() const;

  /// Counts from the next start on; what runs already is not stopped.
  void setMaxConcurrentOperationCount(std::size_t count);

  bool isSuspended() const;

  /// While suspended no operation starts; running ones go on.
  void setSuspended(bool suspended);

  /// The operations not yet finished, waiting ones included.
  std::size_t operationCount() const;

  /// Blocks until no operation is left; a blocked shared thread is made up for by another. Inside
  /// one of its own operations it would wait for ever: fatal error.
  void waitUntilAllOperationsAreFinished();

 private:
  std::shared_ptr<detail::OperationQueueCore> core_;
};

}  // namespace tarn
