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
  // Puts the file that the program asks for there, by the library itself, and runs the program.
  static std::string outputAgainst(const std::string& folder) {
    Collector<DataResponse> responses;
    DataPutRequest(URL(folder + "/users/ada"), Data("Ada, from nginx"))
        .send(std::nullopt, responses.callback());
    if (!responses.waitFor(1) || !responses.value(0).result.isSuccessful()) return "no upload";
    return output(std::string(TARN_QUICKSTART) + " " + folder);
  }
  static std::string expected(const std::string& version) {
    return "ada     success (" + version +
           "): Ada, from nginx\n"
           "nobody  failed: HTTPStatus: notFound:404 is unacceptable\n"
           "stalled failed: HTTPStatus: notFound:404 is unacceptable\n";
  }

  // One for all tests: a process reads its trusted authorities once.
  static TestAuthority& authority() {
    static TestAuthority shared;
    static const ScopedEnvironment trust("SSL_CERT_FILE", shared.caFile());
    return shared;
  }
};

TEST_F(QuickstartAgainstNginxTests, OverHTTP) {
  const NginxServer nginx(authority());
  EXPECT_EQ(outputAgainst(nginx.url("/upload")), expected("HTTP/1.1"));
}

TEST_F(QuickstartAgainstNginxTests, OverHTTPSAndHTTP1) {
  const NginxServer nginx(authority(), 1, false);
  EXPECT_EQ(outputAgainst(nginx.secureUrl("/upload")), expected("HTTP/1.1"));
}

TEST_F(QuickstartAgainstNginxTests, OverHTTPSAndHTTP2) {
  const NginxServer nginx(authority());
  EXPECT_EQ(outputAgainst(nginx.secureUrl("/upload")), expected("HTTP/2"));
}

}  // namespace
}  // namespace tarn::test
