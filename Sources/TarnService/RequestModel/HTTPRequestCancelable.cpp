#include <TarnService/RequestModel/HTTPRequestCancelable.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>

namespace tarn::detail {

using Case = TaskManager::State::Case;

void insertPendingToTaskManager(const std::optional<UUID>& identifier) {
  if (identifier) taskManager().insertPending(*identifier);
}

void insertTaskIntoTaskManager(std::shared_ptr<URLSessionTask> task,
                               const std::optional<UUID>& identifier) {
  if (identifier) taskManager().insertCreated(std::move(task), *identifier);
}

void checkPendingCancelable(const std::optional<UUID>& identifier) {
  if (!identifier) return;
  const auto state = taskManager().value(*identifier);
  if (state && state->kind() == Case::notCreatedAndMarkedForCancellation) {
    throw HTTPResponseError::taskCancelled();
  }
}

void checkAllCanceledStates(const std::optional<UUID>& identifier) {
  if (!identifier) return;
  const auto state = taskManager().value(*identifier);
  if (state && (state->kind() == Case::createdAndMarkedForCancellation ||
                state->kind() == Case::notCreatedAndMarkedForCancellation)) {
    throw HTTPResponseError::taskCancelled();
  }
}

void removeFromTaskManager(const std::optional<UUID>& identifier) {
  if (identifier) taskManager().remove(*identifier);
}

}  // namespace tarn::detail
