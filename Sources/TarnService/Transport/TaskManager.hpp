#pragma once

#include <Platform/Types/UUID.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>
#include <TarnService/Transport/ThreadSafeDictionary.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <variant>

namespace tarn {

/// How far each cancellable request has come, by its cancellation identifier.
///
/// Callable from any thread. cancel() reads and then writes in two steps, and insertCreated()
/// overwrites whatever is stored: a cancellation that falls between the last check of a request and
/// the insertion of its task is lost.
class TaskManager {
 public:
  class State {
   public:
    enum class Case {
      created,
      createdAndMarkedForCancellation,
      notCreated,
      notCreatedAndMarkedForCancellation,
    };

    static State created(std::shared_ptr<URLSessionTask> task);
    static State createdAndMarkedForCancellation(std::shared_ptr<URLSessionTask> task);
    static State notCreated();
    static State notCreatedAndMarkedForCancellation();

    Case kind() const noexcept { return case_; }
    /// The task of the two created cases; null otherwise.
    const std::shared_ptr<URLSessionTask>& task() const noexcept { return task_; }

   private:
    State(Case kind, std::shared_ptr<URLSessionTask> task) : case_(kind), task_(std::move(task)) {}

    Case case_;
    std::shared_ptr<URLSessionTask> task_;
  };

  void insertPending(const UUID& identifier);
  void insertCreated(std::shared_ptr<URLSessionTask> task, const UUID& forIdentifier);
  std::optional<State> value(const UUID& forIdentifier) const;
  /// Marks the request and cancels its task where there is one. No effect on a request that is
  /// marked or unknown.
  void cancel(const UUID& identifier);
  void remove(const UUID& identifier);
  /// All stored states.
  std::size_t pendingCount() const;

 private:
  ThreadSafeDictionary<UUID, State> dictionary_;
};

/// The registry of the process, empty at first in a child of fork(). Made on first use; lives as
/// long as the process.
TaskManager& taskManager();

}  // namespace tarn
