#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/SecureServer.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

struct CertificateRow {
  const char* name;
  LeafOptions leaf;
  std::int64_t code;
};

void PrintTo(const CertificateRow& row, std::ostream* out) { *out << row.name; }

class ServerCertificate : public testing::TestWithParam<CertificateRow> {};

TEST_P(ServerCertificate, IsJudged) {
  for (const auto version : {TLSVersion::tls12, TLSVersion::tls13}) {
    SCOPED_TRACE(version == TLSVersion::tls12 ? "1.2" : "1.3");
    SecureServer server(GetParam().leaf, versions(version, version));
    for (const bool pause : {true, false}) {
      SCOPED_TRACE(pause ? "the handshake waits" : "the handshake is repeated");
      const HandshakeWay way(pause);
      RecordedSession session;
      const auto loaded = session.load(server.localhostUrl("/"));
      EXPECT_EQ(loaded.code(), GetParam().code)
          << (loaded.record.error ? loaded.record.error->message() : "");
      EXPECT_EQ(loaded.text(), GetParam().code == 0 ? "hello" : "");
    }
    EXPECT_EQ(server.requestCount(), GetParam().code == 0 ? 2u : 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ServerCertificate,
    testing::Values(
        CertificateRow{"good", {}, 0},
        CertificateRow{"by an intermediate", LeafOptions::intermediate(), 0},
        CertificateRow{"expired", LeafOptions::expired(), URLError::serverCertificateHasBadDate},
        CertificateRow{"not yet valid", LeafOptions::notYetValid(),
                       URLError::serverCertificateNotYetValid},
        CertificateRow{"wrong host", LeafOptions::wrongHost(),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"common name only", LeafOptions::commonNameOnly(),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"self-signed", LeafOptions::selfSigned(),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"unknown root", LeafOptions::unknownRoot(),
                       URLError::serverCertificateHasUnknownRoot},
        CertificateRow{"intermediate missing", LeafOptions::intermediate(false),
                       URLError::serverCertificateHasUnknownRoot},
        CertificateRow{"expired intermediate", with<LeafOptions>([](LeafOptions& o) {
                         o.signer = LeafOptions::Signer::expiredIntermediate;
                       }),
                       URLError::serverCertificateHasBadDate},
        CertificateRow{"weak key",
                       with<LeafOptions>([](LeafOptions& o) { o.key = LeafOptions::Key::rsa1024; }),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"made for clients", with<LeafOptions>([](LeafOptions& o) {
                         o.purpose = LeafOptions::Purpose::client;
                       }),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"issuer is no authority", with<LeafOptions>([](LeafOptions& o) {
                         o.signer = LeafOptions::Signer::plainLeaf;
                       }),
                       URLError::serverCertificateUntrusted},
        CertificateRow{"broken signature",
                       with<LeafOptions>([](LeafOptions& o) { o.corruptSignature = true; }),
                       URLError::serverCertificateUntrusted}));

TEST(TLSVerification, AnAddressNeedsToBeInTheCertificate) {
  SecureServer named(with<LeafOptions>([](LeafOptions& o) { o.addresses.clear(); }));
  SecureServer addressed(with<LeafOptions>([](LeafOptions& o) { o.dnsNames.clear(); }));
  RecordedSession session;
  EXPECT_EQ(session.load(named.url("/")).code(), URLError::serverCertificateUntrusted);
  EXPECT_EQ(session.load(named.localhostUrl("/")).code(), 0);
  EXPECT_EQ(session.load(addressed.url("/")).code(), 0);
  EXPECT_EQ(session.load(addressed.localhostUrl("/")).code(), URLError::serverCertificateUntrusted);
}

TEST(TLSVerification, ARefusalSaysWhy) {
  SecureServer server(LeafOptions::expired());
  RecordedSession session;
  const auto loaded = session.load(server.localhostUrl("/"));
  ASSERT_TRUE(loaded.record.error);
  EXPECT_NE(loaded.record.error->message().find("expired"), std::string::npos)
      << loaded.record.error->message();
}

TEST(TLSVerification, EachConnectionIsJudgedAndEachRequestOnIt) {
  SecureServer server;
  {
    RecordedSession session;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(session.load(server.localhostUrl("/")).text(), "hello");
    EXPECT_EQ(server.connectionCount(), 1u);
  }
  RecordedSession another;
  EXPECT_EQ(another.load(server.localhostUrl("/")).text(), "hello");
  EXPECT_EQ(server.connectionCount(), 2u);
  EXPECT_FALSE(server.connections()[1].sessionResumed);
}

struct HandshakeRow {
  const char* name;
  Script onConnect;
};

TEST(TLSHandshake, FaultsOfIt) {
  trustedAuthority();
  for (const auto& row : std::vector<HandshakeRow>{
           {"plain HTTP", Script().send("HTTP/1.1 400 Bad Request\r\n\r\n").close()},
           {"FIN", Script().close()},
           {"FIN after the client's hello", Script().awaitInput().close()},
           {"RST", Script().awaitInput().reset()},
           {"garbage", Script().awaitInput().send(std::string(100, '\x7F')).close()}}) {
    SCOPED_TRACE(row.name);
    ScriptedServer server;
    server.onConnect(row.onConnect);
    RecordedSession session;
    const auto loaded = session.load("https://localhost:" + std::to_string(server.port()) + "/");
    EXPECT_EQ(loaded.code(), URLError::secureConnectionFailed)
        << (loaded.record.error ? loaded.record.error->message() : "");
  }
}

TEST(TLSHandshake, ATooOldVersionIsRefused) {
  SecureServer server({}, versions(TLSVersion::any, TLSVersion::tls11));
  RecordedSession session;
  EXPECT_EQ(session.load(server.localhostUrl("/")).code(), URLError::secureConnectionFailed);
}

struct VersionRow {
  TLSProtocolVersion oldest;
  TLSVersion spoken;
  bool works;
};

TEST(TLSHandshake, TheConfigurationSaysWhichVersionIsTooOld) {
  using enum TLSProtocolVersion;
  for (const auto& row : std::vector<VersionRow>{{TLSv10, TLSVersion::tls10, true},
                                                 {TLSv10, TLSVersion::tls13, true},
                                                 {TLSv11, TLSVersion::tls10, false},
                                                 {TLSv11, TLSVersion::tls11, true},
                                                 {TLSv12, TLSVersion::tls11, false},
                                                 {TLSv12, TLSVersion::tls12, true},
                                                 {TLSv13, TLSVersion::tls12, false},
                                                 {TLSv13, TLSVersion::tls13, true}}) {
    SCOPED_TRACE("oldest " + std::to_string(static_cast<int>(row.oldest)) + ", spoken " +
                 std::to_string(static_cast<int>(row.spoken)));
    SecureServer server({}, versions(row.spoken, row.spoken));
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.tlsMinimumSupportedProtocolVersion = row.oldest;
    RecordedSession session(configuration);
    EXPECT_EQ(session.load(server.localhostUrl("/")).code(),
              row.works ? 0 : std::int64_t{URLError::secureConnectionFailed});
  }
}

TEST(TLSBody, ThatEndsWithTheConnectionNeedsAProperEnd) {
  SecureServer server;
  server.route("/whole", Script().head(200).send("hello").close());
  server.route("/cut", Script().head(200).send("hello").truncate());
  server.route("/announced",
               Script().head(200, {{"Content-Length", "5"}}).send("hello").truncate());
  RecordedSession session;
  const auto whole = session.load(server.localhostUrl("/whole"));
  EXPECT_EQ(whole.code(), 0);
  EXPECT_EQ(whole.text(), "hello");
  EXPECT_EQ(session.load(server.localhostUrl("/cut")).code(), URLError::networkConnectionLost);
  EXPECT_EQ(session.load(server.localhostUrl("/announced")).code(), 0);
}

TEST(TLSVerification, ACancelDuringTheHandshakeEndsIt) {
  trustedAuthority();
  ScriptedServer server;
  server.onConnect(Script().stall());
  RecordedSession session;
  const auto task = session.start("https://localhost:" + std::to_string(server.port()) + "/");
  ASSERT_TRUE(server.waitForStalls(1));
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
}

TEST(TLSVerification, RedirectsBetweenSecureAndPlainKeepSecretsApart) {
  SecureServer secure;
  ScriptedServer plain;
  plain.route("/to", Script().respond(200, {}, "there"));
  secure.route("/from", Script().respond(302, {{"Location", plain.url("/to")}}));
  RecordedSession session;
  auto request = RecordedSession::request(secure.localhostUrl("/from"));
  request.setValue("Bearer secret", "Authorization");
  EXPECT_EQ(session.load(request).text(), "there");
  EXPECT_EQ(plain.request(0).header("Authorization"), std::nullopt);
}

}  // namespace
}  // namespace tarn::test
