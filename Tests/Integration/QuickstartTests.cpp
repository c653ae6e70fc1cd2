#include <Support/Collector.hpp>
#include <Support/NginxServer.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace tarn::test {
namespace {

// What the program printed. Throws unless it ended with 0.
std::string output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) throw std::runtime_error("popen");
  std::string text;
  std::array<char, 4096> buffer;
  while (const auto count = fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), count);
  if (const int status = pclose(pipe); status != 0) {
    throw std::runtime_error(command + " ended with " + std::to_string(status));
  }
  return text;
}

// The text between the first pair of lines that hold `mark`.
std::string region(const std::string& text, const std::string& mark) {
  const auto start = text.find('\n', text.find(mark)) + 1;
  return text.substr(start, text.rfind('\n', text.find(mark, start)) + 1 - start);
}

TEST(QuickstartTests, TheEmbeddedServiceAnswersFailsAndStalls) {
  EXPECT_EQ(output(TARN_QUICKSTART),
            "ada     success (HTTP/1.1): Ada Lovelace, London\n"
            "nobody  failed: HTTPStatus: notFound:404 is unacceptable\n"
            "stalled failed: CFURL/NSURL error: The connection timed out.\n");
}

TEST(QuickstartTests, TheReadmeShowsTheProgramAndItsOutput) {
  const std::string readme = readFile(TARN_SOURCE_DIR "/README.md");
  const std::string program = readFile(TARN_SOURCE_DIR "/Examples/Quickstart/main.cpp");
  EXPECT_NE(readme.find(region(program, "// [request]")), std::string::npos);
  EXPECT_NE(readme.find(output(TARN_QUICKSTART)), std::string::npos);
}

class QuickstartAgainstNginxTests : public testing::Test {
 protected:
  // The file that the program asks for, put there by the library itself.
  void upload(const std::string& url) {
    Collector<DataResponse> responses;
    DataPutRequest(URL(url), Data("Ada, from nginx")).send(std::nullopt, responses.callback());
    ASSERT_TRUE(responses.waitFor(1));
    ASSERT_TRUE(responses.value(0).result.isSuccessful());
  }

  TestAuthority authority;
  ScopedEnvironment trust{"SSL_CERT_FILE", authority.caFile()};
  NginxServer nginx{authority};
};

TEST_F(QuickstartAgainstNginxTests, OverHTTP) {
  upload(nginx.url("/upload/users/ada"));
  EXPECT_EQ(output(std::string(TARN_QUICKSTART) + " " + nginx.url("/upload")),
            "ada     success (HTTP/1.1): Ada, from nginx\n"
            "nobody  failed: HTTPStatus: notFound:404 is unacceptable\n"
            "stalled failed: HTTPStatus: notFound:404 is unacceptable\n");
}

TEST_F(QuickstartAgainstNginxTests, OverHTTPSAndHTTP2) {
  upload(nginx.secureUrl("/upload/users/ada"));
  EXPECT_EQ(output(std::string(TARN_QUICKSTART) + " " + nginx.secureUrl("/upload")),
            "ada     success (HTTP/2): Ada, from nginx\n"
            "nobody  failed: HTTPStatus: notFound:404 is unacceptable\n"
            "stalled failed: HTTPStatus: notFound:404 is unacceptable\n");
}

}  // namespace
}  // namespace tarn::test
