#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Tambour/OptionalQueue.hpp>
#include <TarnService/Sending/RequestProgress.hpp>

#include <memory>
#include <optional>
#include <utility>

namespace tarn::detail {

using ProgressHandler = UniqueFunction<void(RequestProgress)>;

/// Brings the progress of one send to its caller's queue, one call at a time, and its completion
/// after the last of them, also where the queue is concurrent.
///
/// No more than one item of it waits in the queue: a caller that is slow sees fewer and later
/// values, never old ones. Lets go of the handler when the send is finished. Callable from any
/// thread.
class ProgressRelay : public std::enable_shared_from_this<ProgressRelay> {
 public:
  ProgressRelay(std::optional<DispatchQueue> queue, ProgressHandler handler)
      : queue_(std::move(queue)), handler_(std::move(handler)) {}

  void report(RequestProgress progress);
  /// To be called once, on the caller's queue: calls the handler with what it has not seen yet,
  /// then `completion`. While the handler runs on another thread this is left to that thread, for
  /// when the handler returns.
  void finish(Work completion);

 private:
  void enqueue();
  void run();
  void conclude();
  void call(RequestProgress progress) noexcept;

  const std::optional<DispatchQueue> queue_;
  ProgressHandler handler_;  // belongs to whoever has set running_
  Mutex mutex_;
  std::optional<RequestProgress> latest_ TARN_GUARDED_BY(mutex_);
  Work completion_ TARN_GUARDED_BY(mutex_);
  bool queued_ TARN_GUARDED_BY(mutex_) = false;
  bool running_ TARN_GUARDED_BY(mutex_) = false;
  bool finished_ TARN_GUARDED_BY(mutex_) = false;
};

}  // namespace tarn::detail
