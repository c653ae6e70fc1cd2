#include <Support/IdleTransport.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/RequestModel/HTTPRequestCancelable.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <vector>

namespace tarn {
namespace {

using Case = TaskManager::State::Case;

struct Cancelable : DataGetRequestable<Cancelable>, HTTPRequestCancelable<Cancelable> {
  UUID cancellationIdentifier;
};

/// Has an identifier, but does not adopt the interface.
struct Plain : DataGetRequestable<Plain> {
  UUID cancellationIdentifier;
};

struct Computed : DataGetRequestable<Computed>, HTTPRequestCancelable<Computed> {
  UUID cancellationIdentifier() const { return UUID(UUID::Bytes{1, 2, 3}); }
};

/// Counts how often its task was cancelled.
class HTTPRequestCancelableTests : public testing::Test {
 protected:
  void TearDown() override {
    request_.removeFromTaskManager();
    EXPECT_EQ(taskManager().pendingCount(), 0u);
  }

  std::shared_ptr<URLSessionTask> makeTask() {
    return std::make_shared<test::IdleTask>([this] { ++cancellations_; });
  }

  std::optional<Case> state() const {
    const auto state = taskManager().value(request_.cancellationIdentifier);
    return state ? std::optional(state->kind()) : std::nullopt;
  }

  static bool isCancelled(const std::function<void()>& check) {
    try {
      check();
      return false;
    } catch (const HTTPResponseError& error) {
      EXPECT_EQ(error.kind(), HTTPResponseError::Case::taskCancelled);
      return true;
    }
  }

  const Cancelable request_{};
  int cancellations_ = 0;
};

TEST_F(HTTPRequestCancelableTests, HasAStateForEveryStep) {
  using Step = std::function<void()>;
  const Step pending = [this] { request_.insertPendingToTaskManager(); };
  const Step task = [this] { request_.insertTaskIntoTaskManager(makeTask()); };
  const Step cancel = [this] { request_.cancel(); };
  const Step remove = [this] { request_.removeFromTaskManager(); };
  struct Row {
    const char* name;
    std::vector<Step> steps;
    std::optional<Case> state;
    bool failsPendingCheck;
    bool failsCheckOfAll;
    int cancellations;
  };
  const Row rows[] = {
      {"untouched", {}, std::nullopt, false, false, 0},
      {"cancelled before it is known", {cancel}, std::nullopt, false, false, 0},
      {"cancelled first, then sent", {cancel, pending}, Case::notCreated, false, false, 0},
      {"pending", {pending}, Case::notCreated, false, false, 0},
      {"pending, cancelled",
       {pending, cancel},
       Case::notCreatedAndMarkedForCancellation,
       true,
       true,
       0},
      {"pending, cancelled twice",
       {pending, cancel, cancel},
       Case::notCreatedAndMarkedForCancellation,
       true,
       true,
       0},
      {"created", {pending, task}, Case::created, false, false, 0},
      {"created, cancelled",
       {pending, task, cancel},
       Case::createdAndMarkedForCancellation,
       false,
       true,
       1},
      {"created, cancelled twice",
       {pending, task, cancel, cancel},
       Case::createdAndMarkedForCancellation,
       false,
       true,
       1},
      {"task after the mark", {pending, cancel, task}, Case::created, false, false, 0},
      {"sent again after the mark", {pending, cancel, pending}, Case::notCreated, false, false, 0},
      {"removed", {pending, task, remove}, std::nullopt, false, false, 0},
      {"removed, cancelled", {pending, task, remove, cancel}, std::nullopt, false, false, 0},
      {"removed with its mark", {pending, cancel, remove}, std::nullopt, false, false, 0},
      {"removed twice", {pending, remove, remove}, std::nullopt, false, false, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    request_.removeFromTaskManager();
    cancellations_ = 0;
    for (const auto& step : row.steps) step();
    EXPECT_EQ(state(), row.state);
    EXPECT_EQ(isCancelled([this] { request_.checkPendingCancelable(); }), row.failsPendingCheck);
    EXPECT_EQ(isCancelled([this] { request_.checkAllCanceledStates(); }), row.failsCheckOfAll);
    EXPECT_EQ(cancellations_, row.cancellations);
  }
}

TEST_F(HTTPRequestCancelableTests, IsMarkedBeforeItsTaskIsCancelled) {
  std::optional<Case> seen;
  request_.insertTaskIntoTaskManager(
      std::make_shared<test::IdleTask>([this, &seen] { seen = state(); }));
  request_.cancel();
  EXPECT_EQ(seen, Case::createdAndMarkedForCancellation);
}

TEST_F(HTTPRequestCancelableTests, ACopyIsCancelledWithTheOriginal) {
  const Cancelable copy = request_;
  request_.insertTaskIntoTaskManager(makeTask());
  copy.cancel();
  EXPECT_EQ(cancellations_, 1);
  EXPECT_EQ(state(), Case::createdAndMarkedForCancellation);
}

TEST_F(HTTPRequestCancelableTests, AnotherRequestIsNotCancelledWithIt) {
  const Cancelable other{};
  request_.insertPendingToTaskManager();
  other.insertPendingToTaskManager();
  other.cancel();
  EXPECT_EQ(state(), Case::notCreated);
  EXPECT_EQ(taskManager().pendingCount(), 2u);
  other.removeFromTaskManager();
}

TEST_F(HTTPRequestCancelableTests, TheIdentifierMayBeComputed) {
  const Computed computed{};
  computed.insertPendingToTaskManager();
  computed.cancel();
  const auto state = taskManager().value(UUID(UUID::Bytes{1, 2, 3}));
  ASSERT_TRUE(state.has_value());
  EXPECT_EQ(state->kind(), Case::notCreatedAndMarkedForCancellation);
  computed.removeFromTaskManager();
}

TEST_F(HTTPRequestCancelableTests, ARequestThatCannotBeCancelledLeavesNoTrace) {
  const Plain plain{};
  plain.insertPendingToTaskManager();
  EXPECT_EQ(taskManager().pendingCount(), 0u);
  plain.insertTaskIntoTaskManager(makeTask());
  EXPECT_EQ(taskManager().pendingCount(), 0u);

  // Even where somebody has marked the identifier that it happens to have.
  taskManager().insertPending(plain.cancellationIdentifier);
  taskManager().cancel(plain.cancellationIdentifier);
  EXPECT_NO_THROW(plain.checkPendingCancelable());
  EXPECT_NO_THROW(plain.checkAllCanceledStates());
  plain.removeFromTaskManager();
  EXPECT_EQ(taskManager().pendingCount(), 1u);
  taskManager().remove(plain.cancellationIdentifier);
}

TEST_F(HTTPRequestCancelableTests, ARangeIsCancelledInItsOrder) {
  std::vector<int> order;
  std::list<Cancelable> backwards;
  for (int index = 0; index < 5; ++index) {
    const Cancelable request{};
    request.insertTaskIntoTaskManager(
        std::make_shared<test::IdleTask>([&order, index] { order.push_back(index); }));
    backwards.push_front(request);
  }
  cancel(backwards);
  EXPECT_EQ(order, (std::vector<int>{4, 3, 2, 1, 0}));
  for (const auto& request : backwards) request.removeFromTaskManager();
}

TEST_F(HTTPRequestCancelableTests, AnEmptyRangeIsCancelledToo) {
  request_.insertPendingToTaskManager();
  cancel(std::vector<Cancelable>());
  EXPECT_EQ(state(), Case::notCreated);
}

}  // namespace
}  // namespace tarn
