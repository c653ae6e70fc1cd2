#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {
namespace {

using test::Script;

constexpr TimeInterval limit{15};

struct Pet {
  std::string name;
};

struct GetPet : JSONGetRequestable<GetPet, Pet> {
  explicit GetPet(const std::string& address) : url(address) {}
  URL url;
  bool shouldSend = true;
};

struct Probe : DataGetRequestable<Probe>, HTTPRequestCancelable<Probe> {
  explicit Probe(const std::string& address) : url(address) {}
  URL url;
  UUID cancellationIdentifier;
};

struct Fetch : DownloadGetRequestable<Fetch, Data> {
  explicit Fetch(const std::string& address) : url(address) {}
  URL url;
  std::function<void()> onValidate = [] {};
  void validate() const { onValidate(); }
};

template <class T>
std::optional<Error> failureOf(const Future<T>& future) {
  try {
    future.get(limit);
  } catch (...) {
  }
  return future.error();
}

class PromiseSendTests : public test::ServiceTest {
 protected:
  PromiseSendTests() {
    server.route("/pet", Script().respond(200, {{"X-Kind", "cat"}}, R"({"name":"Tom"})"));
    server.route("/none", Script().respond(204));
    server.route("/missing", Script().respond(404, {}, "none"));
    server.route("/stall", Script().stall());
  }

  test::ScriptedServer server;
};

TEST_F(PromiseSendTests, ABodyCompletesTheFutureWithTheAnswerAndTheBody) {
  const auto future = GetPet(server.url("/pet")).send();
  const HTTPResponse<JSONResponse<Pet>, Pet> response = future.get(limit);
  EXPECT_EQ(response.body.name, "Tom");
  EXPECT_EQ(response.data, Data(R"({"name":"Tom"})"));
  EXPECT_EQ(response.status, HTTPStatus::success);
  EXPECT_EQ(response.headers->value("X-Kind"), "cat");
  EXPECT_EQ(response.url, URL(server.url("/pet")));
  EXPECT_THAT(response.debugDescription, testing::HasSubstr("cat"));
}

TEST_F(PromiseSendTests, ASuccessWithoutABodyFailsTheFuture) {
  const auto error = failureOf(GetPet(server.url("/none")).send());
  const auto* unknown = error->as<HTTPUnknownError>();
  ASSERT_NE(unknown, nullptr) << error->message();
  EXPECT_EQ(unknown->kind(), HTTPUnknownError::Case::futureFailedToMapBody);
  EXPECT_EQ(unknown->function(), "mark(future:with:)");
  EXPECT_EQ(unknown->line(), 36);
}

TEST_F(PromiseSendTests, TheErrorOfTheResponseFailsTheFuture) {
  const auto error = failureOf(GetPet(server.url("/missing")).send());
  const auto* refused = error->as<HTTPResponseError>();
  ASSERT_NE(refused, nullptr) << error->message();
  EXPECT_EQ(refused->kind(), HTTPResponseError::Case::unacceptableStatus);

  const auto malformed = failureOf(GetPet("/").send());
  ASSERT_NE(malformed->as<HTTPRequestError>(), nullptr);
  expectLog(LogLevel::error, "Failure sending request GetPet: Malformed URL: /");
}

TEST_F(PromiseSendTests, TheFutureOfARequestThatDeclinesIsBroken) {
  GetPet request(server.url("/pet"));
  request.shouldSend = false;
  const auto error = failureOf(request.send());
  ASSERT_NE(error->as<FutureError>(), nullptr);
  EXPECT_EQ(error->as<FutureError>()->kind(), FutureError::Case::broken);
  EXPECT_EQ(server.requestCount(), 0u);
}

// A request that answers itself, or drops what it was to answer.
struct Overridden : DataGetRequestable<Overridden> {
  bool drops = false;

  using DataGetRequestable::send;
  void send(std::optional<DispatchQueue> queue, Completion<DataResponse> completion) const {
    EXPECT_EQ(queue, std::nullopt);
    if (drops) return;
    completion(DataResponse(DataResult::success(Data("own"))));
  }
};

TEST_F(PromiseSendTests, AnOverrideOfSendTakesPart) {
  EXPECT_EQ(Overridden().send().get(limit).body, Data("own"));
  Overridden request;
  request.drops = true;
  const auto error = failureOf(request.send());
  ASSERT_NE(error->as<FutureError>(), nullptr);
  EXPECT_EQ(error->as<FutureError>()->kind(), FutureError::Case::broken);
}

TEST_F(PromiseSendTests, AFutureIsMadeAndMarkedByHand) {
  const auto future = Probe::createFuture();
  EXPECT_TRUE(future.isPending());
  Probe::mark(future, DataResponse(DataResult::success(Data("by hand"))));
  EXPECT_EQ(future.get().body, Data("by hand"));
}

TEST_F(PromiseSendTests, CancellingTheFutureCancelsARequestThatCanBe) {
  const auto future = Probe(server.url("/stall")).send();
  ASSERT_TRUE(server.waitForStalls(1));
  future.cancel();
  const auto error = failureOf(future);
  ASSERT_NE(error, std::nullopt);
  EXPECT_EQ(error->code(), -999) << error->message();
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST_F(PromiseSendTests, CancellingTheFutureOfAnyOtherRequestOnlyEndsTheWait) {
  const auto future = GetPet(server.url("/stall")).send();
  ASSERT_TRUE(server.waitForStalls(1));
  future.cancel();
  ASSERT_NE(future.error()->as<FutureError>(), nullptr);
  EXPECT_EQ(future.error()->as<FutureError>()->kind(), FutureError::Case::cancelled);
  EXPECT_EQ(server.stalledConnections(), 1u);
  server.releaseStalls();
  server.closeConnections();
}

// Downloads

TEST_F(PromiseSendTests, EveryProgressHandlerOfADownloadSeesEveryEventInOrder) {
  server.route("/pieces",
               Script().head(200, {{"Content-Length", "4"}}).send("ab").stall().send("cd"));
  const DispatchQueue queue("test.progress");
  const test::Collector<std::string> seen;
  const auto add = [&](const auto& future, const std::string& name) {
    future.template addProgressHandler<RequestProgress>([=](const RequestProgress& progress) {
      EXPECT_TRUE(queue.isCurrent());
      seen.add(name + std::to_string(progress.completedBytes) + "/" +
               std::to_string(progress.totalBytes));
    });
  };
  std::optional<ResponseFuture<Fetch>> future;
  queue.sync([&] {
    future = Fetch(server.url("/pieces")).send(queue);
    add(*future, "first ");
    add(*future, "second ");
  });
  ASSERT_TRUE(seen.waitFor(2));
  server.releaseStalls();
  EXPECT_EQ(future->get(limit).body, Data("abcd"));
  EXPECT_THAT(seen.values(),
              testing::ElementsAre("first 2/4", "second 2/4", "first 4/4", "second 4/4"));
  expectKeptDownloads(1);
}

TEST_F(PromiseSendTests, ADownloadIsAnsweredWithoutAQueueToo) {
  server.route("/file", Script().respond(200, {}, "content"));
  EXPECT_EQ(Fetch(server.url("/file")).send(std::nullopt).get(limit).body, Data("content"));
  EXPECT_EQ(Fetch(server.url("/file")).send().get(limit).body, Data("content"));
  expectKeptDownloads(2);
}

TEST_F(PromiseSendTests, ADownloadThatFailsFailsItsFuture) {
  Fetch request(server.url("/file"));
  request.onValidate = [] { throw std::runtime_error("not now"); };
  EXPECT_EQ(failureOf(request.send(std::nullopt))->message(), "not now");
  expectLog(LogLevel::error, "Failure sending request Fetch: not now");
}

// Coroutines

Future<std::string> nameOfPet(std::string address, DispatchQueue queue) {
  const GetPet request(address);
  const auto response = co_await request.send().on(queue);
  co_return response.body.name + (queue.isCurrent() ? "" : " elsewhere");
}

TEST_F(PromiseSendTests, ACoroutineAwaitsAnAnswer) {
  EXPECT_EQ(nameOfPet(server.url("/pet"), DispatchQueue("test.coroutine")).get(limit), "Tom");
  const auto error = failureOf(nameOfPet(server.url("/none"), DispatchQueue::global()));
  EXPECT_NE(error->as<HTTPUnknownError>(), nullptr);
}

Future<void> awaitsStalling(Probe request) { co_await request.send(); }

TEST_F(PromiseSendTests, CancellingACoroutineCancelsTheRequestThatItAwaits) {
  const auto future = awaitsStalling(Probe(server.url("/stall")));
  ASSERT_TRUE(server.waitForStalls(1));
  future.cancel();
  EXPECT_NE(failureOf(future), std::nullopt);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

constexpr int lanes = 20;
constexpr int requestsOfALane = 500;

Future<int> drive(std::string address, DispatchQueue queue) {
  const Probe request(address);
  int answered = 0;
  for (int index = 0; index < requestsOfALane; ++index) {
    const auto response = co_await request.send().on(queue);
    if (queue.isCurrent() && response.body.size() == 1) ++answered;
  }
  co_return answered;
}

Future<int> driveAll(std::string address) {
  std::vector<Future<int>> running;
  for (int lane = 0; lane < lanes; ++lane) {
    running.push_back(drive(address, DispatchQueue("test.lane." + std::to_string(lane))));
  }
  int answered = 0;
  for (const auto& lane : running) answered += co_await lane;
  co_return answered;
}

TEST(PromiseLoadTests, TenThousandRequestsAreAwaitedEachOnItsQueue) {
  test::ScriptedServer server(false);
  server.route("/", Script().respond(200, {}, "1"));
  EXPECT_EQ(driveAll(server.url("/")).get(TimeInterval(100)), lanes * requestsOfALane);
  EXPECT_EQ(server.requestCount(), std::size_t{lanes} * requestsOfALane);
}

}  // namespace
}  // namespace tarn
