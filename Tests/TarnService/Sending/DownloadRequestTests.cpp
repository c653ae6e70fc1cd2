#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using test::Script;

static_assert(HTTPRequestable<DownloadRequest<File>>);
static_assert(std::is_same_v<decltype(DownloadRequest(URL::empty())), DownloadRequest<File>>);

class DownloadRequestTests : public test::ServiceTest {
 protected:
  DownloadRequestTests() { server.route("/file.txt", Script().respond(200, {}, "content")); }

  test::ScriptedServer server;
};

TEST_F(DownloadRequestTests, AnAddressGivesTheFile) {
  test::Collector<DownloadResponse<File>> responses;
  DownloadRequest(URL(server.url("/file.txt"))).send(std::nullopt, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  const auto file = responses.value(0).result.body();
  ASSERT_TRUE(file);
  EXPECT_EQ(file->fileURL().lastPathComponent(), "file.txt");
  EXPECT_EQ(file->asData(), Data("content"));
  EXPECT_EQ(server.request(0).method, "GET");
  expectKeptDownloads(1);
}

TEST_F(DownloadRequestTests, ItCarriesWhatItIsMadeFrom) {
  const DownloadRequest<Data> request(URL(server.url("/file.txt?k=1")), HTTPMethod::post,
                                      {{"X-Kind", "list"}}, {{"n", 1}});
  test::Collector<DownloadResponse<Data>> responses;
  request.send(std::nullopt, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.body(), Data("content"));
  EXPECT_EQ(server.request(0).method, "POST");
  EXPECT_EQ(server.request(0).target, "/file.txt?k=1");
  EXPECT_EQ(server.request(0).header("X-Kind"), "list");
  EXPECT_EQ(request.queryItems.count("n"), 1u);
  expectKeptDownloads(1);
}

}  // namespace
}  // namespace tarn
