#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/Compression.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <Support/System.hpp>
#include <TarnService/TarnService.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using test::Script;

struct Unreadable {
  Data asData() const { throw std::runtime_error("the disk is gone"); }
};

const std::string& boundary() {
  static const std::string boundary = BoundaryGenerator().boundary;
  return boundary;
}

TEST(BoundaryGeneratorTests, IsOfTheProcess) {
  EXPECT_THAT(boundary(), testing::MatchesRegex("tarnservice\\.Boundary\\.[0-9A-F]{8}-[0-9A-F]{4}-"
                                                "4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
  EXPECT_EQ(BoundaryGenerator().returnChars, "\r\n");
  EXPECT_EQ(MultipartForm({}).boundaryGeneratory.boundary, boundary());
  EXPECT_EQ(MultipartForm({{"a", Data("b")}}).boundaryGeneratory.boundary, boundary());
}

TEST(MultipartFormTests, WithoutSectionsIsJustItsEnd) {
  EXPECT_EQ(MultipartForm({}).asData(), Data("\r\n--" + boundary() + "--\r\n"));
  EXPECT_EQ(MultipartForm().asData(), MultipartForm({}).asData());
}

TEST(MultipartFormTests, OneSectionStandsBetweenBoundaries) {
  const MultipartForm form{{"a", Data("xyz"), "text/plain"}};
  EXPECT_EQ(form.asData(), Data("--" + boundary() +
                                "\r\n"
                                "Content-Disposition: form-data; name=\"a\"\r\n"
                                "\r\n"
                                "Content-Type: text/plain\r\n"
                                "xyz\r\n"
                                "--" +
                                boundary() + "--\r\n"));
}

TEST(MultipartFormTests, SectionsStandInOrder) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("notes.txt"), "of a file");
  MultipartForm form{{"first", Data("1")}, {"second", Data()}};
  form.sections.emplace_back("third", File(URL::fileURL(directory.file("notes.txt"))));
  EXPECT_EQ(form.asData(), Data("--" + boundary() +
                                "\r\n"
                                "Content-Disposition: form-data; name=\"first\"\r\n"
                                "\r\n"
                                "1\r\n"
                                "--" +
                                boundary() +
                                "\r\n"
                                "Content-Disposition: form-data; name=\"second\"\r\n"
                                "\r\n"
                                "\r\n"
                                "--" +
                                boundary() +
                                "\r\n"
                                "Content-Disposition: form-data; name=\"third\"\r\n"
                                "; filename=\"notes.txt\"\r\n"
                                "Content-Type: text/plain\r\n"
                                "of a file\r\n"
                                "--" +
                                boundary() + "--\r\n"));
}

TEST(MultipartFormTests, AsksForBytesAnewEachTime) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("a"), "before");
  const MultipartForm form{{"a", File(URL::fileURL(directory.file("a")))}};
  const Data before = form.asData();
  test::writeFile(directory.file("a"), "behind");
  EXPECT_NE(form.asData(), before);
  EXPECT_EQ(form.asData().size(), before.size());
}

TEST(MultipartFormTests, WritesABoundaryOfItsOwn) {
  MultipartForm form{{"a", Data("b")}};
  form.boundaryGeneratory.boundary = "other";
  EXPECT_THAT(
      std::string(form.asData().view()),
      testing::AllOf(testing::StartsWith("--other\r\n"), testing::EndsWith("\r\n--other--\r\n")));
}

TEST(MultipartFormTests, PassesOnWhatASectionThrows) {
  const MultipartForm form{{"a", Data("b")}, {"broken", Unreadable()}, {"c", Data("d")}};
  try {
    form.asData();
    ADD_FAILURE() << "No error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "the disk is gone");
  }
}

struct Send : MultipartUploadRequestable<Send, DataPostRequestable<Send>> {
  Send(const std::string& address, MultipartForm form) : url(address), body(std::move(form)) {}

  URL url;
  MultipartForm body;
  HTTPHeaders headers;
};

/// Answers its form, as its verb and its media type, from functions, and encodes it.
struct Put : MultipartUploadRequestable<Put, DataPutRequestable<Put>> {
  URL url() const { return URL("http://localhost/form"); }
  MultipartForm body() const { return MultipartForm{{"a", Data(std::string(1000, 'b'))}}; }
  HTTPMediaType contentType() const { return HTTPMediaType("multipart/mixed"); }
  std::optional<HTTPContentEncoderType> contentEncoder() const {
    return HTTPContentEncoderType::of<HTTPGzipContentEncoder>();
  }
};

TEST(MultipartUploadRequestableTests, SetsTheBodyAndTheContentTypeWithTheBoundary) {
  Send send("http://localhost/form", {{"a", Data("b")}});
  send.headers = {{"Content-Type", "text/plain"}, {"X-Kind", "form"}};
  EXPECT_EQ(send.contentType(), HTTPMediaType::multipartFormData);
  const URLRequest request = send.urlRequest();
  EXPECT_EQ(request.value("Content-Type"), "multipart/form-data; boundary=" + boundary());
  EXPECT_EQ(request.value("X-Kind"), "form");
  EXPECT_EQ(request.value("Content-Encoding"), std::nullopt);
  EXPECT_EQ(request.httpMethod(), "POST");
  EXPECT_EQ(request.httpBody(), send.body.asData());
}

TEST(MultipartUploadRequestableTests, EncodesTheFormWithItsEncoder) {
  const URLRequest request = Put().urlRequest();
  EXPECT_EQ(request.value("Content-Type"), "multipart/mixed; boundary=" + boundary());
  EXPECT_EQ(request.value("Content-Encoding"), "gzip");
  ASSERT_TRUE(request.httpBody().has_value());
  EXPECT_EQ(test::gunzip(request.httpBody()->view()), Put().body().asData().view());
}

TEST(MultipartUploadRequestableTests, WithoutAnAddressNoSectionIsRead) {
  try {
    Send("/", {{"broken", Unreadable()}}).urlRequest();
    ADD_FAILURE() << "No error";
  } catch (const HTTPRequestError& error) {
    EXPECT_EQ(error.code(), 0);
  }
}

/// The same on the producer of uploads.
struct Upload : MultipartUploadRequestable<Upload, UploadPostRequestable<Upload>> {
  Upload(const std::string& address, MultipartForm form) : url(address), body(std::move(form)) {}

  URL url;
  MultipartForm body;
};

class MultipartUploadWireTests : public test::ServiceTest {
 protected:
  MultipartUploadWireTests() { server.route("/form", Script().respond(200)); }

  DataResponse send(MultipartForm form) {
    Send(server.url("/form"), std::move(form))
        .send(DispatchQueue("test.completions"), responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }

  test::ScriptedServer server;
  test::TemporaryDirectory directory;
  test::Collector<DataResponse> responses;
};

TEST_F(MultipartUploadWireTests, TheServerReceivesTheFormByteForByte) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  test::writeFile(directory.file("all bytes.png"), bytes);
  EXPECT_TRUE(send({{"note", Data("caf\xC3\xA9"), "text/plain; charset=\"utf-8\""},
                    {"image", File(URL::fileURL(directory.file("all bytes.png")))}})
                  .result.isSuccessful());
  const std::string expected = "--" + boundary() +
                               "\r\n"
                               "Content-Disposition: form-data; name=\"note\"\r\n"
                               "\r\n"
                               "Content-Type: text/plain; charset=\"utf-8\"\r\n"
                               "caf\xC3\xA9\r\n"
                               "--" +
                               boundary() +
                               "\r\n"
                               "Content-Disposition: form-data; name=\"image\"\r\n"
                               "; filename=\"all bytes.png\"\r\n"
                               "Content-Type: image/png\r\n" +
                               bytes + "\r\n--" + boundary() + "--\r\n";
  const auto request = server.request(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.headerValues("Content-Type"),
            std::vector<std::string>{"multipart/form-data; boundary=" + boundary()});
  EXPECT_EQ(request.header("Content-Length"), std::to_string(expected.size()));
  EXPECT_EQ(request.body, expected);
}

TEST_F(MultipartUploadWireTests, AnUploadSendsTheFormToo) {
  const MultipartForm form{{"a", Data("b"), "text/plain"}, {"c", Data("d")}};
  Upload(server.url("/form"), form).send(DispatchQueue("test.completions"), responses.callback());
  ASSERT_TRUE(responses.waitFor(1));
  EXPECT_TRUE(responses.value(0).result.isSuccessful());
  const auto request = server.request(0);
  EXPECT_EQ(request.header("Content-Type"), "multipart/form-data; boundary=" + boundary());
  EXPECT_EQ(request.body, form.asData().view());
}

TEST_F(MultipartUploadWireTests, ASectionThatCannotBeReadFailsTheRequestBeforeItIsSent) {
  const std::string missing = directory.file("missing.png");
  expectLog(LogLevel::error,
            "Failure sending request Send: The file \"" + missing + "\" does not exist.");
  const auto response =
      send({{"a", Data("b")}, {"image", File(URL::fileURL(missing))}, {"c", Data("d")}});
  const auto error = response.result.error();
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain(), "NSURLErrorDomain");
  EXPECT_EQ(error->code(), URLError::fileDoesNotExist);
  EXPECT_EQ(server.connectionCount(), 0u);
}

}  // namespace
}  // namespace tarn
