#include <Platform/Types/UUID.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>
#include <TarnService/Transport/TaskManager.hpp>
#include <TarnService/Transport/ThreadSafeDictionary.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

struct Tenant {};

TEST(ThreadSafeDictionaryTests, StoresReplacesAndRemoves) {
  ThreadSafeDictionary<std::string, int> dictionary;
  EXPECT_EQ(dictionary["a"], std::nullopt);
  dictionary.set("a", 1);
  dictionary.set("b", 2);
  dictionary.set("a", 3);
  EXPECT_EQ(dictionary["a"], 3);
  EXPECT_EQ(dictionary.count(), 2u);
  EXPECT_EQ(dictionary.removeValue("a"), 3);
  EXPECT_EQ(dictionary.removeValue("a"), std::nullopt);
  EXPECT_EQ(dictionary.count(), 1u);
}

TEST(ThreadSafeDictionaryTests, AnAbsentValueRemovesTheKey) {
  ThreadSafeDictionary<std::string, int> dictionary;
  dictionary.set("a", 1);
  dictionary.set("a", std::nullopt);
  EXPECT_EQ(dictionary["a"], std::nullopt);
  EXPECT_EQ(dictionary.count(), 0u);
}

TEST(ThreadSafeDictionaryTests, AnUpdateIsOneStepOnItsQueue) {
  ThreadSafeDictionary<std::string, int> dictionary;
  dictionary.set("a", 1);
  dictionary.update([&](auto& map) {
    EXPECT_TRUE(dictionary.queue().isCurrent());
    map["b"] = map.at("a") + 1;
    map.erase("a");
  });
  EXPECT_EQ(dictionary["a"], std::nullopt);
  EXPECT_EQ(dictionary["b"], 2);
}

TEST(ThreadSafeDictionaryTests, QueuesAreLabelledByTheirTypes) {
  using Strings = ThreadSafeDictionary<std::string, std::shared_ptr<URLSessionTaskRef>>;
  EXPECT_EQ(Strings().queue().label(),
            "dev.tarnservice.TarnService.ThreadSafeDictionary<String-URLSessionTaskRef>.queue");
  using States = ThreadSafeDictionary<UUID, TaskManager::State>;
  EXPECT_EQ(States().queue().label(),
            "dev.tarnservice.TarnService.ThreadSafeDictionary<UUID-State>.queue");
  EXPECT_EQ(ThreadSafeArray<Tenant>().queue().label(),
            "dev.tarnservice.tarnservice.ThreadSafeArray<Tenant>.queue");
}

TEST(ThreadSafeDictionaryTests, OperationsRunOnItsQueue) {
  ThreadSafeDictionary<std::string, int> dictionary;
  const auto queue = dictionary.queue();
  // A value that looks around while it is copied into the dictionary.
  struct Witness {
    DispatchQueue queue;
    bool* onQueue;
    Witness(DispatchQueue watched, bool* seen) : queue(std::move(watched)), onQueue(seen) {}
    Witness(const Witness& other) : queue(other.queue), onQueue(other.onQueue) {
      *onQueue = queue.isCurrent();
    }
    Witness& operator=(const Witness&) = default;
  };
  ThreadSafeDictionary<int, Witness> witnesses;
  bool onQueue = false;
  witnesses.set(1, Witness(witnesses.queue(), &onQueue));
  EXPECT_TRUE(onQueue);
}

TEST(ThreadSafeDictionaryTests, AReplacedValueIsDestroyedOutsideOfTheQueue) {
  ThreadSafeDictionary<int, std::shared_ptr<void>> dictionary;
  std::size_t countSeen = 0;
  // A destructor that asks the dictionary would end the process if it ran on the queue.
  const auto asking = [&] {
    return std::shared_ptr<void>(nullptr, [&](void*) { countSeen = dictionary.count(); });
  };
  dictionary.set(1, asking());
  dictionary.set(1, std::shared_ptr<void>());
  EXPECT_EQ(countSeen, 1u);
  dictionary.set(1, asking());
  dictionary.set(1, std::nullopt);
  EXPECT_EQ(countSeen, 0u);
}

TEST(ThreadSafeDictionaryTests, KeepsItsContentsUnderConcurrentUse) {
  ThreadSafeDictionary<int, int> dictionary;
  ThreadSafeArray<int> array;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int index = 0; index < 1000; ++index) {
        dictionary.set(thread * 1000 + index, index);
        array.append(index);
        if (index % 2 == 0) dictionary.removeValue(thread * 1000 + index);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(dictionary.count(), 2000u);
  EXPECT_EQ(array.array().size(), 4000u);
}

TEST(ThreadSafeArrayTests, AppendsInOrder) {
  ThreadSafeArray<std::string> array;
  array.append("a");
  array.append("b");
  EXPECT_THAT(array.array(), testing::ElementsAre("a", "b"));
}

}  // namespace
}  // namespace tarn
