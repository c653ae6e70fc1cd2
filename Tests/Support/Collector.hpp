#pragma once
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tarn::test {

/// Gathers what callbacks deliver on any thread, for the test to wait on. Copies share the same
/// store, so that a callback that comes after the test has ended hurts nobody.
template <class T>
class Collector {
 public:
  void add(T value) const {
    std::lock_guard lock(store_->mutex);
    store_->values.push_back(std::move(value));
    store_->changed.notify_all();
  }

  /// A callback that adds its argument.
  auto callback() const {
    return [collector = *this](T value) { collector.add(std::move(value)); };
  }

  /// False when fewer than `count` values came within `limit`.
  [[nodiscard]] bool waitFor(
      std::size_t count, std::chrono::milliseconds limit = std::chrono::milliseconds(15000)) const {
    std::unique_lock lock(store_->mutex);
    return store_->changed.wait_for(lock, limit, [&] { return store_->values.size() >= count; });
  }

  std::size_t count() const {
    std::lock_guard lock(store_->mutex);
    return store_->values.size();
  }
  std::vector<T> values() const {
    std::lock_guard lock(store_->mutex);
    return store_->values;
  }
  /// Throws std::out_of_range when there are fewer.
  T value(std::size_t index) const {
    std::lock_guard lock(store_->mutex);
    return store_->values.at(index);
  }
  /// Takes all values out; for types that cannot be copied.
  std::vector<T> take() const {
    std::lock_guard lock(store_->mutex);
    return std::exchange(store_->values, {});
  }

 private:
  struct Store {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<T> values;
  };
  std::shared_ptr<Store> store_ = std::make_shared<Store>();
};

/// Counts events on any thread, for the test to wait on. Copies share the same count.
class Waiter {
 public:
  void signal() const { events_.add(true); }
  /// A callback that signals, whatever its arguments.
  auto callback() const {
    return [waiter = *this](const auto&...) { waiter.signal(); };
  }
  [[nodiscard]] bool waitFor(std::size_t count = 1, std::chrono::milliseconds limit =
                                                        std::chrono::milliseconds(15000)) const {
    return events_.waitFor(count, limit);
  }
  std::size_t count() const { return events_.count(); }

 private:
  Collector<bool> events_;
};

}  // namespace tarn::test
