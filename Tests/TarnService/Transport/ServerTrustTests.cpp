#include <Platform/Types/URLError.hpp>
#include <Support/Collector.hpp>
#include <Support/MakeProducer.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServiceTest.hpp>
#include <Support/TestAuthority.hpp>
#include <TarnService/TarnService.hpp>
#include <TarnService/Transport/DownloadTaskProducer.hpp>
#include <TarnService/Transport/UploadTaskProducer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using enum SecTrustResultType;
using enum URLSessionAuthChallengeDisposition;
using Answer = std::pair<URLSessionAuthChallengeDisposition, std::optional<URLCredential>>;

/// Evaluates to what the test says and writes down what it is told.
struct ScriptedTrust final : SecTrust {
  std::vector<SecCertificate> certificates() const override { return {}; }
  bool setAnchorCertificates(std::vector<SecCertificate> certificates) override {
    if (acceptsAnchors) anchors = certificates;
    ++anchorCalls;
    return acceptsAnchors;
  }
  bool setAnchorCertificatesOnly(bool only) override {
    onlyCalls.push_back(only);
    return acceptsOnly;
  }
  SecTrustResultType evaluate() override {
    ++evaluations;
    return result;
  }

  SecTrustResultType result = unspecified;
  bool acceptsAnchors = true;
  bool acceptsOnly = true;
  int anchorCalls = 0;
  int evaluations = 0;
  std::vector<bool> onlyCalls;
  std::vector<SecCertificate> anchors;
};

class ServerTrustTests : public test::ServiceTest {
 protected:
  ServerTrustTests() { TarnService::debugCertificateURLs = std::nullopt; }
  ~ServerTrustTests() override { TarnService::debugCertificateURLs = std::nullopt; }

  /// The URL of a new file.
  URL file(const std::string& name, const std::string& content) const {
    test::writeFile(directory.file(name), content);
    return URL::fileURL(directory.file(name));
  }
  URL missing() const { return URL::fileURL(directory.file("missing.der")); }
  /// What the handler was told before the call came back.
  Answer validate(std::shared_ptr<SecTrust> asked) const {
    URLProtectionSpace space{.host = "localhost", .port = 443};
    space.serverTrust = std::move(asked);
    return validate(space);
  }
  Answer validate(const URLProtectionSpace& space) const {
    std::vector<Answer> answers;
    producer->validate(*producer->session(), {.protectionSpace = space},
                       [&](auto disposition, std::optional<URLCredential> credential) {
                         answers.emplace_back(disposition, std::move(credential));
                       });
    EXPECT_EQ(answers.size(), 1u);
    return answers.at(0);
  }
  void expectDefault(const Answer& answer) const {
    EXPECT_EQ(answer.first, performDefaultHandling);
    EXPECT_FALSE(answer.second);
  }
  void expectTrusted(const Answer& answer, const std::shared_ptr<SecTrust>& asked) const {
    EXPECT_EQ(answer.first, useCredential);
    ASSERT_TRUE(answer.second);
    EXPECT_EQ(answer.second->serverTrust(), asked);
  }
  static SecCertificate certificate(const std::string& der) {
    return SecCertificate::createWithData(Data(der)).value();
  }

  const test::TemporaryDirectory directory;
  test::TestAuthority authority;
  const std::string rootDER = test::TestAuthority::der(authority.caFile());
  const std::string otherDER = test::TestAuthority::der(authority.unknownCaFile());
  std::shared_ptr<DataTaskProducer> producer = test::makeProducer();
  std::shared_ptr<ScriptedTrust> trust = std::make_shared<ScriptedTrust>();
};

TEST_F(ServerTrustTests, WithoutDebugCertificatesTheDefaultHoldsAndNothingIsEvaluated) {
  expectDefault(validate(trust));
  TarnService::debugCertificateURLs.emplace();
  expectDefault(validate(trust));
  EXPECT_EQ(trust->evaluations, 0);
  EXPECT_EQ(trust->anchorCalls, 0);
}

TEST_F(ServerTrustTests, AChallengeWithoutAServerTrustGetsTheDefault) {
  TarnService::debugCertificateURLs = {file("root.der", rootDER)};
  using enum URLProtectionSpace::AuthenticationMethod;
  for (const auto method : {clientCertificate, httpBasic, httpDigest, serverTrust}) {
    expectDefault(validate(URLProtectionSpace{.host = "h", .authenticationMethod = method}));
  }
}

TEST_F(ServerTrustTests, TheMethodOfTheChallengeDoesNotMatter) {
  TarnService::debugCertificateURLs = {file("root.der", rootDER)};
  URLProtectionSpace space;
  space.authenticationMethod = URLProtectionSpace::AuthenticationMethod::clientCertificate;
  space.serverTrust = trust;
  expectTrusted(validate(space), trust);
}

TEST_F(ServerTrustTests, OnlyATrustedChainIsAccepted) {
  TarnService::debugCertificateURLs = {file("root.der", rootDER)};
  for (const auto result : {invalid, proceed, deny, unspecified, recoverableTrustFailure,
                            fatalTrustFailure, otherError}) {
    SCOPED_TRACE(static_cast<int>(result));
    trust->result = result;
    trust->evaluations = 0;
    const auto answer = validate(trust);
    if (result == unspecified) {
      expectTrusted(answer, trust);
    } else {
      expectDefault(answer);
    }
    EXPECT_EQ(trust->evaluations, 1);
  }
}

TEST_F(ServerTrustTests, EachFileTakesThePlaceOfTheOneBeforeBesideTheSystemsAnchors) {
  TarnService::debugCertificateURLs = {file("root.der", rootDER), file("other.der", otherDER)};
  validate(trust);
  EXPECT_THAT(trust->anchors, testing::ElementsAre(certificate(otherDER)));
  EXPECT_EQ(trust->anchorCalls, 2);
  EXPECT_THAT(trust->onlyCalls, testing::ElementsAre(false, false));
}

// The fixture fails a test for any error in the log.
TEST_F(ServerTrustTests, AFileThatCanNotBeUsedIsPassedOverInSilence) {
  ASSERT_EQ(::mkfifo(directory.file("pipe").c_str(), 0600), 0);
  const URL unusable[] = {
      missing(),
      URL::fileURL(directory.path()),
      URL::fileURL(directory.file("pipe")),
      URL("file://elsewhere.example" + file("remote.der", otherDER).path()),
      URL("http://127.0.0.1:9/other.der"),
      URL("other.der"),
      file("empty.der", ""),
      file("garbage.der", "no certificate"),
      file("cut.der", otherDER.substr(0, otherDER.size() / 2)),
      file("two.der", otherDER + otherDER),
      file("other.pem", test::readFile(authority.unknownCaFile())),
  };
  for (const auto& url : unusable) {
    SCOPED_TRACE(url.absoluteString());
    const auto trust = std::make_shared<ScriptedTrust>();
    TarnService::debugCertificateURLs = {file("root.der", rootDER), url};
    expectTrusted(validate(trust), trust);
    EXPECT_THAT(trust->anchors, testing::ElementsAre(certificate(rootDER)));
    EXPECT_EQ(trust->anchorCalls, 1);
    EXPECT_EQ(trust->onlyCalls.size(), 1u);
  }
}

TEST_F(ServerTrustTests, WithNoFileThatCanBeUsedTheTrustIsEvaluatedAsItIs) {
  TarnService::debugCertificateURLs = {missing()};
  expectTrusted(validate(trust), trust);
  EXPECT_EQ(trust->anchorCalls, 0);
  EXPECT_EQ(trust->evaluations, 1);
}

TEST_F(ServerTrustTests, AnchorsThatAreNotTakenAreLoggedAndTheRestGoesOn) {
  const URL url = file("root.der", rootDER);
  TarnService::debugCertificateURLs = {url};
  trust->acceptsAnchors = false;
  expectTrusted(validate(trust), trust);
  expectLog(LogLevel::error, "Failed loading debug certificate " + url.absoluteString());
  EXPECT_STREQ(log.entries().back().location.function,
               "validate(session:didReceive:completionHandler:)");
  EXPECT_EQ(trust->onlyCalls.size(), 1u);
}

TEST_F(ServerTrustTests, AWishForTheSystemsAnchorsThatIsNotTakenIsLoggedAndTheRestGoesOn) {
  TarnService::debugCertificateURLs = {file("root.der", rootDER), file("other.der", otherDER)};
  trust->acceptsOnly = false;
  expectTrusted(validate(trust), trust);
  expectLog(LogLevel::error, "Failed SecTrustSetAnchorCertificatesOnly");
  expectLog(LogLevel::error, "Failed SecTrustSetAnchorCertificatesOnly");
  EXPECT_THAT(trust->anchors, testing::ElementsAre(certificate(otherDER)));
}

TEST_F(ServerTrustTests, TheSettingIsReadForEveryChallenge) {
  expectDefault(validate(trust));
  TarnService::debugCertificateURLs = {file("root.der", rootDER)};
  expectTrusted(validate(trust), trust);
  TarnService::debugCertificateURLs = std::nullopt;
  expectDefault(validate(trust));
}

TEST_F(ServerTrustTests, EveryProducerAnswersWithIt) {
  const auto answered = [&](auto&& answering) {
    std::vector<Answer> answers;
    URLProtectionSpace space;
    space.serverTrust = trust;
    answering->didReceiveChallenge(*producer->session(), {.protectionSpace = space},
                                   [&](auto disposition, std::optional<URLCredential> credential) {
                                     answers.emplace_back(disposition, std::move(credential));
                                   });
    ASSERT_EQ(answers.size(), 1u);
    expectTrusted(answers[0], trust);
  };
  TarnService::debugCertificateURLs = {file("root.der", rootDER)};
  answered(producer);
  answered(test::makeProducer<DownloadTaskProducer>());
  answered(test::makeProducer<UploadTaskProducer>());
}

/// Requests over TLS to a server of an authority that the system does not know, not even by name.
class DebugCertificates : public ServerTrustTests {
 protected:
  struct Get : DataGetRequestable<Get> {
    URL url;
    std::shared_ptr<DataTaskProducer> producer;
    std::shared_ptr<DataTaskProducer> taskProducer() const { return producer; }
  };

  explicit DebugCertificates(const test::LeafOptions& leaf = test::LeafOptions::unknownRoot())
      : server(tls(authority, leaf)) {
    server.route("/", test::Script().respond(200, {}, "hello"));
  }

  static test::TLSOptions tls(test::TestAuthority& authority, const test::LeafOptions& leaf) {
    const auto files = authority.issue(leaf);
    test::TLSOptions options;
    options.certFile = files.certFile;
    options.keyFile = files.keyFile;
    return options;
  }
  // On a connection of its own, so that the server's trust is asked for.
  DataResponse load(std::shared_ptr<DataTaskProducer> by = test::makeProducer()) {
    Get request;
    request.url = URL(server.localhostUrl());
    request.producer = std::move(by);
    test::Collector<DataResponse> responses;
    request.send(DispatchQueue("test.completions"), responses.callback());
    EXPECT_TRUE(responses.waitFor(1));
    return responses.value(0);
  }
  void expectLoaded() { EXPECT_EQ(load().result.body(), Data("hello")); }
  void expectRefused(std::int64_t code) {
    const auto response = load();
    const auto error = response.result.error();
    ASSERT_TRUE(error) << "was trusted";
    EXPECT_NE(error->as<CFNetworkErrors>(), nullptr);
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(server.requestCount(), 0u);
  }

  const std::string& signerDER = otherDER;
  const std::string& strangerDER = rootDER;
  test::ScriptedServer server;
};

TEST_F(DebugCertificates, AreNeededForAServerThatTheSystemDoesNotKnow) {
  expectRefused(URLError::serverCertificateHasUnknownRoot);
}

TEST_F(DebugCertificates, LetAServerOfTheirAuthorityThrough) {
  TarnService::debugCertificateURLs = {file("signer.der", signerDER)};
  expectLoaded();
}

TEST_F(DebugCertificates, OfAnotherAuthorityDoNotHelp) {
  TarnService::debugCertificateURLs = {file("stranger.der", strangerDER)};
  expectRefused(URLError::serverCertificateHasUnknownRoot);
}

TEST_F(DebugCertificates, ThatCanNotBeReadLeaveTheOneBeforeInPlace) {
  TarnService::debugCertificateURLs = {file("signer.der", signerDER), missing(),
                                       file("garbage.der", "no certificate")};
  expectLoaded();
}

TEST_F(DebugCertificates, BeforeTheLastDoNotCount) {
  TarnService::debugCertificateURLs = {file("signer.der", signerDER),
                                       file("stranger.der", strangerDER)};
  expectRefused(URLError::serverCertificateHasUnknownRoot);
  TarnService::debugCertificateURLs = {file("stranger.der", strangerDER),
                                       file("signer.der", signerDER)};
  expectLoaded();
}

class DebugCertificatesForAnotherHost : public DebugCertificates {
 protected:
  DebugCertificatesForAnotherHost() : DebugCertificates(leaf()) {}

  static test::LeafOptions leaf() {
    auto options = test::LeafOptions::wrongHost();
    options.signer = test::LeafOptions::Signer::unknownRoot;
    return options;
  }
};

// What default handling sees first is that the system does not know the root.
TEST_F(DebugCertificatesForAnotherHost, DoNotHelp) {
  TarnService::debugCertificateURLs = {file("signer.der", signerDER)};
  expectRefused(URLError::serverCertificateHasUnknownRoot);
}

}  // namespace
}  // namespace tarn
