#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>
#include <TarnService/Transport/TaskKey.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

namespace tarn {

/// The record of one session task: what a session's delegate needs to answer the request that
/// started it.
///
/// Shared between the registry and the delegate; its fields are changed by the delegate events of
/// its task only, which come one after another.
class URLSessionTaskRef {
 public:
  using DataCompletion = std::function<void(std::optional<Data>, std::shared_ptr<const URLResponse>,
                                            std::optional<Error>)>;
  using FileCompletion = std::function<void(std::optional<URL>, std::shared_ptr<const URLResponse>,
                                            std::optional<Error>)>;
  /// `data` for data and upload tasks, `file` for download tasks.
  using CompletionKind = std::variant<DataCompletion, FileCompletion>;
  /// The form in which the registry has its keys.
  using KeyInDictionary = detail::TaskKey;
  /// Bytes done and bytes expected.
  using Progress = std::function<void(std::int64_t, std::int64_t)>;

  URLSessionTaskRef(std::shared_ptr<URLSessionTask> task, bool shouldWaitForConnectivity,
                    Progress progress, CompletionKind completion)
      : task(std::move(task)),
        completion(std::move(completion)),
        progress(std::move(progress)),
        shouldWaitForConnectivity(shouldWaitForConnectivity) {}

  const std::shared_ptr<URLSessionTask> task;
  const CompletionKind completion;
  /// Empty unless the task was created with progress.
  const Progress progress;
  /// The body bytes so far.
  Data responseData;
  const bool shouldWaitForConnectivity;
  /// Whether the end of the task has been reported; kept by the producers.
  bool isReported = false;
  /// Whether the library cancelled the task because it may not wait for connectivity; for callers
  /// to read.
  std::atomic<bool> wasCancelledForConnectivity = false;
};

}  // namespace tarn
