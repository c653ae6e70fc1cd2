// Sanitizers have an allocator of their own, which mallinfo2 knows nothing of.
#if !defined(TARN_ADDRESS_SANITIZER) && !defined(TARN_THREAD_SANITIZER)

#include <Support/Collector.hpp>
#include <Support/Eventually.hpp>
#include <Support/LogRecorder.hpp>
#include <Support/ScriptedServer.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <malloc.h>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarn {
namespace {

using test::Collector;
using test::eventually;
using test::Script;
using test::ScriptedServer;

// Bytes that malloc has handed out, in all of its arenas; those of the server in this process too.
std::size_t bytesInUse() {
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Tells how many of its tasks are about to be made, and whether any copy of it is left.
struct Get : DataGetRequestable<Get> {
  explicit Get(const ScriptedServer& server) : url(server.url()) {}

  void validate() const { ++*begun; }

  URL url;
  std::shared_ptr<std::atomic<std::size_t>> begun = std::make_shared<std::atomic<std::size_t>>(0);
};

class MemoryTests : public testing::Test {
 protected:
  // Without the records of other tests, whose places those of this one would take.
  MemoryTests() {
    resetDefaultTaskProducers();
    std::vector<std::shared_ptr<URLSessionTaskRef>> others;
    taskDictionary().update([&](auto& refs) {
      for (auto& [key, ref] : refs) others.push_back(std::move(ref));
      refs.clear();
    });
  }

  // Sessions that are reset say so.
  ~MemoryTests() override {
    for (const auto& entry : log.entries()) {
      EXPECT_TRUE(entry.message.ends_with("No error message attempting to reset")) << entry.message;
    }
  }

  static constexpr std::size_t count = 10000;

  // Sends a parallel batch, all of it at once, and waits until it is answered and gone.
  static void sendBatch(const ScriptedServer& server) {
    const Get request(server);
    const Collector<std::size_t> answered;
    send(std::vector(count, request), std::nullopt, true,
         [answered](const std::vector<DataResponse>& responses) {
           std::size_t successful = 0;
           for (const auto& response : responses) successful += response.result.isSuccessful();
           answered.add(successful);
         });
    ASSERT_TRUE(answered.waitFor(1, std::chrono::minutes(1)));
    EXPECT_EQ(answered.value(0), count);
    ASSERT_TRUE(eventually([&] { return request.begun.use_count() == 1; }));
  }

  test::LogRecorder log;
};

TEST_F(MemoryTests, WhatFinishedRequestsLeaveIsSmallAndGoesWithTheReset) {
  ScriptedServer server(false);
  server.route("/", Script().respond(200, {}, "a body"));
  sendBatch(server);
  const std::size_t first = bytesInUse();
  sendBatch(server);
  const std::size_t second = bytesInUse();
  EXPECT_GT(second, first + 500 * count) << "the records are gone without a reset";
  EXPECT_LT(second, first + 1200 * count);
  // From here on each batch takes the places of the first: nothing grows.
  for (int round = 0; round < 2; ++round) {
    resetDefaultTaskProducers();
    sendBatch(server);
    EXPECT_LT(bytesInUse(), second + second / 20);
  }
}

TEST_F(MemoryTests, AQueuedRequestNeedsLessThanSixKiB) {
  ScriptedServer silent(false);
  silent.setHandler([](const auto&) { return Script().stall(); });
  ScriptedServer server(false);
  server.route("/", Script().respond(200));
  const Collector<bool> answered;
  const auto answer = [answered](const DataResponse& response) {
    answered.add(response.result.isSuccessful());
  };
  Get(server).send(std::nullopt, answer);  // what is made once
  ASSERT_TRUE(answered.waitFor(1));

  const std::size_t before = bytesInUse();
  const Get request(silent);
  for (std::size_t index = 0; index < count; ++index) request.send(std::nullopt, answer);
  ASSERT_TRUE(eventually([&] { return *request.begun == count; }));
  // What the transport was given before this one, it has put into its queue by then.
  Get(server).send(std::nullopt, answer);
  ASSERT_TRUE(answered.waitFor(2));
  const std::size_t after = bytesInUse();
  EXPECT_GT(after, before + 1000 * count) << "they are not queued";
  EXPECT_LT(after, before + 6 * 1024 * count);

  resetDefaultTaskProducers();
  ASSERT_TRUE(answered.waitFor(count + 2));
}

}  // namespace
}  // namespace tarn

#endif
