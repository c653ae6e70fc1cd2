#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>
#include <TarnService/Transport/DataTaskProducer.hpp>
#include <TarnService/Transport/DownloadTaskProducer.hpp>
#include <TarnService/Transport/UploadTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace tarn {
namespace {

template <class Producer>
struct Expected;
template <>
struct Expected<DataTaskProducer> {
  static constexpr auto queue = "dev.tarnservice.tarnservice.datataskproducer";
  static constexpr auto message = "TarnService session became invalid with error: ";
};
template <>
struct Expected<DownloadTaskProducer> {
  static constexpr auto queue = "dev.tarnservice.tarnservice.downloadtaskproducer";
  static constexpr auto message = "TarnService download session became invalid with error: ";
};
template <>
struct Expected<UploadTaskProducer> {
  static constexpr auto queue = "dev.tarnservice.tarnservice.uploadtaskproducer";
  static constexpr auto message = "TarnService session became invalid with error: ";
};

template <class Producer>
class SessionTaskProducerTests : public test::ServiceTest {
 protected:
  void expectInvalidation(const std::string& description = "No error message") {
    const auto line = Expected<Producer>::message + description + " attempting to reset";
    ASSERT_TRUE(log.waitForMessage(LogLevel::error, line));
    expectLog(LogLevel::error, line);
    // The line comes just before the session is forgotten.
    Producer::sessionQueue()->waitUntilAllOperationsAreFinished();
  }

  std::shared_ptr<Producer> producer = test::makeProducer<Producer>();
};

using Producers = testing::Types<DataTaskProducer, DownloadTaskProducer, UploadTaskProducer>;
TYPED_TEST_SUITE(SessionTaskProducerTests, Producers);

TYPED_TEST(SessionTaskProducerTests, TheSessionIsMadeOnceAndKept) {
  EXPECT_EQ(this->producer->session(), this->producer->session());
}

TYPED_TEST(SessionTaskProducerTests, TheSharedProducerIsOne) {
  EXPECT_EQ(TypeParam::shared(), TypeParam::shared());
  EXPECT_EQ(TypeParam::sessionQueue()->name(), Expected<TypeParam>::queue);
}

TYPED_TEST(SessionTaskProducerTests, TheSessionHasDefaultSettings) {
  const auto configuration = this->producer->session()->configuration();
  EXPECT_FALSE(configuration.waitsForConnectivity);
  EXPECT_EQ(configuration.timeoutIntervalForRequest, TimeInterval(60));
  EXPECT_EQ(configuration.timeoutIntervalForResource, TimeInterval(7 * 24 * 3600));
  EXPECT_EQ(configuration.requestCachePolicy, URLRequest::CachePolicy::useProtocolCachePolicy);
}

TYPED_TEST(SessionTaskProducerTests, AnInvalidSessionIsLoggedAndReplaced) {
  const auto session = this->producer->session();
  session->invalidateAndCancel();
  this->expectInvalidation();
  EXPECT_NE(this->producer->session(), session);
}

TYPED_TEST(SessionTaskProducerTests, TheErrorOfAnInvalidSessionIsLogged) {
  this->producer->didBecomeInvalid(*this->producer->session(), Error(std::runtime_error("worn")));
  this->expectInvalidation("worn");
}

TYPED_TEST(SessionTaskProducerTests, AResetReplacesTheSession) {
  const auto session = this->producer->session();
  this->producer->resetSession();
  const auto successor = this->producer->session();
  EXPECT_NE(successor, session);
  this->expectInvalidation();
  EXPECT_EQ(this->producer->session(), successor);
}

TYPED_TEST(SessionTaskProducerTests, AConfigurationOfItsOwnHoldsForEverySession) {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = TimeInterval(7);
  const auto own = TypeParam::make(configuration);
  const auto session = own->session();
  EXPECT_EQ(session->configuration().timeoutIntervalForRequest, TimeInterval(7));
  own->resetSession();
  EXPECT_NE(own->session(), session);
  EXPECT_EQ(own->session()->configuration().timeoutIntervalForRequest, TimeInterval(7));
  EXPECT_EQ(this->producer->session()->configuration().timeoutIntervalForRequest, TimeInterval(60));
  this->expectInvalidation();
  // They keep each other alive.
  own->session()->invalidateAndCancel();
  this->expectInvalidation();
}

/// Requests that name a producer of the application's own.
class OwnProducerTests : public test::ServiceTest {
 protected:
  struct Get : DataGetRequestable<Get> {
    URL url;
    std::shared_ptr<DataTaskProducer> taskProducer() const {
      static const auto& impatient =
          *new std::shared_ptr<DataTaskProducer>(DataTaskProducer::make(configuration()));
      return impatient;
    }
    static URLSessionConfiguration configuration() {
      auto settings = URLSessionConfiguration::ephemeral();
      settings.timeoutIntervalForRequest = TimeInterval(0.2);
      settings.requestCachePolicy = URLRequest::CachePolicy::reloadIgnoringLocalCacheData;
      return settings;
    }
  };
};

TEST_F(OwnProducerTests, TakeTheirDefaultsFromItsConfiguration) {
  Get request;
  request.url = URL("http://127.0.0.1:1/");
  const auto made = request.urlRequest();
  EXPECT_EQ(made.timeoutInterval(), TimeInterval(0.2));
  EXPECT_EQ(made.cachePolicy(), URLRequest::CachePolicy::reloadIgnoringLocalCacheData);
}

TEST_F(OwnProducerTests, GoTheWayOfItsSession) {
  test::ScriptedServer server;
  server.route("/", test::Script().stall());
  Get request;
  request.url = URL(server.url());
  test::Collector<DataResponse> responses;
  request.send(DispatchQueue("test.completions"), responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  ASSERT_TRUE(responses.value(0).result.error());
  EXPECT_EQ(responses.value(0).result.error()->code(), URLError::timedOut);
}

TYPED_TEST(SessionTaskProducerTests, AProducerIsLetGoOnceItsSessionIsInvalid) {
  auto shortLived = TypeParam::make();
  const std::weak_ptr<TypeParam> watched = shortLived;
  shortLived->session()->invalidateAndCancel();
  this->expectInvalidation();
  shortLived.reset();
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace tarn
