#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/TypeName.hpp>
#include <TarnService/Diagnostics/Logger.hpp>
#include <TarnService/Settings.hpp>
#include <TarnService/Transport/FileManagerAdditions.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>
#include <TarnService/Transport/QueueLabel.hpp>
#include <TarnService/Transport/ServerTrust.hpp>

#include <stdexcept>
#include <utility>

namespace tarn {
namespace {

using TaskRef = std::shared_ptr<URLSessionTaskRef>;

// Records whose key a newer task has taken before their own task's end was reported: without them
// the older request would never be answered, and its events would go to the newer one. Each is let
// go at its task's end, which the end of the session brings about at the latest.
ThreadSafeDictionary<const URLSessionTask*, TaskRef>& displacedTaskRefs() {
  const detail::NoForkScope scope;  // not while they are being made
  static auto& refs = *new ThreadSafeDictionary<const URLSessionTask*, TaskRef>;
  return refs;
}

void logMissingForSuccess(std::int64_t taskIdentifier, SourceLocation location) {
  // Kept, spelling included, and said of bytes that are written too: log filters look for it.
  logger().error(
      "Coulnd't find taskRef with id " + std::to_string(taskIdentifier) + " to report sucess", {},
      {}, location);
}

[[noreturn]] void endForInvalidCompletion(std::int64_t taskIdentifier, SourceLocation location) {
  logger().error("Invalid completion type for taskRef with id " + std::to_string(taskIdentifier),
                 {}, {}, location);
  fatalError("Fatal error", location);
}

std::optional<URL> temporaryDirectory(const FileManager& files) {
  try {
    return makeTemporaryDirectory(files);
  } catch (const FileError&) {
    return std::nullopt;
  }
}

/// Where the file of a download stays.
URL keptCopy(const URL& location, const std::shared_ptr<const URLResponse>& response,
             SourceLocation function) {
  const auto& files = FileManager::default_();
  const auto directory = temporaryDirectory(files);
  if (!directory) return location;
  std::string name = response ? response->suggestedFilename() : "";
  if (name.empty()) name = location.lastPathComponent();
  const URL copy = directory->appendingPathComponent(name);
  try {
    detail::copyPassingFile(files, location, copy);
    return copy;
  } catch (const FileError& error) {
    logger().error(
        "Failure to create tempDirectory going back to default tempFile: " + error.message(), {},
        {}, function);
  }
  try {
    files.removeItem(*directory);  // empty, and of no use to anybody
  } catch (const FileError&) {
    // It is in the temporary directory, which the system clears.
  }
  return location;
}

void writeTo(const TaskRef& ref, const Data& data, std::int64_t taskIdentifier) {
  if (!ref) return logMissingForSuccess(taskIdentifier, SourceLocation::in("write(data:for:)"));
  ref->responseData.append(data);
}

void succeed(const TaskRef& ref, std::int64_t taskIdentifier,
             const std::shared_ptr<const URLResponse>& urlResponse) {
  constexpr auto location = SourceLocation::in("reportSuccess(for:urlResponse:)");
  if (!ref) return logMissingForSuccess(taskIdentifier, location);
  const auto* completion = std::get_if<URLSessionTaskRef::DataCompletion>(&ref->completion);
  if (!completion) endForInvalidCompletion(taskIdentifier, location);
  (*completion)(ref->responseData, urlResponse, std::nullopt);
}

void fail(const TaskRef& ref, std::int64_t taskIdentifier,
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

void succeed(const TaskRef& ref, std::int64_t taskIdentifier, const URL& location,
             const std::shared_ptr<const URLResponse>& urlResponse) {
  constexpr auto function = SourceLocation::in("reportSuccess(for:location:urlResponse:)");
  if (!ref) return logMissingForSuccess(taskIdentifier, function);
  const URL file = keptCopy(location, urlResponse, function);
  const auto* completion = std::get_if<URLSessionTaskRef::FileCompletion>(&ref->completion);
  if (!completion) endForInvalidCompletion(taskIdentifier, function);
  (*completion)(file, urlResponse, std::nullopt);
}

void progress(const TaskRef& ref, std::int64_t taskIdentifier, std::int64_t totalBytesWritten,
              std::int64_t totalBytesExpectedToWrite) {
  if (!ref) {
    logger().fault(
        "Couldn't find taskRef for " + std::to_string(taskIdentifier), {}, {},
        SourceLocation::in("reportProgress(for:totalBytesWritten:totalBytesExpectedToWrite:)"));
    return;
  }
  if (ref->progress) ref->progress(totalBytesWritten, totalBytesExpectedToWrite);
}

}  // namespace

ThreadSafeDictionary<std::string, TaskRef>& taskDictionary() {
  const detail::NoForkScope scope;  // not while it is being made
  static auto& dictionary = *new ThreadSafeDictionary<std::string, TaskRef>;
  return dictionary;
}

void HTTPTaskProducer::addTaskRefToQueue(TaskRef ref) const {
  const URLSessionTask* const task = ref->task.get();
  TaskRef previous;  // let go after the queue: what it holds may be the application's
  taskDictionary().update([&](auto& refs) {
    previous = std::exchange(refs[key(task->taskIdentifier())], std::move(ref));
    if (!previous || previous->isReported || previous->task.get() == task) return;
    // In the same step, so that events of the older task find their record all the time.
    displacedTaskRefs().set(previous->task.get(), previous);
  });
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
  writeTo(taskRef(forTaskIdentifier), data, forTaskIdentifier);
}

void HTTPTaskProducer::write(Data data, const URLSessionTask& forTask) const {
  writeTo(taskRef(forTask), data, forTask.taskIdentifier());
}

void HTTPTaskProducer::reportSuccess(std::int64_t forTaskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse) const {
  succeed(taskRef(forTaskIdentifier), forTaskIdentifier, urlResponse);
}

void HTTPTaskProducer::reportFailure(std::int64_t forTaskIdentifier,
                                     const std::shared_ptr<const URLResponse>& urlResponse,
                                     const std::optional<Error>& error) const {
  fail(taskRef(forTaskIdentifier), forTaskIdentifier, urlResponse, error);
}

void HTTPTaskProducer::validate(URLSession&, const URLAuthenticationChallenge& didReceive,
                                const URLChallengeHandler& completionHandler) const {
  const auto trust = didReceive.protectionSpace.serverTrust;
  const auto& certificates = TarnService::debugCertificateURLs;
  const bool isTrusted = trust && certificates && !certificates->empty() &&
                         detail::isTrustedWith(*certificates, *trust);
  if (isTrusted) {
    completionHandler(URLSessionAuthChallengeDisposition::useCredential, URLCredential(trust));
  } else {
    completionHandler(URLSessionAuthChallengeDisposition::performDefaultHandling, std::nullopt);
  }
}

void HTTPTaskProducer::reportCompletion(const URLSessionTask& task,
                                        const std::optional<Error>& error) const {
  const auto ref = endedTaskRef(task);
  if (error)
    fail(ref, task.taskIdentifier(), task.response(), error);
  else
    succeed(ref, task.taskIdentifier(), task.response());
}

TaskRef HTTPTaskProducer::endedTaskRef(const URLSessionTask& task) const {
  TaskRef ref;
  taskDictionary().update([&](auto& refs) {
    const auto entry = refs.find(key(task.taskIdentifier()));
    if (entry == refs.end() || !entry->second || entry->second->task.get() != &task) return;
    ref = entry->second;
    ref->isReported = true;
  });
  return ref ? ref : displacedTaskRefs().removeValue(&task).value_or(nullptr);
}

detail::TaskKey HTTPTaskProducer::key(std::int64_t forTaskIdentifier) const {
  const auto* suffix = keySuffix_.load(std::memory_order_acquire);
  if (suffix == nullptr) {
    suffix = &detail::TaskKeySuffix::ofClass(qualifiedTypeName(typeid(*this)));
    keySuffix_.store(suffix, std::memory_order_release);
  }
  return {forTaskIdentifier, *suffix};
}

TaskRef HTTPTaskProducer::taskRef(std::int64_t taskIdentifier) const {
  TaskRef ref;
  taskDictionary().update([&](const auto& refs) {
    const auto entry = refs.find(key(taskIdentifier));
    if (entry != refs.end()) ref = entry->second;
  });
  return ref;
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

std::shared_ptr<URLSessionTask> HTTPDownloadTaskProducer::create(
    const URLRequest&, bool, URLSessionTaskRef::DataCompletion) {
  throw std::logic_error("A download task producer makes no tasks that gather their body.");
}

std::shared_ptr<URLSessionTask> HTTPDownloadTaskProducer::create(
    const URLRequest& forRequest, bool shouldWaitForConnectivity,
    URLSessionTaskRef::FileCompletion completion) {
  return create(forRequest, shouldWaitForConnectivity, nullptr, std::move(completion));
}

std::shared_ptr<URLSessionTask> HTTPDownloadTaskProducer::create(
    const URLRequest& forRequest, bool shouldWaitForConnectivity,
    URLSessionTaskRef::Progress progress, URLSessionTaskRef::FileCompletion completion) {
  std::shared_ptr<URLSessionTask> task = session()->downloadTask(forRequest);
  addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
      task, shouldWaitForConnectivity, std::move(progress), std::move(completion)));
  return task;
}

void HTTPDownloadTaskProducer::reportSuccess(
    std::int64_t forTaskIdentifier, const URL& location,
    const std::shared_ptr<const URLResponse>& urlResponse) const {
  succeed(taskRef(forTaskIdentifier), forTaskIdentifier, location, urlResponse);
}

void HTTPDownloadTaskProducer::reportSuccess(const URLSessionDownloadTask& task,
                                             const URL& location) const {
  succeed(endedTaskRef(task), task.taskIdentifier(), location, task.response());
}

void HTTPDownloadTaskProducer::reportProgress(std::int64_t forTaskIdentifier,
                                              std::int64_t totalBytesWritten,
                                              std::int64_t totalBytesExpectedToWrite) const {
  progress(taskRef(forTaskIdentifier), forTaskIdentifier, totalBytesWritten,
           totalBytesExpectedToWrite);
}

void HTTPDownloadTaskProducer::reportProgress(const URLSessionDownloadTask& task,
                                              std::int64_t totalBytesWritten,
                                              std::int64_t totalBytesExpectedToWrite) const {
  progress(taskRef(task), task.taskIdentifier(), totalBytesWritten, totalBytesExpectedToWrite);
}

std::shared_ptr<URLSessionTask> HTTPUploadTaskProducer::create(
    const URLRequest& forRequest, const HTTPUploadTaskKind& kind, bool shouldWaitForConnectivity,
    URLSessionTaskRef::DataCompletion completion) {
  return create(forRequest, kind, shouldWaitForConnectivity, nullptr, std::move(completion));
}

std::shared_ptr<URLSessionTask> HTTPUploadTaskProducer::create(
    const URLRequest& forRequest, const HTTPUploadTaskKind& kind, bool shouldWaitForConnectivity,
    URLSessionTaskRef::Progress progress, URLSessionTaskRef::DataCompletion completion) {
  auto task = create(forRequest, kind);
  addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
      task, shouldWaitForConnectivity, std::move(progress), std::move(completion)));
  return task;
}

std::shared_ptr<URLSessionTask> HTTPUploadTaskProducer::create(const URLRequest& forRequest,
                                                               const HTTPUploadTaskKind& kind) {
  return kind.match(
      [&](const Data& body) -> std::shared_ptr<URLSessionTask> {
        return session()->uploadTask(forRequest, body);
      },
      [&](const URL& file) { return session()->uploadTask(forRequest, file); });
}

}  // namespace tarn
