#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnLogger/Logger.hpp>
#include <TarnService/Transport/DataTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace shop {

// Another class of producer beside the library's own.
class Producer final : public tarn::HTTPDataTaskProducer {
 public:
  std::shared_ptr<tarn::URLSession> session() override { return session_; }
  void resetSession() override {}

 private:
  std::shared_ptr<tarn::URLSession> session_ =
      tarn::URLSession::make({}, std::make_shared<tarn::URLSessionDelegate>());
};

}  // namespace shop

namespace tarn {
namespace {

constexpr std::int64_t unknownTask = 123456789;

struct Report {
  std::optional<Data> data;
  std::shared_ptr<const URLResponse> response;
  std::optional<Error> error;
};

class HTTPTaskProducerTests : public test::ServiceTest {
 protected:
  // A task that is never resumed, with a record that collects its report.
  std::shared_ptr<URLSessionTask> create(HTTPDataTaskProducer& owner, bool waits = false) {
    return owner.create(
        URLRequest(URL("http://127.0.0.1:1/")), waits,
        [reports = reports](std::optional<Data> data, std::shared_ptr<const URLResponse> response,
                            std::optional<Error> error) {
          reports.add({std::move(data), std::move(response), std::move(error)});
        });
  }
  // Throws where there is no record.
  static const URLSessionTaskRef& record(const std::string& key) {
    static std::shared_ptr<URLSessionTaskRef> found;
    found = taskDictionary()[key].value();
    if (!found) throw std::out_of_range(key);
    return *found;
  }

  std::shared_ptr<DataTaskProducer> producer = test::makeProducer();
  test::Collector<Report> reports;
};

TEST_F(HTTPTaskProducerTests, BytesForAnUnknownTaskAreLoggedAndDropped) {
  producer->write(Data("x"), unknownTask);
  expectLog(LogLevel::error, "Coulnd't find taskRef with id 123456789 to report sucess");
  EXPECT_STREQ(log.entries().back().location.function, "write(data:for:)");
}

TEST_F(HTTPTaskProducerTests, SuccessOfAnUnknownTaskIsLoggedAndCallsNothing) {
  producer->reportSuccess(unknownTask, nullptr);
  expectLog(LogLevel::error, "Coulnd't find taskRef with id 123456789 to report sucess");
  EXPECT_STREQ(log.entries().back().location.function, "reportSuccess(for:urlResponse:)");
}

TEST_F(HTTPTaskProducerTests, FailureOfAnUnknownTaskIsLoggedAndCallsNothing) {
  producer->reportFailure(unknownTask, nullptr, std::nullopt);
  expectLog(LogLevel::error, "Couldn't find taskRef with id 123456789 to report failure");
  EXPECT_STREQ(log.entries().back().location.function, "reportFailure(for:urlResponse:error:)");
}

TEST_F(HTTPTaskProducerTests, AnUnknownTaskThatWaitsForConnectivityIsAFault) {
  const auto session = URLSession::make({}, std::make_shared<URLSessionDelegate>());
  const auto task = session->dataTask(URLRequest(URL("http://127.0.0.1:1/")));
  shop::Producer().checkWaitForConnectivity(*task);
  expectLog(LogLevel::fault, "Couldn't find task in dictionary");
  EXPECT_STREQ(log.entries().back().location.function, "checkWaitForConnectivity(for:)");
}

TEST_F(HTTPTaskProducerTests, KeysTellProducerClassesApart) {
  shop::Producer other;
  const auto first = create(*producer);
  const auto second = create(other);
  ASSERT_EQ(first->taskIdentifier(), 1);
  ASSERT_EQ(second->taskIdentifier(), 1);
  EXPECT_EQ(record("1-TarnService.DataTaskProducer").task, first);
  EXPECT_EQ(record("1-shop.Producer").task, second);
}

TEST_F(HTTPTaskProducerTests, TheRegistryTellsAllTextsApart) {
  const std::vector<std::string> keys = {"7-shop.Till", "7-shop.Tills", "8-shop.Till",
                                         "-7-shop.Till", "07-shop.Till", "7--shop.Till",
                                         "7shop.Till", "0-shop.Till", "shop.Till", "-shop.Till",
                                         "?shop.Till", "0-?shop.Till", "7-", "7", "-", "?", "",
                                         // Its number is none that a task can have.
                                         "18446744073709551623-shop.Till"};
  const auto task = create(*producer);
  const std::size_t before = taskDictionary().count();
  std::vector<std::shared_ptr<URLSessionTaskRef>> records;
  for (const auto& key : keys) {
    records.push_back(std::make_shared<URLSessionTaskRef>(task, false, nullptr,
                                                          URLSessionTaskRef::DataCompletion()));
    taskDictionary().set(key, records.back());
  }
  EXPECT_EQ(taskDictionary().count(), before + keys.size());
  std::vector<std::string> texts;
  taskDictionary().update([&](const auto& refs) {
    const auto copy = refs;
    for (const auto& [key, ref] : copy) texts.push_back(key.text());
  });
  EXPECT_THAT(texts, testing::IsSupersetOf(keys));
  EXPECT_THAT(texts, testing::Contains("1-TarnService.DataTaskProducer"));
  for (std::size_t index = 0; index < keys.size(); ++index) {
    SCOPED_TRACE(keys[index]);
    EXPECT_EQ(taskDictionary()[keys[index]], records[index]);
    EXPECT_EQ(taskDictionary().removeValue(keys[index]), records[index]);
    EXPECT_EQ(taskDictionary()[keys[index]], std::nullopt);
  }
}

TEST_F(HTTPTaskProducerTests, ARecordStartsEmpty) {
  create(*producer, true);
  const auto& ref = record("1-TarnService.DataTaskProducer");
  EXPECT_TRUE(ref.responseData.empty());
  EXPECT_FALSE(ref.wasCancelledForConnectivity);
  EXPECT_TRUE(ref.shouldWaitForConnectivity);
  EXPECT_FALSE(ref.progress);
  EXPECT_TRUE(std::holds_alternative<URLSessionTaskRef::DataCompletion>(ref.completion));
}

TEST_F(HTTPTaskProducerTests, ANewTaskIsNotStarted) {
  EXPECT_EQ(create(*producer)->state(), URLSessionTask::State::suspended);
}

TEST_F(HTTPTaskProducerTests, SuccessReportsTheBytesGathered) {
  const auto response = std::make_shared<const HTTPURLResponse>(URL("http://h/"), 200, "HTTP/1.1",
                                                                HTTPHeaderFields());
  create(*producer);
  producer->write(Data("ab"), 1);
  producer->write(Data("cd"), 1);
  producer->reportSuccess(1, response);
  ASSERT_EQ(reports.count(), 1u);
  const auto report = reports.value(0);
  EXPECT_EQ(report.data, Data("abcd"));
  EXPECT_EQ(report.response, response);
  EXPECT_FALSE(report.error);
}

TEST_F(HTTPTaskProducerTests, FailureReportsNoBytes) {
  create(*producer);
  producer->write(Data("ab"), 1);
  producer->reportFailure(1, nullptr, Error(URLError(URLError::timedOut)));
  ASSERT_EQ(reports.count(), 1u);
  EXPECT_FALSE(reports.value(0).data);
  EXPECT_EQ(reports.value(0).error->code(), URLError::timedOut);
}

TEST_F(HTTPTaskProducerTests, FailureReachesAFileCompletionToo) {
  test::Collector<std::optional<URL>> files;
  const auto task = producer->session()->dataTask(URLRequest(URL("http://127.0.0.1:1/")));
  producer->addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
      task, false, nullptr,
      URLSessionTaskRef::FileCompletion([files](std::optional<URL> url, const auto&, const auto&) {
        files.add(std::move(url));
      })));
  producer->reportFailure(task->taskIdentifier(), nullptr, Error(URLError(URLError::timedOut)));
  ASSERT_EQ(files.count(), 1u);
  EXPECT_FALSE(files.value(0));
}

TEST_F(HTTPTaskProducerTests, AnotherRecordOfTheSameTaskTakesThePlaceOfTheFirst) {
  const auto task = producer->session()->dataTask(URLRequest(URL("http://127.0.0.1:1/")));
  const auto makeRecord = [&] {
    return std::make_shared<URLSessionTaskRef>(
        task, false, nullptr, URLSessionTaskRef::DataCompletion([](auto, auto, auto) {}));
  };
  auto first = makeRecord();
  const std::weak_ptr<URLSessionTaskRef> watched = first;
  producer->addTaskRefToQueue(std::move(first));
  producer->addTaskRefToQueue(makeRecord());
  EXPECT_TRUE(watched.expired());
}

TEST_F(HTTPTaskProducerTests, SuccessWithACompletionOfTheWrongKindEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(
      {
        Logger::setDefaultSink(LogSink::standardError(LogLevel::error));
        const auto task = producer->session()->dataTask(URLRequest(URL("http://127.0.0.1:1/")));
        producer->addTaskRefToQueue(std::make_shared<URLSessionTaskRef>(
            task, false, nullptr, URLSessionTaskRef::FileCompletion([](auto, auto, auto) {})));
        producer->reportSuccess(task->taskIdentifier(), nullptr);
      },
      "Invalid completion type for taskRef with id 1(.|\n)*Fatal error");
}

TEST_F(HTTPTaskProducerTests, ATaskThatMayNotWaitForConnectivityIsCancelled) {
  const auto task = create(*producer, false);
  producer->checkWaitForConnectivity(*task);
  EXPECT_TRUE(record("1-TarnService.DataTaskProducer").wasCancelledForConnectivity);
  ASSERT_TRUE(reports.waitFor(1));
  EXPECT_EQ(reports.value(0).error->code(), URLError::cancelled);
}

TEST_F(HTTPTaskProducerTests, ATaskThatMayWaitForConnectivityIsLeftAlone) {
  const auto task = create(*producer, true);
  producer->checkWaitForConnectivity(*task);
  EXPECT_FALSE(record("1-TarnService.DataTaskProducer").wasCancelledForConnectivity);
  EXPECT_EQ(task->state(), URLSessionTask::State::suspended);
}

TEST_F(HTTPTaskProducerTests, ARecordStaysUntilATaskWithTheSameKeyReplacesIt) {
  create(*producer);
  producer->reportSuccess(1, nullptr);
  EXPECT_NO_THROW(record("1-TarnService.DataTaskProducer"));
  const auto second = test::makeProducer();
  const auto task = create(*second);
  EXPECT_EQ(record("1-TarnService.DataTaskProducer").task, task);
}

}  // namespace
}  // namespace tarn
