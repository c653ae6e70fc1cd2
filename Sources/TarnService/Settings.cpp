#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/UUID.hpp>
#include <TarnService/Settings.hpp>

#include <cstddef>
#include <deque>
#include <unordered_map>
#include <utility>

namespace tarn {
namespace {

/// The bodies that log lines refer to, the oldest of which make room for new ones.
class BodyStore {
 public:
  static BodyStore& shared() {
    static BodyStore& store = *new BodyStore;
    return store;
  }

  std::string keep(Data body) {
    std::string key = UUID().uuidString();
    const MutexLock lock(mutex_);
    size_ += body.size() + entryCost;
    keys_.push_back(key);
    bodies_.emplace(key, std::move(body));
    while (size_ > capacity && !keys_.empty()) dropOldest();
    return key;
  }

  std::optional<Data> body(const std::string& key) {
    const MutexLock lock(mutex_);
    const auto entry = bodies_.find(key);
    return entry == bodies_.end() ? std::nullopt : std::optional(entry->second);
  }

 private:
  static constexpr std::size_t capacity = 64 * 1024 * 1024;
  static constexpr std::size_t entryCost = 256;  // about what the tables take for one body

  void dropOldest() TARN_REQUIRES(mutex_) {
    const auto entry = bodies_.find(keys_.front());
    size_ -= entry->second.size() + entryCost;
    bodies_.erase(entry);
    keys_.pop_front();
  }

  Mutex mutex_;
  std::unordered_map<std::string, Data> bodies_ TARN_GUARDED_BY(mutex_);
  std::deque<std::string> keys_ TARN_GUARDED_BY(mutex_);  // the oldest first
  std::size_t size_ TARN_GUARDED_BY(mutex_) = 0;
};

}  // namespace

std::optional<HTTPDebugData> TarnService::httpDebugData(std::string_view key) {
  auto body = BodyStore::shared().body(std::string(key));
  if (!body) return std::nullopt;
  if (auto text = body->utf8()) return HTTPDebugData(std::move(*text));
  return HTTPDebugData(std::move(*body));
}

std::string detail::keepHTTPDebugData(Data body) {
  return BodyStore::shared().keep(std::move(body));
}

}  // namespace tarn

namespace {

/// What a debugger sees under the name TarnService, so that a call copied from the log can be made
/// as it stands. No program calls it.
struct DebuggerView {
  /// The text of a body, or of its bytes in hexadecimal; valid until the next call.
  [[gnu::used, gnu::noinline]] const char* httpDebugData(const char* key) const;
};

const char* DebuggerView::httpDebugData(const char* key) const {
  static std::string& text = *new std::string;
  const auto found = tarn::TarnService::httpDebugData(key);
  text.clear();
  if (!found) return nullptr;
  if (const auto* whole = std::get_if<std::string>(&*found)) {
    text = *whole;
  } else {
    constexpr const char* digits = "0123456789abcdef";
    for (const auto byte : std::get<tarn::Data>(*found)) {
      text += {digits[byte >> 4], digits[byte & 15], ' '};
    }
  }
  return text.c_str();
}

}  // namespace

[[gnu::used]] DebuggerView TarnService;
