#pragma once

#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/Detail/StoredAnswer.hpp>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tarn::detail {

/// The answers that one session keeps, in memory; the one that was not used for the longest time
/// makes room for a new one.
///
/// On one thread only: the engine's loop thread.
class ResponseCache {
 public:
  using Entry = std::shared_ptr<const StoredAnswer>;

  /// `capacity` bounds the sum of the costs of the answers and the bytes of their keys; with 0
  /// nothing is kept.
  explicit ResponseCache(std::size_t capacity) noexcept : capacity_(capacity) {}

  /// What answers from an address are found by: the origin and the request's target, so nothing of
  /// a login.
  static std::string keyOf(const Origin& origin, const URL& url);

  bool isOff() const noexcept { return capacity_ == 0; }
  /// What costs more is not kept: it would drive out too much else.
  std::size_t mostCost() const noexcept { return capacity_ / 10; }

  // `key` is always that of the request's address.

  /// The latest answer that this request would select; null for none. Whether it may be used is
  /// another question.
  Entry find(std::string_view key, const URLRequest& request);
  /// Keeps an answer to `request` in place of what that would have selected.
  void store(std::string_view key, const URLRequest& request, Entry entry);
  /// Puts `renewed` in place of an answer, unless that has gone meanwhile.
  void renew(std::string_view key, const Entry& entry, Entry renewed);
  /// Forgets what the request would select.
  void forget(std::string_view key, const URLRequest& request);
  /// Forgets every answer from an address that has been changed, and counts the change.
  void invalidate(std::string_view key);
  void clear() noexcept;

  /// How many changes there have been: an answer that was asked for before one may show what was
  /// before it.
  std::uint64_t changes() const noexcept { return changes_; }
  std::size_t cost() const noexcept { return cost_; }
  std::size_t size() const noexcept { return kept_.size(); }

 private:
  struct Kept {
    std::string key;
    Entry answer;

    std::size_t cost() const noexcept { return key.size() + answer->cost(); }
  };
  using KeptList = std::list<Kept>;  // the one used last comes first
  using Places = std::unordered_multimap<std::string_view, KeptList::iterator>;

  void insert(std::string_view key, Entry entry);
  void replace(KeptList::iterator kept, Entry entry) noexcept;
  Places::iterator remove(Places::iterator place) noexcept;
  void makeRoom() noexcept;
  void limitVariants(std::string_view key) noexcept;

  const std::size_t capacity_;
  std::size_t cost_ = 0;
  std::uint64_t changes_ = 0;
  KeptList kept_;
  Places places_;  // by the keys in the list
};

}  // namespace tarn::detail
