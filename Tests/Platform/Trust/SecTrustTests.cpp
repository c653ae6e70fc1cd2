#include <Platform/Trust/Certificates.hpp>
#include <Platform/Trust/SecTrust.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tarn::test {
namespace {

using enum SecTrustResultType;
using Chain = std::vector<SecCertificate>;

class SecTrustTests : public testing::Test {
 protected:
  SecTrustTests() { trustedAuthority(); }

  Chain issued(const LeafOptions& options = {}) {
    return certificatesOf(authority.issue(options).certFile);
  }
  // By a root whose name, too, is none that the system trusts.
  Chain issuedByOther(bool corruptSignature = false) {
    LeafOptions options = LeafOptions::unknownRoot();
    options.corruptSignature = corruptSignature;
    return issued(options);
  }
  static std::shared_ptr<SecTrust> trust(Chain chain, const std::string& host = "localhost") {
    return SecTrust::create(std::move(chain), host);
  }
  // With these anchors and no others.
  static SecTrustResultType result(Chain chain, const Chain& anchors,
                                   const std::string& host = "localhost") {
    const auto asked = trust(std::move(chain), host);
    EXPECT_TRUE(asked->setAnchorCertificates(anchors));
    const auto answer = asked->evaluate();
    EXPECT_EQ(ERR_peek_error(), 0u) << "left behind for the next handshake to stumble upon";
    return answer;
  }

  TestAuthority authority;  // not the one that the system trusts
  const Chain root = certificatesOf(authority.caFile());
  const Chain intermediate = certificatesOf(authority.intermediateFile());
  const Chain otherRoot = certificatesOf(authority.unknownCaFile());
};

LeafOptions with(void (*change)(LeafOptions&)) {
  LeafOptions options;
  change(options);
  return options;
}

// Each but the first ones is a good leaf with one fault.
TEST_F(SecTrustTests, LooksAtEveryFaultOfALeaf) {
  const struct {
    const char* name;
    LeafOptions leaf;
    SecTrustResultType expected;
  } rows[] = {
      {"good", {}, unspecified},
      {"by an intermediate", LeafOptions::intermediate(), unspecified},
      {"intermediate missing", LeafOptions::intermediate(false), recoverableTrustFailure},
      {"expired", LeafOptions::expired(), recoverableTrustFailure},
      {"not yet valid", LeafOptions::notYetValid(), recoverableTrustFailure},
      {"another host", LeafOptions::wrongHost(), recoverableTrustFailure},
      {"common name only", LeafOptions::commonNameOnly(), recoverableTrustFailure},
      {"self-signed", LeafOptions::selfSigned(), recoverableTrustFailure},
      {"unknown root", LeafOptions::unknownRoot(), recoverableTrustFailure},
      {"purpose of a client",
       with([](LeafOptions& leaf) { leaf.purpose = LeafOptions::Purpose::client; }),
       recoverableTrustFailure},
      {"issuer is no authority",
       with([](LeafOptions& leaf) { leaf.signer = LeafOptions::Signer::plainLeaf; }),
       recoverableTrustFailure},
      {"weak key", with([](LeafOptions& leaf) { leaf.key = LeafOptions::Key::rsa1024; }),
       recoverableTrustFailure},
      {"broken signature", with([](LeafOptions& leaf) { leaf.corruptSignature = true; }),
       fatalTrustFailure},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(result(issued(row.leaf), root), row.expected);
  }
}

TEST_F(SecTrustTests, ARootThatTheServerSendsIsNoAnchor) {
  auto chain = issued(LeafOptions::unknownRoot());
  chain.push_back(otherRoot.front());
  EXPECT_EQ(result(chain, root), recoverableTrustFailure);
  EXPECT_EQ(result(chain, otherRoot), unspecified);
}

TEST_F(SecTrustTests, AnEmptyChainIsAnError) { EXPECT_EQ(result({}, root), otherError); }

TEST_F(SecTrustTests, TheLeafHasToNameTheHost) {
  const auto leaf = issued(with([](LeafOptions& options) {
    options.dnsNames = {"localhost", "*.a.example", "x*.b.example"};
    options.addresses = {"127.0.0.1", "::1"};
  }));
  const struct {
    const char* host;
    SecTrustResultType expected;
  } rows[] = {
      {"localhost", unspecified},
      {"LocalHost", unspecified},
      {"localhost.", unspecified},
      {"www.a.example", unspecified},
      {"a.example", recoverableTrustFailure},
      {"w.w.a.example", recoverableTrustFailure},
      {"xy.b.example", recoverableTrustFailure},
      {"127.0.0.1", unspecified},
      {"127.0.0.2", recoverableTrustFailure},
      {"::1", unspecified},
      {"[::1]", unspecified},
      {"[::2]", recoverableTrustFailure},
      {"", recoverableTrustFailure},
      {".", recoverableTrustFailure},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.host);
    EXPECT_EQ(result(leaf, root, row.host), row.expected);
  }
}

TEST_F(SecTrustTests, AnyCertificateOfTheChainCanBeTheAnchor) {
  const auto leaf = issued();
  const auto chain = issued(LeafOptions::intermediate());
  const auto alone = issued(LeafOptions::intermediate(false));
  const auto selfSigned = issued(LeafOptions::selfSigned());
  const auto expired = issued(LeafOptions::expired());
  const auto elsewhere = issued(LeafOptions::wrongHost());
  const struct {
    const char* name;
    Chain chain;
    Chain anchors;
    SecTrustResultType expected;
  } rows[] = {
      {"the root", chain, root, unspecified},
      {"the intermediate", chain, intermediate, unspecified},
      {"an intermediate that was not sent", alone, intermediate, unspecified},
      {"the leaf of an authority", leaf, leaf, unspecified},
      {"the leaf that signed itself", selfSigned, selfSigned, unspecified},
      {"one among others", leaf, {otherRoot[0], root[0], intermediate[0]}, unspecified},
      {"one named twice", leaf, {root[0], root[0]}, unspecified},
      {"another", leaf, otherRoot, recoverableTrustFailure},
      {"none", leaf, {}, recoverableTrustFailure},
      {"an expired leaf", expired, expired, recoverableTrustFailure},
      {"a leaf of another host", elsewhere, elsewhere, recoverableTrustFailure},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(result(row.chain, row.anchors), row.expected);
  }
}

TEST_F(SecTrustTests, TheSystemsAnchorsCountUntilOthersTakeTheirPlace) {
  const auto known = trust(certificatesOf(trustedAuthority().issue().certFile));
  EXPECT_EQ(known->evaluate(), unspecified);
  ASSERT_TRUE(known->setAnchorCertificates(otherRoot));
  EXPECT_EQ(known->evaluate(), recoverableTrustFailure);
  ASSERT_TRUE(known->setAnchorCertificatesOnly(false));
  EXPECT_EQ(known->evaluate(), unspecified);
  ASSERT_TRUE(known->setAnchorCertificates(otherRoot));
  EXPECT_EQ(known->evaluate(), recoverableTrustFailure) << "the wish holds until the next anchors";
}

TEST_F(SecTrustTests, WithoutCustomAnchorsAndTheSystemsNobodyIsTrusted) {
  const auto known = trust(certificatesOf(trustedAuthority().issue().certFile));
  ASSERT_TRUE(known->setAnchorCertificatesOnly(true));
  EXPECT_EQ(known->evaluate(), recoverableTrustFailure);
  ASSERT_TRUE(known->setAnchorCertificatesOnly(false));
  EXPECT_EQ(known->evaluate(), unspecified);
}

TEST_F(SecTrustTests, CustomAnchorsStandBesideTheSystems) {
  const auto unknown = trust(issuedByOther());
  EXPECT_EQ(unknown->evaluate(), recoverableTrustFailure);
  ASSERT_TRUE(unknown->setAnchorCertificates(otherRoot));
  ASSERT_TRUE(unknown->setAnchorCertificatesOnly(false));
  EXPECT_EQ(unknown->evaluate(), unspecified);
}

TEST_F(SecTrustTests, NewCustomAnchorsReplaceTheFormer) {
  const auto asked = trust(issuedByOther());
  ASSERT_TRUE(asked->setAnchorCertificates(otherRoot));
  ASSERT_TRUE(asked->setAnchorCertificates(intermediate));
  EXPECT_EQ(asked->evaluate(), recoverableTrustFailure);
}

TEST_F(SecTrustTests, CustomAnchorsHoldForOneTrustOnly) {
  const auto leaf = issuedByOther();
  EXPECT_EQ(result(leaf, otherRoot), unspecified);
  EXPECT_EQ(trust(leaf)->evaluate(), recoverableTrustFailure);
}

// By the system's anchors alone the chain only seems to lack its root.
TEST_F(SecTrustTests, ABrokenSignatureTellsBesideTheSystemsAnchorsToo) {
  const auto broken = trust(issuedByOther(true));
  EXPECT_EQ(broken->evaluate(), recoverableTrustFailure);
  ASSERT_TRUE(broken->setAnchorCertificates(otherRoot));
  ASSERT_TRUE(broken->setAnchorCertificatesOnly(false));
  EXPECT_EQ(broken->evaluate(), fatalTrustFailure);
}

TEST_F(SecTrustTests, TellsWhatTheServerSent) {
  const auto chain = issued(LeafOptions::intermediate());
  ASSERT_EQ(chain.size(), 2u);
  EXPECT_EQ(trust(chain)->certificates(), chain);
}

TEST_F(SecTrustTests, AnchorsMayChangeWhileAnotherThreadEvaluates) {
  const auto asked = trust(issuedByOther());
  std::thread changing([&] {
    for (int round = 0; round < 20; ++round) {
      EXPECT_TRUE(asked->setAnchorCertificates(round % 2 == 0 ? otherRoot : intermediate));
      EXPECT_TRUE(asked->setAnchorCertificatesOnly(false));
    }
  });
  for (int round = 0; round < 20; ++round) {
    const auto answer = asked->evaluate();
    EXPECT_TRUE(answer == unspecified || answer == recoverableTrustFailure);
  }
  changing.join();
  EXPECT_EQ(asked->evaluate(), recoverableTrustFailure);
}

}  // namespace
}  // namespace tarn::test
