#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Types/TypeName.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarn {
namespace detail {

// A shared object is labelled by what is shared.
template <class T>
struct Labelled {
  using Type = T;
};
template <class T>
struct Labelled<std::shared_ptr<T>> {
  using Type = T;
};
/// A value type may know a better form for its keys in the map, which they convert to, as its
/// `KeyInDictionary`.
template <class Key, class Value>
struct KeyOf {
  using Type = Key;
};
template <class Key, class Value>
requires(std::is_convertible_v<
         const Key&, typename Labelled<Value>::Type::KeyInDictionary>) struct KeyOf<Key, Value> {
  using Type = typename Labelled<Value>::Type::KeyInDictionary;
};

template <class T>
std::string labelOf() {
  return std::string(unqualifiedTypeName<typename Labelled<T>::Type>());
}

}  // namespace detail

/// A map behind a serial queue of its own: every operation is synchronous, and no two ever overlap.
///
/// Callable from any thread, but not from a hash or comparison of its own keys. Empty in a child of
/// fork(): what it held stays with the parent.
template <class Key, class Value>
class ThreadSafeDictionary {
 public:
  ThreadSafeDictionary()
      : queue_(detail::queueLabel("TarnService.ThreadSafeDictionary<" + detail::labelOf<Key>() +
                                  "-" + detail::labelOf<Value>() + ">.queue")) {}

  std::optional<Value> operator[](const Key& key) const {
    return queue_.sync([&]() -> std::optional<Value> {
      const auto entry = dictionary_->find(key);
      return entry == dictionary_->end() ? std::nullopt : std::optional<Value>(entry->second);
    });
  }

  /// An absent value removes the key.
  void set(const Key& key, std::optional<Value> value) {
    // What was there before is destroyed after the queue is left: its destructor may be the
    // application's code.
    queue_.sync([&] {
      if (value) {
        const auto [entry, inserted] = dictionary_->try_emplace(key, *value);
        if (!inserted) std::swap(entry->second, *value);
      } else if (auto node = dictionary_->extract(key)) {
        value = std::move(node.mapped());
      }
    });
  }

  /// Replaces the value of a key that is there; otherwise nothing. Answers whether it was.
  bool replaceValue(const Key& forKey, Value value) {
    return queue_.sync([&] {
      const auto entry = dictionary_->find(forKey);
      if (entry == dictionary_->end()) return false;
      std::swap(entry->second, value);
      return true;
    });
  }

  std::optional<Value> removeValue(const Key& forKey) {
    return queue_.sync([&]() -> std::optional<Value> {
      auto node = dictionary_->extract(forKey);
      return node ? std::optional<Value>(std::move(node.mapped())) : std::nullopt;
    });
  }

  std::size_t count() const {
    return queue_.sync([&] { return dictionary_->size(); });
  }

  /// Runs `body` with the map itself, for what has to be one step. What it takes out is best let go
  /// afterwards.
  template <class F>
  void update(F&& body) {
    queue_.sync([&] { body(*dictionary_); });
  }

  const DispatchQueue& queue() const noexcept { return queue_; }

 private:
  using Map = std::unordered_map<typename detail::KeyOf<Key, Value>::Type, Value>;

  DispatchQueue queue_;
  mutable detail::PerProcess<Map> dictionary_;
};

/// A list behind a serial queue of its own. Empty in a child of fork().
template <class Element>
class ThreadSafeArray {
 public:
  // The lower-case start of the label, unlike the dictionary's, is kept: tools find the queues by
  // it.
  ThreadSafeArray()
      : queue_(detail::queueLabel("tarnservice.ThreadSafeArray<" + detail::labelOf<Element>() +
                                  ">.queue")) {}

  void append(Element element) {
    queue_.sync([&] { array_->push_back(std::move(element)); });
  }

  std::vector<Element> array() const {
    return queue_.sync([&] { return *array_; });
  }

  /// All elements, none of them copied; the list is empty then.
  std::vector<Element> takeAll() {
    return queue_.sync([&] { return std::exchange(*array_, {}); });
  }

  const DispatchQueue& queue() const noexcept { return queue_; }

 private:
  DispatchQueue queue_;
  mutable detail::PerProcess<std::vector<Element>> array_;
};

}  // namespace tarn
