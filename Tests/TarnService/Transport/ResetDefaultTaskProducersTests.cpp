#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using test::Script;

struct Upload : UploadPostRequestable<Upload> {
  URL url;
  Data body{"bytes"};
  explicit Upload(URL url) : url(std::move(url)) {}
};

class ResetDefaultTaskProducersTests : public test::ServiceTest {
 protected:
  ResetDefaultTaskProducersTests() {
    server.route("/stall", Script().stall());
    server.route("/half", Script().head(200, {{"Content-Length", "10"}}).send("half of").stall());
    server.route("/ok", Script().respond(200, {}, "ok"));
  }
  void expectResetLog() {
    const std::string end = "No error message attempting to reset";
    expectLog(LogLevel::error, "TarnService session became invalid with error: " + end);
    expectLog(LogLevel::error, "TarnService session became invalid with error: " + end);
    expectLog(LogLevel::error, "TarnService download session became invalid with error: " + end);
  }
  URL url(const std::string& path) const { return URL(server.url(path)); }

  test::ScriptedServer server;
};

TEST_F(ResetDefaultTaskProducersTests, RunningRequestsOfEveryKindEndAsCancelled) {
  test::Collector<std::int64_t> codes;
  const auto collect = [codes](const auto& response) {
    codes.add(response.result.error() ? response.result.error()->code() : 0);
  };
  DataGetRequest(url("/stall")).send(std::nullopt, collect);
  Upload(url("/stall")).send(std::nullopt, collect);
  DownloadRequest(url("/half")).send(std::nullopt, collect);
  ASSERT_TRUE(server.waitForStalls(3));
  resetDefaultTaskProducers();
  ASSERT_TRUE(codes.waitFor(3));
  EXPECT_THAT(codes.values(), testing::Each(URLError::cancelled));
  expectResetLog();
}

TEST_F(ResetDefaultTaskProducersTests, RequestsGoOnNewSessionsAfterwards) {
  const auto download = DownloadTaskProducer::shared()->session();
  const auto data = DataTaskProducer::shared()->session();
  const auto upload = UploadTaskProducer::shared()->session();
  resetDefaultTaskProducers();
  expectResetLog();
  EXPECT_NE(DownloadTaskProducer::shared()->session(), download);
  EXPECT_NE(DataTaskProducer::shared()->session(), data);
  EXPECT_NE(UploadTaskProducer::shared()->session(), upload);
  test::Collector<bool> successes;
  const auto collect = [successes](const auto& response) {
    successes.add(response.result.isSuccessful());
  };
  DataGetRequest(url("/ok")).send(std::nullopt, collect);
  Upload(url("/ok")).send(std::nullopt, collect);
  DownloadRequest(url("/ok")).send(std::nullopt, collect);
  ASSERT_TRUE(successes.waitFor(3));
  EXPECT_THAT(successes.values(), testing::Each(true));
  expectKeptDownloads(1);
}

}  // namespace
}  // namespace tarn
