#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnLogger/Logger.hpp>
#include <TarnService/Transport/DownloadTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace tarn {
namespace {

using test::Script;

constexpr std::int64_t unknownTask = 123456789;

struct Outcome {
  std::optional<URL> file;
  std::shared_ptr<const URLResponse> response;
  std::optional<Error> error;
};
using Progress = std::pair<std::int64_t, std::int64_t>;

class DownloadTaskProducerTests : public test::ServiceTest {
 protected:
  DownloadTaskProducerTests() {
    server.route("/report.txt", Script().respond(200, {}, "of today"));
    server.route("/stall", Script().head(200, {{"Content-Length", "10"}}).send("half ").stall());
    server.route("/cut", Script().head(200, {{"Content-Length", "10"}}).send("half ").close());
  }

  auto collect() const {
    return
        [outcomes = outcomes](std::optional<URL> file, std::shared_ptr<const URLResponse> response,
                              std::optional<Error> error) {
          outcomes.add({std::move(file), std::move(response), std::move(error)});
        };
  }
  URLRequest request(const std::string& path) const { return URLRequest(URL(server.url(path))); }
  std::shared_ptr<URLSessionTask> start(const std::string& path) {
    auto task = producer->create(request(path), false, collect());
    task->resume();
    return task;
  }
  // A record without a running task, for the report operations themselves.
  std::shared_ptr<URLSessionTask> record(URLSessionTaskRef::Progress progress = nullptr) {
    return producer->create(request("/never"), false, std::move(progress), collect());
  }
  URL localFile(const std::string& name, const std::string& content) const {
    test::writeFile(place.file(name), content);
    return URL::fileURL(place.file(name));
  }
  static std::shared_ptr<const HTTPURLResponse> answer(const std::string& url) {
    return std::make_shared<const HTTPURLResponse>(URL(url), 200, "HTTP/1.1", HTTPHeaderFields());
  }
  // The name and, before it, the directory of a file.
  static std::string nameOf(const std::optional<URL>& file) { return file->lastPathComponent(); }
  static std::string directoryOf(const std::optional<URL>& file) {
    const auto components = file->pathComponents();
    return components.at(components.size() - 2);
  }

  test::ScriptedServer server;
  std::shared_ptr<DownloadTaskProducer> producer = test::makeProducer<DownloadTaskProducer>();
  test::Collector<Outcome> outcomes;
  const test::TemporaryDirectory place;
};

TEST_F(DownloadTaskProducerTests, ATaskReportsACopyOfItsFileThatStays) {
  start("/report.txt");
  ASSERT_TRUE(outcomes.waitFor(1));
  DownloadTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  const auto outcome = outcomes.value(0);
  ASSERT_TRUE(outcome.file);
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(test::readFile(outcome.file->path()), "of today");
  EXPECT_EQ(nameOf(outcome.file), "report.txt");
  EXPECT_TRUE(directoryOf(outcome.file).starts_with("TarnService-"));
  EXPECT_EQ(dynamic_cast<const HTTPURLResponse*>(outcome.response.get())->statusCode(), 200);
  expectKeptDownloads(1);
}

TEST_F(DownloadTaskProducerTests, SuccessIsReportedOnceAndNotAgainAtTheTasksEnd) {
  start("/report.txt");
  ASSERT_TRUE(outcomes.waitFor(1));
  // A second task's end comes after that of the first.
  start("/report.txt");
  ASSERT_TRUE(outcomes.waitFor(2));
  DownloadTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  EXPECT_EQ(outcomes.count(), 2u);
  expectKeptDownloads(2);
}

TEST_F(DownloadTaskProducerTests, AFailureIsReportedOnceWithoutAFile) {
  start("/cut");
  ASSERT_TRUE(outcomes.waitFor(1));
  DownloadTaskProducer::sessionQueue()->waitUntilAllOperationsAreFinished();
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_FALSE(outcomes.value(0).file);
  EXPECT_EQ(outcomes.value(0).error->code(), URLError::networkConnectionLost);
  EXPECT_TRUE(outcomes.value(0).response);
}

TEST_F(DownloadTaskProducerTests, TwoDownloadsOfOneNameOverwriteNothing) {
  server.routeSequence("/same",
                       {Script().respond(200, {}, "first"), Script().respond(200, {}, "second")});
  for (std::size_t count = 1; count <= 2; ++count) {
    start("/same");
    ASSERT_TRUE(outcomes.waitFor(count));
  }
  const auto first = outcomes.value(0).file;
  const auto second = outcomes.value(1).file;
  EXPECT_EQ(nameOf(first), nameOf(second));
  EXPECT_NE(directoryOf(first), directoryOf(second));
  EXPECT_EQ(test::readFile(first->path()), "first");
  EXPECT_EQ(test::readFile(second->path()), "second");
  expectKeptDownloads(2);
}

TEST_F(DownloadTaskProducerTests, TheServersNameIsTaken) {
  server.route("/named",
               Script().respond(200, {{"Content-Disposition", "attachment; filename=\"a b.txt\""}},
                                "named"));
  start("/named");
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(nameOf(outcomes.value(0).file), "a b.txt");
  EXPECT_EQ(test::readFile(outcomes.value(0).file->path()), "named");
  expectKeptDownloads(1);
}

TEST_F(DownloadTaskProducerTests, AServerCannotNameAFileOutsideOfItsDirectory) {
  server.route(
      "/evil",
      Script().respond(200, {{"Content-Disposition", "attachment; filename=\"../../escaped.txt\""}},
                       "evil"));
  start("/evil");
  ASSERT_TRUE(outcomes.waitFor(1));
  const auto file = outcomes.value(0).file;
  EXPECT_TRUE(directoryOf(file).starts_with("TarnService-")) << file->path();
  EXPECT_TRUE(test::fileExists(file->path()));
  expectKeptDownloads(1);
}

TEST_F(DownloadTaskProducerTests, WithoutASuggestedNameTheLocationsOwnIsTaken) {
  const auto task = record();
  producer->reportSuccess(task->taskIdentifier(), localFile("platform.tmp", "bytes"), nullptr);
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_EQ(nameOf(outcomes.value(0).file), "platform.tmp");
  EXPECT_EQ(test::readFile(outcomes.value(0).file->path()), "bytes");
  EXPECT_FALSE(outcomes.value(0).response);
  EXPECT_TRUE(test::fileExists(place.file("platform.tmp")));
  expectKeptDownloads(1);
}

TEST_F(DownloadTaskProducerTests, WithoutATemporaryDirectoryTheLocationItselfIsHandedOn) {
  const auto task = record();
  const URL location = localFile("platform.tmp", "bytes");
  const test::ScopedEnvironment blocked("TMPDIR", place.file("platform.tmp"));
  producer->reportSuccess(task->taskIdentifier(), location, nullptr);
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_EQ(outcomes.value(0).file, location);
  EXPECT_FALSE(outcomes.value(0).error);
}

TEST_F(DownloadTaskProducerTests, WhereTheCopyFailsTheLocationItselfIsHandedOn) {
  const auto task = record();
  const auto response = answer("http://h/file.txt");
  const URL location = URL::fileURL(place.file("missing"));
  producer->reportSuccess(task->taskIdentifier(), location, response);
  ASSERT_EQ(outcomes.count(), 1u);
  EXPECT_EQ(outcomes.value(0).file, location);
  EXPECT_EQ(outcomes.value(0).response, response);
  const auto errors = log.messages(LogLevel::error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_THAT(errors[0],
              testing::StartsWith("Failure to create tempDirectory going back to default tempFile: "
                                  "Copying \"" +
                                  location.path() + "\""));
  EXPECT_STREQ(log.entries().back().location.function, "reportSuccess(for:location:urlResponse:)");
  expectLog(LogLevel::error, errors[0]);
}

TEST_F(DownloadTaskProducerTests, SuccessOfAnUnknownTaskIsLoggedAndCopiesNothing) {
  producer->reportSuccess(unknownTask, localFile("platform.tmp", "bytes"), nullptr);
  expectLog(LogLevel::error, "Coulnd't find taskRef with id 123456789 to report sucess");
  EXPECT_STREQ(log.entries().back().location.function, "reportSuccess(for:location:urlResponse:)");
}

TEST_F(DownloadTaskProducerTests, SuccessWithACompletionOfTheWrongKindEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(
      {
        Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
        const auto task = producer->session()->downloadTask(request("/never"));
        producer->addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
            task, false, nullptr, URLSessionTaskRef::DataCompletion([](auto, auto, auto) {})));
        producer->reportSuccess(task->taskIdentifier(), URL::fileURL("/nowhere"), nullptr);
      },
      "Invalid completion type for taskRef with id 1(.|\n)*Fatal error");
}

TEST_F(DownloadTaskProducerTests, ProgressGoesToTheRecordsCallback) {
  test::Collector<Progress> progress;
  const auto task = record([progress](std::int64_t done, std::int64_t expected) {
    progress.add({done, expected});
  });
  producer->reportProgress(task->taskIdentifier(), 3, 7);
  producer->reportProgress(task->taskIdentifier(), 7, -1);
  EXPECT_THAT(progress.values(), testing::ElementsAre(Progress(3, 7), Progress(7, -1)));
}

TEST_F(DownloadTaskProducerTests, ARecordWithoutProgressIsLeftAlone) {
  EXPECT_NO_THROW(producer->reportProgress(record()->taskIdentifier(), 3, 7));
  EXPECT_EQ(outcomes.count(), 0u);
}

TEST_F(DownloadTaskProducerTests, ProgressOfAnUnknownTaskIsAFault) {
  producer->reportProgress(unknownTask, 3, 7);
  expectLog(LogLevel::fault, "Couldn't find taskRef for 123456789");
  EXPECT_STREQ(log.entries().back().location.function,
               "reportProgress(for:totalBytesWritten:totalBytesExpectedToWrite:)");
}

TEST_F(DownloadTaskProducerTests, ProgressComesAsTheFileGrows) {
  test::Collector<Progress> progress;
  const auto task = producer->create(
      request("/stall"), false,
      [progress](std::int64_t done, std::int64_t expected) {
        progress.add({done, expected});
      },
      collect());
  task->resume();
  ASSERT_TRUE(progress.waitFor(1));
  EXPECT_EQ(progress.value(0), Progress(5, 10));
  task->cancel();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).error->code(), URLError::cancelled);
}

TEST_F(DownloadTaskProducerTests, TheResumeEventReportsProgress) {
  test::Collector<Progress> progress;
  const auto session = producer->session();
  const auto task = session->downloadTask(request("/never"));
  producer->addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
      task, false,
      [progress](std::int64_t done, std::int64_t expected) {
        progress.add({done, expected});
      },
      URLSessionTaskRef::FileCompletion(collect())));
  producer->didResume(*session, *task, 4, 9);
  EXPECT_THAT(progress.values(), testing::ElementsAre(Progress(4, 9)));
}

TEST_F(DownloadTaskProducerTests, ATaskWhoseKeyIsTakenOverReportsToItsOwnCompletion) {
  test::Collector<Progress> progress;
  server.route("/slow",
               Script().head(200, {{"Content-Length", "10"}}).send("half ").stall().send("whole"));
  const auto first = producer->create(
      request("/slow"), false,
      [progress](std::int64_t done, std::int64_t expected) {
        progress.add({done, expected});
      },
      collect());
  first->resume();
  ASSERT_TRUE(server.waitForStalls(1));
  ASSERT_TRUE(progress.waitFor(1));
  // Another producer of the class numbers its tasks from 1 as well.
  const auto before = std::exchange(outcomes, {});
  producer = test::makeProducer<DownloadTaskProducer>();
  ASSERT_EQ(start("/report.txt")->taskIdentifier(), first->taskIdentifier());
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(before.count(), 0u);
  server.releaseStalls();
  ASSERT_TRUE(before.waitFor(1));
  ASSERT_TRUE(before.value(0).file);
  EXPECT_EQ(test::readFile(before.value(0).file->path()), "half whole");
  EXPECT_EQ(progress.values().back(), Progress(10, 10));
  EXPECT_EQ(outcomes.count(), 1u);
  expectKeptDownloads(2);
}

TEST_F(DownloadTaskProducerTests, AResetCancelsARunningDownload) {
  start("/stall");
  ASSERT_TRUE(server.waitForStalls(1));
  producer->resetSession();
  ASSERT_TRUE(outcomes.waitFor(1));
  EXPECT_EQ(outcomes.value(0).error->code(), URLError::cancelled);
  EXPECT_FALSE(outcomes.value(0).file);
  expectLog(LogLevel::error,
            "TarnService download session became invalid with error: No error message attempting "
            "to reset");
}

TEST_F(DownloadTaskProducerTests, ItMakesNoTasksThatGatherTheirBody) {
  EXPECT_THROW(producer->create(request("/never"), false,
                                [](std::optional<Data>, const auto&, const auto&) {}),
               std::logic_error);
}

TEST_F(DownloadTaskProducerTests, ARecordIsKeyedByTheClass) {
  const auto task = record();
  EXPECT_EQ(taskDictionary()["1-TarnService.DownloadTaskProducer"].value()->task, task);
}

}  // namespace
}  // namespace tarn
