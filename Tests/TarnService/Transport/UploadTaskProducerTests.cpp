#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/Transport/UploadTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace tarn {
namespace {

using test::Script;

struct Outcome {
  std::optional<Data> data;
  std::optional<Error> error;
};

class UploadTaskProducerTests : public test::ServiceTest {
 protected:
  UploadTaskProducerTests() {
    server.route("/put", Script().respond(201, {}, "stored"));
    test::writeFile(place.file("body.txt"), "from the file");
  }

  auto collect() const {
    return
        [outcomes = outcomes](std::optional<Data> data, const std::shared_ptr<const URLResponse>&,
                              std::optional<Error> error) {
          outcomes.add({std::move(data), std::move(error)});
        };
  }
  URLRequest request() const {
    URLRequest request(URL(server.url("/put")));
    request.setHTTPMethod("PUT");
    return request;
  }

  test::ScriptedServer server;
  std::shared_ptr<UploadTaskProducer> producer = test::makeProducer<UploadTaskProducer>();
  test::Collector<Outcome> outcomes;
  const test::TemporaryDirectory place;
};

TEST_F(UploadTaskProducerTests, BytesAreSentAndTheAnswersBodyIsReported) {
  const auto task =
      producer->create(request(), HTTPUploadTaskKind::data(Data("bytes")), false, collect());
  EXPECT_EQ(task->state(), URLSessionTask::State::suspended);
  EXPECT_EQ(taskDictionary()["1-TarnService.UploadTaskProducer"].value()->task, task);
  task->resume();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).data, Data("stored"));
  EXPECT_EQ(server.request(0).method, "PUT");
  EXPECT_EQ(server.request(0).body, "bytes");
}

TEST_F(UploadTaskProducerTests, AFileIsSentByItsContent) {
  const auto kind = HTTPUploadTaskKind::file(URL::fileURL(place.file("body.txt")));
  producer->create(request(), kind, false, collect())->resume();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).data, Data("stored"));
  EXPECT_EQ(server.request(0).body, "from the file");
  EXPECT_EQ(server.request(0).header("Content-Length"), "13");
}

TEST_F(UploadTaskProducerTests, AMissingFileIsReported) {
  const auto kind = HTTPUploadTaskKind::file(URL::fileURL(place.file("missing")));
  producer->create(request(), kind, false, collect())->resume();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_FALSE(outcomes.value(0).data);
  EXPECT_EQ(outcomes.value(0).error->code(), URLError::fileDoesNotExist);
}

TEST_F(UploadTaskProducerTests, ProgressIsKeptInTheRecordAndNeverCalled) {
  test::Waiter progress;
  const auto kind = HTTPUploadTaskKind::data(Data(std::string(1 << 20, 'x')));
  producer->create(request(), kind, false, progress.callback(), collect())->resume();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_FALSE(outcomes.value(0).error);
  UploadTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  const auto record = taskDictionary()["1-TarnService.UploadTaskProducer"].value();
  EXPECT_EQ(progress.count(), 0u);
  record->progress(1, 2);
  EXPECT_EQ(progress.count(), 1u);
}

TEST_F(UploadTaskProducerTests, ARequestOfEitherKindSaysWhichItIs) {
  const auto describe = [](const HTTPUploadTaskKind& kind) {
    return kind.match([](const Data& body) { return "data " + std::string(body.view()); },
                      [](const URL& file) { return "file " + file.absoluteString(); });
  };
  EXPECT_EQ(describe(HTTPUploadTaskKind::data(Data("x"))), "data x");
  EXPECT_EQ(describe(HTTPUploadTaskKind::file(URL::fileURL("/a b"))), "file file:///a%20b");
}

}  // namespace
}  // namespace tarn
