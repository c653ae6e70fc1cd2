#include <TarnService/Transport/TaskManager.hpp>

namespace tarn {

TaskManager::State TaskManager::State::created(std::shared_ptr<URLSessionTask> task) {
  return {Case::created, std::move(task)};
}

TaskManager::State TaskManager::State::createdAndMarkedForCancellation(
    std::shared_ptr<URLSessionTask> task) {
  return {Case::createdAndMarkedForCancellation, std::move(task)};
}

TaskManager::State TaskManager::State::notCreated() { return {Case::notCreated, nullptr}; }

TaskManager::State TaskManager::State::notCreatedAndMarkedForCancellation() {
  return {Case::notCreatedAndMarkedForCancellation, nullptr};
}

TaskManager& taskManager() {
  const detail::NoForkScope scope;  // not while it is being made
  static TaskManager& manager = *new TaskManager;
  return manager;
}

void TaskManager::insertPending(const UUID& identifier) {
  dictionary_.set(identifier, State::notCreated());
}

void TaskManager::insertCreated(std::shared_ptr<URLSessionTask> task, const UUID& forIdentifier) {
  dictionary_.set(forIdentifier, State::created(std::move(task)));
}

std::optional<TaskManager::State> TaskManager::value(const UUID& forIdentifier) const {
  return dictionary_[forIdentifier];
}

void TaskManager::cancel(const UUID& identifier) {
  const auto state = dictionary_[identifier];
  if (!state) return;
  switch (state->kind()) {
    case State::Case::created:
      // Marked first: the task's end must find the mark. Replaced, not set: a request that was
      // answered meanwhile must not come back.
      dictionary_.replaceValue(identifier, State::createdAndMarkedForCancellation(state->task()));
      state->task()->cancel();
      return;
    case State::Case::notCreated:
      dictionary_.replaceValue(identifier, State::notCreatedAndMarkedForCancellation());
      return;
    case State::Case::createdAndMarkedForCancellation:
    case State::Case::notCreatedAndMarkedForCancellation:
      return;
  }
}

void TaskManager::remove(const UUID& identifier) { dictionary_.removeValue(identifier); }

std::size_t TaskManager::pendingCount() const { return dictionary_.count(); }

}  // namespace tarn
