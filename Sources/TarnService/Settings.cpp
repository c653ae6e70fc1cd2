#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/UUID.hpp>
#include <TarnService/Settings.hpp>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>

namespace tarn {
namespace {

/// The bodies that log lines refer to, the oldest of which make room for new ones.
class BodyStore {
 public:
  static BodyStore& shared() {
    const detail::NoForkScope scope;  // not while it is being made
    static BodyStore& store = *new BodyStore;
    return store;
  }

  std::string keep(Data body) {
    std::string key = UUID().uuidString();
    const std::size_t cost = costOf(body);
    if (cost > capacity) return key;
    const MutexLock lock(mutex_);
    entries_.push_back({key, std::move(body)});
    cost_ += cost;
    while (cost_ > capacity) {
      cost_ -= costOf(entries_.front().body);
      entries_.pop_front();
    }
    return key;
  }

  std::optional<Data> body(std::string_view key) {
    const MutexLock lock(mutex_);
    const auto entry = std::find_if(entries_.rbegin(), entries_.rend(),
                                    [key](const Entry& kept) { return kept.key == key; });
    return entry == entries_.rend() ? std::nullopt : std::optional(entry->body);
  }

 private:
  struct Entry {
    std::string key;
    Data body;
  };

  static constexpr std::size_t capacity = 64 * 1024 * 1024;
  static constexpr std::size_t entryCost = 256;  // beside the bytes, generously

  static std::size_t costOf(const Data& body) { return body.size() + entryCost; }

  Mutex mutex_;
  std::deque<Entry> entries_ TARN_GUARDED_BY(mutex_);  // the oldest first; only people search it
  std::size_t cost_ TARN_GUARDED_BY(mutex_) = 0;
};

}  // namespace

std::optional<HTTPDebugData> TarnService::httpDebugData(std::string_view key) {
  auto body = BodyStore::shared().body(key);
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
/// as it stands. No program calls it: linkers have to be told to keep it.
struct DebuggerView {
  /// The text of a body, or its bytes in hexadecimal; null where the key is not known. Valid until
  /// the next call.
  [[gnu::used, gnu::retain, gnu::noinline]] const char* httpDebugData(const char* key) const;
};

const char* DebuggerView::httpDebugData(const char* key) const {
  static std::string& text = *new std::string;
  auto found = tarn::TarnService::httpDebugData(key);
  if (!found) return nullptr;
  if (auto* whole = std::get_if<std::string>(&*found)) {
    text = std::move(*whole);
  } else {
    constexpr const char* digits = "0123456789abcdef";
    text.clear();
    for (const auto byte : std::get<tarn::Data>(*found)) {
      text += {digits[byte >> 4], digits[byte & 15], ' '};
    }
  }
  return text.c_str();
}

}  // namespace

// A static one, for debuggers know the names in an unnamed namespace only within this file.
[[gnu::used, gnu::retain]] static const DebuggerView TarnService;
