#include <Platform/URLLoading/URLSession.hpp>
#include <TarnService/Transport/TaskManager.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace tarn {
namespace {

using Case = TaskManager::State::Case;

class TaskManagerTests : public testing::Test {
 protected:
  // A task that is never resumed, so that nothing is sent.
  static std::shared_ptr<URLSessionTask> makeTask() {
    static const auto session = URLSession::make({}, std::make_shared<URLSessionDelegate>());
    return session->dataTask(URLRequest(URL("http://127.0.0.1:1/")));
  }
  std::optional<Case> kind() const {
    const auto state = manager.value(identifier);
    return state ? std::optional(state->kind()) : std::nullopt;
  }

  TaskManager manager;
  const UUID identifier;
};

TEST_F(TaskManagerTests, KnowsNothingAtFirst) {
  EXPECT_EQ(kind(), std::nullopt);
  EXPECT_EQ(manager.pendingCount(), 0u);
}

TEST_F(TaskManagerTests, APendingRequestIsMarkedByCancel) {
  manager.insertPending(identifier);
  EXPECT_EQ(kind(), Case::notCreated);
  manager.cancel(identifier);
  EXPECT_EQ(kind(), Case::notCreatedAndMarkedForCancellation);
  manager.cancel(identifier);
  EXPECT_EQ(kind(), Case::notCreatedAndMarkedForCancellation);
}

TEST_F(TaskManagerTests, ACreatedRequestIsMarkedAndItsTaskCancelled) {
  const auto task = makeTask();
  manager.insertCreated(task, identifier);
  EXPECT_EQ(kind(), Case::created);
  EXPECT_EQ(manager.value(identifier)->task(), task);
  EXPECT_EQ(task->state(), URLSessionTask::State::suspended);
  manager.cancel(identifier);
  EXPECT_EQ(kind(), Case::createdAndMarkedForCancellation);
  EXPECT_EQ(manager.value(identifier)->task(), task);
  EXPECT_NE(task->state(), URLSessionTask::State::suspended);
  manager.cancel(identifier);
  EXPECT_EQ(kind(), Case::createdAndMarkedForCancellation);
}

TEST_F(TaskManagerTests, AnInsertedTaskOverwritesAnEarlierCancellation) {
  manager.insertPending(identifier);
  manager.cancel(identifier);
  manager.insertCreated(makeTask(), identifier);
  EXPECT_EQ(kind(), Case::created);
}

TEST_F(TaskManagerTests, CancelDoesNothingForAnUnknownOrRemovedRequest) {
  manager.cancel(identifier);
  EXPECT_EQ(kind(), std::nullopt);
  manager.insertPending(identifier);
  manager.remove(identifier);
  manager.cancel(identifier);
  EXPECT_EQ(kind(), std::nullopt);
}

TEST_F(TaskManagerTests, CountsEveryStoredState) {
  const UUID other;
  manager.insertPending(identifier);
  manager.insertCreated(makeTask(), other);
  manager.cancel(other);
  EXPECT_EQ(manager.pendingCount(), 2u);
  manager.remove(other);
  EXPECT_EQ(manager.pendingCount(), 1u);
}

TEST_F(TaskManagerTests, RequestsDoNotAffectEachOther) {
  const UUID other;
  manager.insertPending(identifier);
  manager.insertPending(other);
  manager.cancel(other);
  EXPECT_EQ(kind(), Case::notCreated);
}

}  // namespace
}  // namespace tarn
