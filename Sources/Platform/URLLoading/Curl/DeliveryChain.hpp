#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace tarn {
class OperationQueue;
}

namespace tarn::detail {

class CurlTask;

/// Several tasks with events for the same queue, an operation each, of which only the first is put
/// there from outside: each operation adds the next before it runs its own task.
///
/// A shared thread keeps the work that it adds itself as its next, so one thread is woken for the
/// whole chain; where a task's event takes long or blocks, the queue gives the rest to another.
class DeliveryChain {
 public:
  /// `capacity`: the most tasks that it takes.
  DeliveryChain(std::shared_ptr<OperationQueue> queue, std::size_t capacity);

  bool takes(const OperationQueue& queue) const noexcept;
  void add(std::shared_ptr<CurlTask> task) noexcept { tasks_.push_back(std::move(task)); }
  static void start(std::shared_ptr<DeliveryChain> chain);

 private:
  static void runNext(const std::shared_ptr<DeliveryChain>& chain);
  static bool handOn(const std::shared_ptr<DeliveryChain>& chain);

  const std::shared_ptr<OperationQueue> queue_;
  const std::size_t capacity_;
  std::vector<std::shared_ptr<CurlTask>> tasks_;
  std::size_t next_ = 0;  // used by one operation after another
};

}  // namespace tarn::detail
