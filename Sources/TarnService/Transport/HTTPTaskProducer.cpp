#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/TypeName.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>

#include <mutex>

namespace tarn {
namespace {

using TaskRef = std::shared_ptr<URLSessionTaskRef>;

// Records whose key a newer task has taken before their own task's end was reported: without them
// the older request would never be answered, and its events would go to the newer one. Each is let
// go at its task's end, which the end of the session brings about at the latest.
ThreadSafeDictionary<const URLSessionTask*, TaskRef>& displacedTaskRefs() {
  static auto& refs = *new ThreadSafeDictionary<const URLSessionTask*, TaskRef>;
  return refs;
}

// Held while a key changes hands and while a record is marked as reported.
std::mutex takingOver;

}  // namespace

ThreadSafeDictionary<std::string, TaskRef>& taskDictionary() {
  static auto& dictionary = *new ThreadSafeDictionary<std::string, TaskRef>;
  return dictionary;
}

void HTTPTaskProducer::addTaskRefToQueue(TaskRef ref) const {
  const std::string refKey = key(ref->task->taskIdentifier());
  TaskRef previous;  // let go after the lock: what it holds may be the application's
  const std::lock_guard lock(takingOver);
  previous = taskDictionary()[refKey].value_or(nullptr);
  if (previous && !previous->isReported) displacedTaskRefs().set(previous->task.get(), previous);
  taskDictionary().set(refKey, std::move(ref));
}

void HTTPTaskProducer::checkWaitForConnectivity(const URLSessionTask& forTask) const {
  const auto ref = taskRef(forTask);
  if (!ref) {
    logger().fault("Couldn't find task in dictionary", {}, {},
                   SourceLocation::in("checkWaitForConnectivity(for:)"));
    return;
  }
  if (ref->shouldWaitForConnectivity) return;
  ref->task->cancel();
  ref->wasCancelledForConnectivity = true;
}

void HTTPTaskProducer::write(Data data, std::int64_t forTaskIdentifier) const {
  write(std::move(data), taskRef(forTaskIdentifier), forTaskIdentifier);
}

void HTTPTaskProducer::write(Data data, const URLSessionTask& forTask) const {
  write(std::move(data), taskRef(forTask), forTask.taskIdentifier());
}

void HTTPTaskProducer::write(Data data, const TaskRef& ref, std::int64_t taskIdentifier) {
  if (!ref) {
    // The text speaks of a report although bytes are written; kept, as its spelling: log filters
    // look for it.
    logger().error(
        "Coulnd't find taskRef with id " + std::to_string(taskIdentifier) + " to report sucess", {},
        {}, SourceLocation::in("write(data:for:)"));
    return;
  }
  ref->responseData.append(data);
}

void HTTPTaskProducer::reportSuccess(std::int64_t forTaskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse) const {
  reportSuccess(taskRef(forTaskIdentifier), forTaskIdentifier, urlResponse);
}

void HTTPTaskProducer::reportSuccess(const TaskRef& ref, std::int64_t taskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse) {
  constexpr auto location = SourceLocation::in("reportSuccess(for:urlResponse:)");
  const std::string identifier = std::to_string(taskIdentifier);
  if (!ref) {
    logger().error("Coulnd't find taskRef with id " + identifier + " to report sucess", {}, {},
                   location);
    return;
  }
  const auto* completion = std::get_if<URLSessionTaskRef::DataCompletion>(&ref->completion);
  if (!completion) {
    logger().error("Invalid completion type for taskRef with id " + identifier, {}, {}, location);
    fatalError("Fatal error", location);
  }
  (*completion)(ref->responseData, urlResponse, std::nullopt);
}

void HTTPTaskProducer::reportFailure(std::int64_t forTaskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse,
                                     const std::optional<Error>& error) const {
  reportFailure(taskRef(forTaskIdentifier), forTaskIdentifier, urlResponse, error);
}

void HTTPTaskProducer::reportFailure(const TaskRef& ref, std::int64_t taskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse,
                                     const std::optional<Error>& error) {
  if (!ref) {
    // "Couldn't" here against "Coulnd't" above: both kept, log filters look for them.
    logger().error(
        "Couldn't find taskRef with id " + std::to_string(taskIdentifier) + " to report failure",
        {}, {}, SourceLocation::in("reportFailure(for:urlResponse:error:)"));
    return;
  }
  std::visit([&](const auto& completion) { completion(std::nullopt, urlResponse, error); },
             ref->completion);
}

void HTTPTaskProducer::reportCompletion(const URLSessionTask& task,
                                        const std::optional<Error>& error) const {
  const auto ref = endedTaskRef(task);
  if (error)
    reportFailure(ref, task.taskIdentifier(), task.response(), error);
  else
    reportSuccess(ref, task.taskIdentifier(), task.response());
}

TaskRef HTTPTaskProducer::endedTaskRef(const URLSessionTask& task) const {
  TaskRef ref;
  const std::lock_guard lock(takingOver);
  ref = taskRef(task);
  if (ref) ref->isReported = true;
  displacedTaskRefs().removeValue(&task);
  return ref;
}

const std::string& HTTPTaskProducer::description() const {
  std::call_once(described_, [this] { description_ = qualifiedTypeName(typeid(*this)); });
  return description_;
}

std::string HTTPTaskProducer::key(std::int64_t forTaskIdentifier) const {
  return std::to_string(forTaskIdentifier) + "-" + description();
}

TaskRef HTTPTaskProducer::taskRef(std::int64_t taskIdentifier) const {
  return taskDictionary()[key(taskIdentifier)].value_or(nullptr);
}

TaskRef HTTPTaskProducer::taskRef(const URLSessionTask& task) const {
  auto ref = taskRef(task.taskIdentifier());
  if (ref && ref->task.get() != &task) ref = displacedTaskRefs()[&task].value_or(nullptr);
  return ref;
}

std::shared_ptr<URLSessionTask> HTTPDataTaskProducer::create(
    const URLRequest& forRequest, bool shouldWaitForConnectivity,
    URLSessionTaskRef::DataCompletion completion) {
  std::shared_ptr<URLSessionTask> task = session()->dataTask(forRequest);
  addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(task, shouldWaitForConnectivity, nullptr,
                                                        std::move(completion)));
  return task;
}

}  // namespace tarn
