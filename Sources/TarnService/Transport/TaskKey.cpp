#include <Platform/Dispatch/Mutex.hpp>
#include <TarnService/Transport/TaskKey.hpp>

#include <charconv>
#include <map>
#include <utility>

namespace tarn::detail {

namespace {

// What a text that is no task key is kept behind; the rest of a task key begins with a hyphen.
constexpr char otherText = '?';

std::size_t hashOf(std::string_view text) { return std::hash<std::string_view>()(text); }

}  // namespace

const TaskKeySuffix& TaskKeySuffix::ofClass(std::string_view name) {
  static constinit Mutex mutex;
  const MutexLock lock(mutex);
  static auto& suffixes = *new std::map<std::string, TaskKeySuffix, std::less<>>;
  const auto known = suffixes.find(name);
  if (known != suffixes.end()) return known->second;
  std::string text = "-" + std::string(name);
  const std::size_t hash = hashOf(text);
  return suffixes.emplace(name, TaskKeySuffix{std::move(text), hash, true}).first->second;
}

TaskKey::TaskKey(std::int64_t identifier, std::string ownSuffix) : identifier_(identifier) {
  const std::size_t hash = hashOf(ownSuffix);
  suffix_.reset(new TaskKeySuffix{std::move(ownSuffix), hash, false});
}

TaskKey::TaskKey(const TaskKey& other)
    : identifier_(other.identifier_),
      suffix_(other.suffix_->isShared ? other.suffix_.get() : new TaskKeySuffix(*other.suffix_)) {}

std::string TaskKey::text() const {
  const std::string& suffix = suffix_->text;
  return suffix.front() == otherText ? suffix.substr(1) : std::to_string(identifier_) + suffix;
}

TaskKey TaskKey::read(std::string_view text) {
  std::int64_t identifier = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), identifier).ptr;
  std::string rest(end, text.data() + text.size());
  const bool isTaskKey = rest.starts_with('-') && text == std::to_string(identifier) + rest;
  return isTaskKey ? TaskKey(identifier, std::move(rest))
                   : TaskKey(0, otherText + std::string(text));
}

}  // namespace tarn::detail
