#include <Support/Compression.hpp>
#include <Support/NginxServer.hpp>
#include <Support/RawClient.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/TestAuthority.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

namespace tarn::test {
namespace {

using namespace std::chrono_literals;
using End = RawClient::End;

TLSOptions tlsOf(const CertificateFiles& files) {
  TLSOptions options;
  options.certFile = files.certFile;
  options.keyFile = files.keyFile;
  return options;
}

RawTLSOptions trusting(const TestAuthority& authority) {
  RawTLSOptions options;
  options.caFile = authority.caFile();
  return options;
}

// ---- Certificates

TEST(TestAuthority, MakesLeavesThatFailForTheStatedReasonOnly) {
  using Signer = LeafOptions::Signer;
  LeafOptions addressOnly;
  addressOnly.dnsNames = {};
  LeafOptions byPlainLeaf;
  byPlainLeaf.signer = Signer::plainLeaf;
  LeafOptions forClients;
  forClients.purpose = LeafOptions::Purpose::client;
  LeafOptions corrupt;
  corrupt.corruptSignature = true;
  LeafOptions weak;
  weak.key = LeafOptions::Key::rsa1024;
  const struct {
    const char* name;
    LeafOptions options;
    long expected;
  } rows[] = {
      {"good", {}, X509_V_OK},
      {"by intermediate with chain", LeafOptions::intermediate(), X509_V_OK},
      {"by intermediate without chain", LeafOptions::intermediate(false),
       X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY},
      {"expired", LeafOptions::expired(), X509_V_ERR_CERT_HAS_EXPIRED},
      {"not yet valid", LeafOptions::notYetValid(), X509_V_ERR_CERT_NOT_YET_VALID},
      {"wrong host", LeafOptions::wrongHost(), X509_V_ERR_HOSTNAME_MISMATCH},
      {"self-signed", LeafOptions::selfSigned(), X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
      {"unknown root", LeafOptions::unknownRoot(), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY},
      {"by a leaf", byPlainLeaf, X509_V_ERR_INVALID_CA},
      {"for clients", forClients, X509_V_ERR_INVALID_PURPOSE},
      {"signature", corrupt, X509_V_ERR_CERT_SIGNATURE_FAILURE},
      {"weak key", weak, X509_V_ERR_EE_KEY_TOO_SMALL},
  };
  TestAuthority authority;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(tlsOf(authority.issue(row.options)));
    RawClient client(server.port());
    EXPECT_EQ(client.handshake(trusting(authority)), row.expected == X509_V_OK);
    EXPECT_EQ(client.verifyResult(), row.expected);
  }
}

TEST(TestAuthority, TrustsOneRootOnly) {
  TestAuthority authority;
  ScriptedServer server(tlsOf(authority.issue(LeafOptions::unknownRoot())));
  RawTLSOptions options;
  options.caFile = authority.unknownCaFile();
  EXPECT_TRUE(RawClient(server.port()).handshake(options));
  const TestAuthority other;
  EXPECT_FALSE(RawClient(server.port()).handshake(trusting(other)));
}

TEST(TestAuthority, GivesDerOfTheFirstCertificate) {
  TestAuthority authority;
  const std::string root = TestAuthority::der(authority.caFile());
  EXPECT_EQ(root[0], 0x30);
  EXPECT_NE(root.find("Test Root"), std::string::npos);
  EXPECT_NE(root, TestAuthority::der(authority.unknownCaFile()));
  EXPECT_NE(root, TestAuthority::der(authority.intermediateFile()));
  EXPECT_THROW(TestAuthority::der("/dev/null"), std::runtime_error);
}

TEST(TestAuthority, TakesItsFilesAway) {
  std::string file;
  {
    TestAuthority authority;
    file = authority.issue().keyFile;
    EXPECT_TRUE(fileExists(file));
  }
  EXPECT_FALSE(fileExists(file));
}

// ---- The scripted server under TLS

class ScriptedServerTLS : public testing::Test {
 protected:
  TestAuthority authority_;
};

TEST_F(ScriptedServerTLS, ServesAndRecords) {
  ScriptedServer server(tlsOf(authority_.issue()));
  server.route("/", Script().respond(200, {}, std::string(1 << 20, 'x')));
  EXPECT_TRUE(server.url().starts_with("https://127.0.0.1:"));
  RawClient client(server.port());
  ASSERT_TRUE(client.handshake(trusting(authority_)));
  for (int round = 0; round < 2; ++round) {
    client.get("/");
    EXPECT_TRUE(client.readResponse().ends_with("\r\n\r\n" + std::string(1 << 20, 'x')));
  }
  // The client may have the last byte before the server has counted it.
  EXPECT_TRUE(server.waitForConnection(
      0, [](const ConnectionRecord& own) { return own.bytesSent > 2u << 20; }));
  const ConnectionRecord record = server.connections()[0];
  EXPECT_TRUE(record.handshakeDone);
  EXPECT_EQ(record.tlsVersion, "TLSv1.3");
  EXPECT_EQ(record.requests, 2);
  EXPECT_FALSE(record.sessionResumed);
  EXPECT_EQ(record.handshakeError, "");
}

TEST_F(ScriptedServerTLS, EndsWithOrWithoutCloseNotify) {
  const struct {
    const char* name;
    Script script;
    End end;
  } rows[] = {{"close", Script().send("a").close(), End::closed},
              {"truncate", Script().send("a").truncate(), End::truncated},
              {"half-close", Script().send("a").halfClose().stall(), End::truncated},
              {"reset", Script().send("a").reset(), End::reset}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(tlsOf(authority_.issue()));
    server.route("/", row.script);
    RawClient client(server.port());
    ASSERT_TRUE(client.handshake(trusting(authority_)));
    client.get("/");
    EXPECT_EQ(client.readToEnd(), "a");
    EXPECT_EQ(client.end(), row.end);
  }
}

TEST_F(ScriptedServerTLS, NoticesWhileStalledThatTheClientLeft) {
  ScriptedServer server(tlsOf(authority_.issue()));
  server.route("/", Script().stall());
  RawClient client(server.port());
  ASSERT_TRUE(client.handshake(trusting(authority_)));
  client.get("/");
  ASSERT_TRUE(server.waitForStalls(1));
  client.close();
  EXPECT_TRUE(server.waitForConnectionsClosed(1));
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(ScriptedServerTLS, DisturbsTheHandshake) {
  const struct {
    const char* name;
    Script script;
    End end;
  } rows[] = {{"garbage", Script().send("HTTP/1.1 400 Bad Request\r\n\r\n").stall(), End::failed},
              {"FIN", Script().awaitInput().close(), End::truncated},
              {"RST", Script().awaitInput().reset(), End::reset}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(tlsOf(authority_.issue()));
    server.onConnect(row.script);
    RawClient client(server.port());
    EXPECT_FALSE(client.handshake(trusting(authority_)));
    EXPECT_EQ(client.end(), row.end);
    EXPECT_FALSE(server.connections()[0].handshakeDone);
  }
}

TEST_F(ScriptedServerTLS, HoldsTheHandshakeBackUntilReleased) {
  ScriptedServer server(tlsOf(authority_.issue()));
  server.onConnect(Script().awaitInput().stall());
  bool done = false;
  RawClient client(server.port());
  std::thread handshake([&] { done = client.handshake(trusting(authority_)); });
  EXPECT_TRUE(server.waitForStalls(1));
  EXPECT_FALSE(server.connections()[0].handshakeDone);
  server.releaseStalls();
  handshake.join();
  EXPECT_TRUE(done);
}

TEST_F(ScriptedServerTLS, RecordsWhyAHandshakeFailed) {
  ScriptedServer server(tlsOf(authority_.issue()));
  RawClient client(server.port());
  EXPECT_FALSE(client.handshake({}));
  EXPECT_TRUE(server.waitForConnection(0, [](const ConnectionRecord& own) { return !own.open; }));
  EXPECT_NE(server.connections()[0].handshakeError.find("unknown ca"), std::string::npos)
      << server.connections()[0].handshakeError;
}

TEST_F(ScriptedServerTLS, AsksForClientCertificates) {
  const CertificateFiles good = authority_.issue(LeafOptions::client("alice"));
  LeafOptions strangerOptions = LeafOptions::client("mallory");
  strangerOptions.signer = LeafOptions::Signer::unknownRoot;
  const CertificateFiles stranger = authority_.issue(strangerOptions);
  const struct {
    const char* name;
    ClientCertificate wish;
    CertificateFiles own;
    bool served;
    std::string recorded;
  } rows[] = {
      {"not asked", ClientCertificate::none, good, true, ""},
      {"requested, given", ClientCertificate::request, good, true, "alice"},
      {"requested, none", ClientCertificate::request, {}, true, ""},
      {"requested, stranger", ClientCertificate::request, stranger, false, ""},
      {"required, given", ClientCertificate::require, good, true, "alice"},
      {"required, none", ClientCertificate::require, {}, false, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TLSOptions options = tlsOf(authority_.issue());
    options.clientCertificate = row.wish;
    options.clientCaFile = authority_.caFile();
    ScriptedServer server(options);
    server.route("/", Script().respond(200));
    RawTLSOptions own = trusting(authority_);
    own.certFile = row.own.certFile;
    own.keyFile = row.own.keyFile;
    RawClient client(server.port());
    client.handshake(own);
    client.get("/");
    EXPECT_EQ(client.readResponse().find(" 200 ") != std::string::npos, row.served);
    EXPECT_EQ(server.connections()[0].clientCertificate, row.recorded);
  }
}

TEST_F(ScriptedServerTLS, KeepsToTheVersionsAskedFor) {
  const struct {
    TLSVersion maximum;
    bool offerOld;
    std::string expected;
  } rows[] = {{TLSVersion::tls10, true, "TLSv1"},
              {TLSVersion::tls11, true, "TLSv1.1"},
              {TLSVersion::tls11, false, ""},
              {TLSVersion::tls12, false, "TLSv1.2"},
              {TLSVersion::tls13, false, "TLSv1.3"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    TLSOptions options = tlsOf(authority_.issue());
    options.maximum = row.maximum;
    ScriptedServer server(options);
    server.route("/", Script().respond(200));
    RawTLSOptions own = trusting(authority_);
    own.offerOldVersions = row.offerOld;
    RawClient client(server.port());
    EXPECT_EQ(client.handshake(own), !row.expected.empty());
    client.get("/");
    client.readResponse();
    EXPECT_EQ(server.connections()[0].tlsVersion, row.expected);
  }
  TLSOptions options = tlsOf(authority_.issue());
  options.minimum = TLSVersion::tls13;
  ScriptedServer server(options);
  EXPECT_TRUE(RawClient(server.port()).handshake(trusting(authority_)));
}

TEST_F(ScriptedServerTLS, ThrowsForUnusableCertificates) {
  CertificateFiles mixed = authority_.issue();
  mixed.keyFile = authority_.issue().keyFile;
  EXPECT_THROW(ScriptedServer{tlsOf(mixed)}, std::runtime_error);
  EXPECT_THROW(ScriptedServer{tlsOf({"/absent", "/absent"})}, std::runtime_error);
}

// ---- nginx

class NginxServerTest : public testing::Test {
 protected:
  std::string get(const std::string& target, const std::string& fields = "") {
    RawClient client(nginx_.httpPort());
    client.send("GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + fields +
                "\r\n");
    return client.readToEnd();
  }
  static std::string bodyOf(const std::string& answer) {
    return answer.substr(answer.find("\r\n\r\n") + 4);
  }

  TestAuthority authority_;
  NginxServer nginx_{authority_, 300001};
};

TEST_F(NginxServerTest, ServesItsFixedLocations) {
  EXPECT_EQ(bodyOf(get("/hello")), "hello");
  EXPECT_NE(get("/hello").find("X-Protocol: HTTP/1.1\r\n"), std::string::npos);
  EXPECT_EQ(bodyOf(get("/json")), R"({"name":"nginx","value":42})");
  EXPECT_NE(get("/json").find("Content-Type: application/json\r\n"), std::string::npos);
  EXPECT_EQ(nginx_.bigBody().size(), 300001u);
  EXPECT_EQ(bodyOf(get("/big")), nginx_.bigBody());
  EXPECT_EQ(bodyOf(get("/text")), nginx_.textBody());
  EXPECT_TRUE(get("/missing").starts_with("HTTP/1.1 404 "));
  EXPECT_NE(get("/redirect").find("Location: /hello\r\n"), std::string::npos);
}

TEST_F(NginxServerTest, CompressesTextWhenAccepted) {
  const std::string answer = get("/text", "Accept-Encoding: gzip\r\n");
  EXPECT_NE(answer.find("Content-Encoding: gzip\r\n"), std::string::npos);
  EXPECT_NE(answer.find("Transfer-Encoding: chunked\r\n"), std::string::npos);
  EXPECT_NE(answer.find("\x1f\x8b"), std::string::npos);
}

TEST_F(NginxServerTest, StoresUploadsAndTakesPosts) {
  RawClient client(nginx_.httpPort());
  client.send("PUT /upload/x HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\n\r\nbody");
  EXPECT_NE(client.readResponse().find(" 201 "), std::string::npos);
  EXPECT_EQ(nginx_.uploaded("x"), "body");
  client.send("POST /post HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\n\r\nbody");
  EXPECT_TRUE(client.readResponse().ends_with("posted"));
}

TEST_F(NginxServerTest, SpeaksHTTP2OverTLS) {
  RawTLSOptions options = trusting(authority_);
  options.protocols = "\x02h2\x08http/1.1";
  RawClient client(nginx_.httpsPort());
  ASSERT_TRUE(client.handshake(options));
  EXPECT_EQ(client.protocol(), "h2");
  RawClient old(nginx_.httpsPort());
  ASSERT_TRUE(old.handshake(trusting(authority_)));
  old.get("/hello");
  EXPECT_TRUE(old.readResponse().ends_with("hello"));
}

TEST(NginxServer, IsGoneAfterItsScope) {
  TestAuthority authority;
  std::uint16_t port = 0;
  const std::size_t descriptors = openFileDescriptorCount();
  {
    const NginxServer nginx(authority);
    port = nginx.httpPort();
    EXPECT_EQ(RawClient::tryConnect(port, 5000), 0);
    EXPECT_EQ(nginx.url("/a"), "http://127.0.0.1:" + std::to_string(port) + "/a");
    EXPECT_EQ(nginx.secureUrl("/a"),
              "https://localhost:" + std::to_string(nginx.httpsPort()) + "/a");
  }
  EXPECT_EQ(RawClient::tryConnect(port, 5000), ECONNREFUSED);
  EXPECT_EQ(openFileDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace tarn::test
