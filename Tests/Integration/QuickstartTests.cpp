#include <Support/Collector.hpp>
#include <Support/DebugTrust.hpp>
#include <Support/NginxServer.hpp>
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>
#include <TarnService/TarnService.hpp>

#include <gtest/gtest.h>

#include <string>

namespace tarn::test {
namespace {

constexpr const char* quickstart = TARN_EXAMPLES_DIR "/Quickstart";

TEST(QuickstartTests, PrintsAnAnswerARefusalAndADocumentThatDoesNotFit) {
  const std::string printed = outputOf(quickstart);
  EXPECT_EQ(printed,
            "Ada Lovelace lives in London\n"
            "nobody: HTTPStatus: notFound:404 is unacceptable\n"
            "grace: city: expected a string, found the number 1906\n");
  EXPECT_NE(readFile(TARN_SOURCE_DIR "/README.md").find(printed), std::string::npos);
}

class QuickstartAgainstNginxTests : public testing::Test {
 protected:
  // Puts the file that the program asks for there, by the library itself, and runs the program.
  static std::string outputAgainst(const std::string& folder, const std::string& httpVersion) {
    Collector<DataResponse> responses;
    DataPutRequest(URL(folder + "/users/ada"), Data(R"({"id": 1, "name": "Ada", "city": "Nginx"})"))
        .send(std::nullopt, responses.callback());
    if (!responses.waitFor(1) || !responses.value(0).result.isSuccessful()) return "no upload";
    EXPECT_EQ(dynamic_cast<const HTTPURLResponse&>(*responses.value(0).urlResponse).httpVersion(),
              httpVersion);
    return outputOf(std::string(quickstart) + " " + folder);
  }
  static constexpr const char* expected =
      "Ada lives in Nginx\n"
      "nobody: HTTPStatus: notFound:404 is unacceptable\n"
      "grace: HTTPStatus: notFound:404 is unacceptable\n";

  TestAuthority authority_;

 private:
  // The program finds the authority in its environment. This process may have read its trusted
  // authorities before, and a process does so once.
  const ScopedEnvironment trustOfProgram_{"SSL_CERT_FILE", authority_.caFile()};
  const DebugTrust trust_{authority_.caFile()};
};

TEST_F(QuickstartAgainstNginxTests, OverHTTP) {
  const NginxServer nginx(authority_);
  EXPECT_EQ(outputAgainst(nginx.url("/upload"), "HTTP/1.1"), expected);
}

TEST_F(QuickstartAgainstNginxTests, OverHTTPSAndHTTP1) {
  const NginxServer nginx(authority_, 1, false);
  EXPECT_EQ(outputAgainst(nginx.secureUrl("/upload"), "HTTP/1.1"), expected);
}

TEST_F(QuickstartAgainstNginxTests, OverHTTPSAndHTTP2) {
  const NginxServer nginx(authority_);
  EXPECT_EQ(outputAgainst(nginx.secureUrl("/upload"), "HTTP/2"), expected);
}

}  // namespace
}  // namespace tarn::test
