#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::detail {

/// What follows the identifier in the task keys of a producer class, as in
/// "-TarnService.DataTaskProducer".
struct TaskKeySuffix {
  std::string text;
  std::size_t hash;
  bool isShared;  // by all keys of the class, and never destroyed

  static const TaskKeySuffix& ofClass(std::string_view name);
};

/// What a task key says, without its text: a record is kept under each, and looked for several
/// times.
class TaskKey {
 public:
  TaskKey(std::int64_t identifier, const TaskKeySuffix& sharedSuffix) noexcept
      : identifier_(identifier), suffix_(&sharedSuffix) {}
  /// Any text is a key, whether it has the form of a task key or not.
  template <std::convertible_to<std::string_view> Text>
  TaskKey(const Text& text)  // NOLINT(google-explicit-constructor): stands for the text
      : TaskKey(read(text)) {}
  TaskKey(const TaskKey& other);
  TaskKey& operator=(const TaskKey& other) { return *this = TaskKey(other); }
  TaskKey(TaskKey&&) noexcept = default;
  TaskKey& operator=(TaskKey&&) noexcept = default;
  ~TaskKey() = default;

  /// As it is written, "7-TarnService.DataTaskProducer".
  std::string text() const;

  std::size_t hash() const noexcept {
    return static_cast<std::size_t>(identifier_) + suffix_->hash;
  }
  friend bool operator==(const TaskKey& left, const TaskKey& right) noexcept {
    return left.identifier_ == right.identifier_ &&
           (left.suffix_ == right.suffix_ || left.suffix_->text == right.suffix_->text);
  }

 private:
  struct Release {
    void operator()(const TaskKeySuffix* suffix) const noexcept {
      if (!suffix->isShared) delete suffix;
    }
  };

  TaskKey(std::int64_t identifier, std::string ownSuffix);
  static TaskKey read(std::string_view text);

  std::int64_t identifier_;
  std::unique_ptr<const TaskKeySuffix, Release> suffix_;
};

}  // namespace tarn::detail

/// Follows the identifier: the records of tasks that run at the same time are neighbours in the
/// registry, instead of a cache miss each.
template <>
struct std::hash<tarn::detail::TaskKey> {
  std::size_t operator()(const tarn::detail::TaskKey& key) const noexcept { return key.hash(); }
};
