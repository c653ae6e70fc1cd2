#pragma once

#include <Platform/Dispatch/DispatchTime.hpp>
#include <Platform/Dispatch/QualityOfService.hpp>
#include <Platform/Dispatch/UniqueFunction.hpp>
#include <Platform/Types/TimeInterval.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace tarn {

class DispatchGroup;

namespace detail {
class QueueCore;

/// One queue that a thread is inside of; the frames of a thread form a list from the innermost
/// outwards.
struct QueueFrame {
  const QueueCore* queue;
  const QueueFrame* outer;
};
}  // namespace detail

/// A handle on a queue that runs work in the order in which it was added, on threads shared by all
/// queues.
///
/// Copies are cheap and name the same queue. All operations are callable from any thread. A queue
/// lives until its last handle is gone and the work added by then has run. An exception that leaves
/// an asynchronous item is reported as an uncaught error under the queue's label, and the queue
/// goes on.
class DispatchQueue {
 public:
  enum class Attribute {
    serial,     ///< One item at a time.
    concurrent  ///< Items start in order and may overlap.
  };

  explicit DispatchQueue(std::string label,
                         QualityOfService qualityOfService = QualityOfService::unspecified,
                         Attribute attribute = Attribute::serial);

  /// The serial queue whose items run only where the program drains it; see MainQueue.
  static DispatchQueue main();

  /// The process-wide concurrent queue of a quality of service.
  static DispatchQueue global(QualityOfService qualityOfService = QualityOfService::default_);

  const std::string& label() const noexcept;
  QualityOfService qualityOfService() const noexcept;

  /// Adds an item and returns at once.
  ///
  /// Called from an item on the shared threads, the new item preferably runs next on the same
  /// thread.
  void async(Work work) const;

  /// Adds an item that counts as a member of `group` until it has run.
  void async(const DispatchGroup& group, Work work) const;

  /// Runs `body` in its turn and returns what it returns or throws what it throws.
  ///
  /// `body` runs on the calling thread, at once where the queue is idle (or concurrent); on the
  /// main queue it runs where that is drained. Waiting on one of the shared threads is made up for
  /// by another thread. A serial queue that the calling thread is already running on would wait for
  /// ever: fatal error.
  template <class F>
  std::invoke_result_t<F> sync(F&& body) const;

  /// Adds the item when `deadline` of the Dispatch clock has come; now, if it has passed.
  void asyncAfter(DispatchTime deadline, Work work) const;
  void asyncAfter(TimeInterval delay, Work work) const;

  /// Whether the calling thread is inside an item of this queue, however deep.
  bool isCurrent() const noexcept;

  friend bool operator==(const DispatchQueue&, const DispatchQueue&) noexcept = default;

 private:
  /// The calling thread's turn on a queue that is not the main queue.
  class Turn {
   public:
    explicit Turn(std::shared_ptr<detail::QueueCore> core);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    // A reference of its own: the body may drop the last handle of its queue.
    std::shared_ptr<detail::QueueCore> core_;
    detail::QueueFrame frame_;
  };

  explicit DispatchQueue(std::shared_ptr<detail::QueueCore> core) noexcept
      : core_(std::move(core)) {}

  bool isMain() const noexcept;
  static void runOnMain(Work work);

  std::shared_ptr<detail::QueueCore> core_;
};

template <class F>
std::invoke_result_t<F> DispatchQueue::sync(F&& body) const {
  using Result = std::invoke_result_t<F>;
  if (!isMain()) {
    const Turn turn(core_);
    return std::invoke(std::forward<F>(body));
  }
  if constexpr (std::is_void_v<Result>) {
    runOnMain([&] { std::invoke(std::forward<F>(body)); });
  } else if constexpr (std::is_reference_v<Result>) {
    std::remove_reference_t<Result>* result = nullptr;
    runOnMain([&] {
      Result&& reference = std::invoke(std::forward<F>(body));
      result = std::addressof(reference);
    });
    return static_cast<Result>(*result);
  } else {
    std::optional<Result> result;
    runOnMain([&] { result.emplace(std::invoke(std::forward<F>(body))); });
    return *std::move(result);
  }
}

}  // namespace tarn
