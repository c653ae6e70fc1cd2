#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using test::Script;
using testing::HasSubstr;

struct PutFile : UploadPutRequestable<PutFile>, HTTPRequestCancelable<PutFile> {
  URL url;
  File body;
  std::optional<HTTPContentEncoderType> contentEncoder;
  UUID cancellationIdentifier;
  PutFile(const std::string& address, const std::string& path)
      : url(address), body(URL::fileURL(path)) {}
};

struct PostBytes : UploadPostRequestable<PostBytes> {
  URL url;
  Data body{"bytes"};
  std::optional<HTTPContentEncoderType> contentEncoder;
  explicit PostBytes(const std::string& address) : url(address) {}
};

struct Note {
  std::string text;
};
struct PostNote : UploadPostRequestable<PostNote> {
  URL url;
  Note body{"buy milk"};
  explicit PostNote(const std::string& address) : url(address) {}
};

class UploadSendTests : public test::ServiceTest {
 protected:
  UploadSendTests() {
    server.route("/put", Script().respond(201, {}, "stored"));
    server.route("/stall", Script().stall());
    test::writeFile(place.file("body.txt"), "from the file");
  }

  PutFile putFile() const { return {server.url("/put"), place.file("body.txt")}; }
  template <class Request>
  DataResponse answerTo(const Request& request) {
    request.send(queue, progress.callback(), responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }

  test::ScriptedServer server;
  const test::TemporaryDirectory place;
  DispatchQueue queue{"test.completions"};
  test::Waiter progress;
  test::Collector<DataResponse> responses;
};

TEST_F(UploadSendTests, AFileIsSentByItsContentUnderTheTypeOfItsName) {
  const auto response = answerTo(putFile());
  EXPECT_EQ(response.result.body(), Data("stored"));
  const auto request = server.request(0);
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.body, "from the file");
  EXPECT_EQ(request.header("Content-Type"), "text/plain");
  EXPECT_EQ(request.header("Content-Length"), "13");
}

TEST_F(UploadSendTests, AFileIsNotReadWhileTheRequestIsBuilt) {
  const auto request = putFile().urlRequest();
  EXPECT_FALSE(request.httpBody());
  EXPECT_EQ(request.value("Content-Type"), "text/plain");
}

TEST_F(UploadSendTests, AFileMakesAnUploadFromTheFileAndAnyOtherBodyOneFromMemory) {
  // Only a file is missed when the task opens it; bytes are there already.
  answerTo(PutFile(server.url("/put"), place.file("missing")));
  EXPECT_EQ(responses.value(0).result.error()->code(), URLError::fileDoesNotExist);
  EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(UploadSendTests, BytesAreSentFromMemory) {
  EXPECT_TRUE(answerTo(PostBytes(server.url("/put"))).result.isSuccessful());
  EXPECT_EQ(server.request(0).method, "POST");
  EXPECT_EQ(server.request(0).body, "bytes");
  EXPECT_EQ(server.request(0).header("Content-Type"), "application/octet-stream");
}

TEST_F(UploadSendTests, AValueIsSentAsJSON) {
  EXPECT_TRUE(answerTo(PostNote(server.url("/put"))).result.isSuccessful());
  EXPECT_EQ(server.request(0).body, R"({"text":"buy milk"})");
  EXPECT_EQ(server.request(0).header("Content-Type"), "application/json");
}

TEST_F(UploadSendTests, ProgressOfAnUploadIsNeverCalled) {
  auto request = PostBytes(server.url("/put"));
  request.body = Data(std::string(1 << 20, 'x'));
  EXPECT_TRUE(answerTo(request).result.isSuccessful());
  queue.sync([] {});
  EXPECT_EQ(progress.count(), 0u);
}

TEST_F(UploadSendTests, ProgressIsOptional) {
  putFile().send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_TRUE(responses.value(0).result.isSuccessful());
}

TEST_F(UploadSendTests, AnEncodedBodyIsSentEncoded) {
  auto bytes = PostBytes(server.url("/put"));
  bytes.contentEncoder = HTTPContentEncoderType::of<HTTPGzipContentEncoder>();
  answerTo(bytes);
  auto file = putFile();
  file.contentEncoder = HTTPContentEncoderType::of<HTTPGzipContentEncoder>();
  file.send(queue, responses.callback());
  ASSERT_TRUE(responses.waitFor(2));
  EXPECT_EQ(GZipUnarchiver(Data(server.request(0).body)).unzip(), Data("bytes"));
  EXPECT_EQ(GZipUnarchiver(Data(server.request(1).body)).unzip(), Data("from the file"));
  for (const auto& request : server.requests())
    EXPECT_EQ(request.header("Content-Encoding"), "gzip");
}

TEST_F(UploadSendTests, AMultipartFormIsUploaded) {
  struct SendForm : MultipartUploadRequestable<SendForm, UploadPostRequestable<SendForm>> {
    URL url;
    MultipartForm body;
    SendForm(const std::string& address, MultipartForm form)
        : url(address), body(std::move(form)) {}
  };
  const SendForm request(server.url("/put"),
                         MultipartForm{MultipartFormSection("greeting", Data("hello"))});
  EXPECT_TRUE(answerTo(request).result.isSuccessful());
  EXPECT_EQ(server.request(0).body, request.body.asData().view());
  EXPECT_THAT(server.request(0).header("Content-Type").value(),
              HasSubstr("multipart/form-data; boundary="));
}

TEST_F(UploadSendTests, ARequestWithoutABodyIsReported) {
  struct Bare : UploadRequestable<Bare> {
    URL url;
    HTTPMethod method = HTTPMethod::post;
    explicit Bare(const std::string& address) : url(address) {}
  };
  const auto response = answerTo(Bare(server.url("/put")));
  EXPECT_EQ(response.result.error()->message(), "An upload has no body.");
  EXPECT_EQ(server.connectionCount(), 0u);
  expectLog(LogLevel::error, "Failure sending request Bare: An upload has no body.");
}

TEST_F(UploadSendTests, ABodyThatThrowsIsReported) {
  struct Unreadable {
    Data asData() const { throw std::runtime_error("unreadable"); }
  };
  struct Send : UploadPostRequestable<Send> {
    URL url;
    Unreadable body;
    HTTPMediaType contentType = HTTPMediaType::textPlain;
    explicit Send(const std::string& address) : url(address) {}
  };
  EXPECT_EQ(answerTo(Send(server.url("/put"))).result.error()->message(), "unreadable");
  EXPECT_EQ(server.connectionCount(), 0u);
  expectLog(LogLevel::error, "Failure sending request Send: unreadable");
}

TEST_F(UploadSendTests, CancellingInFlightEndsTheUpload) {
  auto request = putFile();
  request.url = URL(server.url("/stall"));
  request.send(queue, progress.callback(), responses.callback());
  ASSERT_TRUE(server.waitForStalls(1));
  request.cancel();
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_EQ(responses.value(0).result.error()->code(), URLError::cancelled);
  EXPECT_EQ(taskManager().value(request.cancellationIdentifier), std::nullopt);
}

TEST_F(UploadSendTests, AnUnacceptableAnswerKeepsItsBytes) {
  server.route("/full", Script().respond(507, {}, "no room"));
  auto request = putFile();
  request.url = URL(server.url("/full"));
  const auto response = answerTo(request);
  EXPECT_FALSE(response.result.isSuccessful());
  EXPECT_EQ(response.data, Data("no room"));
}

}  // namespace
}  // namespace tarn
