#include <Support/System.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace tarn::test {
namespace {

using testing::HasSubstr;

std::string printedBy(const std::string& example) {
  return outputOf(std::string(TARN_EXAMPLES_DIR "/") + example);
}

TEST(ExampleTests, BatchPrintsTheSumAndTheBookingsInTheirOrder) {
  EXPECT_EQ(printedBy("Batch"), "3 answers, 750 cents\nbooked A1\nbooked A2\nbooked B1\n");
}

TEST(ExampleTests, CRUDChangesANoteAndListsIt) {
  EXPECT_EQ(printedBy("CRUD"), "1: buy milk (done)\n");
}

TEST(ExampleTests, CoroutinePrintsAnAnswerAndAFailure) {
  EXPECT_EQ(printedBy("Coroutine"),
            "Ada lives in London, founded in 47\n"
            "HTTPStatus: notFound:404 is unacceptable\n");
}

TEST(ExampleTests, MockingPrintsTheCannedAnswerAndTheCannedFailure) {
  EXPECT_EQ(printedBy("Mocking"), "user 7 is ada\nHTTPStatus: notFound:404 is unacceptable\n");
}

TEST(ExampleTests, PollingPrintsEveryAnswerUntilTheLast) {
  EXPECT_EQ(printedBy("Polling"), "50 %\n100 %\n");
}

TEST(ExampleTests, RetryPrintsTheFailuresAndTheSuccess) {
  EXPECT_EQ(printedBy("Retry"),
            "HTTPStatus: serviceUnavailable:503 is unacceptable\n"
            "HTTPStatus: serviceUnavailable:503 is unacceptable\n"
            "ada is user 7\n");
}

TEST(ExampleTests, DebuggingLogsTheRequestAndItsCommand) {
  const std::string log = printedBy("Debugging 2>&1");
  EXPECT_THAT(log, HasSubstr("debug [TarnService] REQUEST GET 'http://127.0.0.1:"));
  EXPECT_THAT(log, HasSubstr("' RESPONSE status: 200 body=\"tea, milk\" curl=\"curl -X GET '"));
}

TEST(ExampleTests, JSONPrintsWhatItReads) {
  EXPECT_EQ(printedBy("JSON"),
            R"({"number":9007199254740993,"items":[{"name":"tea","price":4.5,"size":"small"}],)"
            R"("stock":{"tea":3},"customer":"ada"})"
            "\n"
            R"({"page_no":1,"size":20,"data":["a"]})"
            "\n"
            "[[1.0,2.5]]\n"
            R"("DARK-1")"
            "\n"
            "launch at 1795246200\n"
            R"({"a":[1,2.5,null]})"
            "\n"
            "items[0].price: expected a number, found the string \"4,50\"\n");
}

}  // namespace
}  // namespace tarn::test
