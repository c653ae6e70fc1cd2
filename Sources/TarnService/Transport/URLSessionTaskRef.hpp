#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/URLSessionTask.hpp>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tarn {

namespace detail {

/// What a task key says, without its text: a record is kept under each, and looked for several
/// times.
struct TaskKey {
  /// `producer` is one of those that taskProducerName() answers.
  TaskKey(std::int64_t identifier, const std::string* producer) noexcept
      : identifier(identifier), producer(producer) {}
  /// Any text is a key; each that does not have the form of a task key has a name of its own.
  template <std::convertible_to<std::string_view> Text>
  TaskKey(const Text& text)  // NOLINT(google-explicit-constructor): stands for the text
      : TaskKey(read(text)) {}

  static TaskKey read(std::string_view text);
  friend bool operator==(const TaskKey&, const TaskKey&) noexcept = default;

  std::int64_t identifier;
  const std::string* producer;
};

/// The one object that stands for what follows the identifier in task keys, as in
/// "-TarnService.DataTaskProducer"; lives as long as the process.
const std::string* taskProducerName(std::string_view name);

}  // namespace detail

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
  using Key = detail::TaskKey;
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

/// Follows the identifier: the records of tasks that run at the same time are neighbours in the
/// registry, instead of a cache miss each.
template <>
struct std::hash<tarn::detail::TaskKey> {
  std::size_t operator()(const tarn::detail::TaskKey& key) const noexcept {
    return static_cast<std::size_t>(key.identifier) + std::hash<const void*>()(key.producer);
  }
};
