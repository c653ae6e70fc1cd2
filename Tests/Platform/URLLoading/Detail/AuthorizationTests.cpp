#include <Platform/URLLoading/Detail/Authorization.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using detail::AuthenticateChallenge;
using detail::Login;

AuthenticateChallenge only(std::string_view field) {
  return detail::parseAuthenticateField(field).at(0);
}

struct StrengthRow {
  const char* field;
  const char* realm;  // of the strongest; null for none
};

TEST(StrongestChallenge, IsDigestWithTheBestHashThenBasic) {
  for (const auto& row : std::vector<StrengthRow>{
           {"Basic realm=b", "b"},
           {"Basic realm=b, Digest realm=d, nonce=n", "d"},
           {"Digest realm=d, nonce=n, Basic realm=b", "d"},
           {"Digest realm=m, nonce=n, Digest realm=s, nonce=n, algorithm=SHA-256", "s"},
           {"Digest realm=s, nonce=n, algorithm=sha-256, Digest realm=m, nonce=n", "s"},
           {"Digest realm=m, nonce=n, algorithm=MD5, Digest realm=s, nonce=n, "
            "algorithm=SHA-256-sess",
            "s"},
           {"Basic realm=a, Basic realm=b", "a"},
           {"Digest realm=d, nonce=n, qop=\"auth-int,auth\"", "d"},
           {"Digest realm=d, nonce=n, qop=\"\"", "d"},
           {"Digest realm=d, nonce=n, qop=auth-int, Basic realm=b", "b"},
           {"Digest realm=d, nonce=n, algorithm=SHA-999, Basic realm=b", "b"},
           {"Digest realm=d, Basic realm=b", "b"},
           {"Digest nonce=n, Basic realm=b", "b"},
           {"Bearer realm=x", nullptr},
           {"Negotiate, NTLM", nullptr},
           {"", nullptr},
       }) {
    SCOPED_TRACE(row.field);
    const auto challenges = detail::parseAuthenticateField(row.field);
    const auto* strongest = detail::strongestChallenge(challenges);
    ASSERT_EQ(strongest != nullptr, row.realm != nullptr);
    if (strongest != nullptr) {
      EXPECT_EQ(strongest->parameter("realm"), row.realm);
    }
  }
}

TEST(BasicAuthorization, IsNameAndPasswordInBase64) {
  EXPECT_EQ(detail::basicAuthorization({"Aladdin", "open sesame"}),
            "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
  EXPECT_EQ(detail::basicAuthorization({"", ""}), "Basic Og==");
  EXPECT_EQ(detail::basicAuthorization({"test", "123\xC2\xA3"}), "Basic dGVzdDoxMjPCow==");
}

struct DigestRow {
  const char* parameters;  // beside realm and nonce
  const char* response;
};

// RFC 7616, 3.9.1; those of a session have the same input.
TEST(DigestAuthorization, MatchesPublishedExamples) {
  for (const auto& row : std::vector<DigestRow>{
           {"qop=\"auth, auth-int\", algorithm=MD5", "8ca523f5e9506fed4657c9700eebdbec"},
           {"qop=auth", "8ca523f5e9506fed4657c9700eebdbec"},
           {"qop=auth, algorithm=SHA-256",
            "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1"},
           {"qop=auth, algorithm=MD5-sess", "e783283f46242139c486a698fec7211d"},
           {"qop=auth, algorithm=SHA-256-sess",
            "2fd51b3a77ad75bad6afad6003e818d767133c46d9e2749e7f5232ae1ea3efd7"},
       }) {
    SCOPED_TRACE(row.parameters);
    const auto challenge =
        only(std::string("Digest realm=\"http-auth@example.org\", "
                         "nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", "
                         "opaque=\"FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS\", ") +
             row.parameters);
    const auto field = only(detail::digestAuthorization(
        challenge, {"Mufasa", "Circle of Life"}, "GET", "/dir/index.html",
        "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ"));
    EXPECT_EQ(field.scheme, "digest");
    EXPECT_EQ(field.parameter("response"), row.response);
    EXPECT_EQ(field.parameter("username"), "Mufasa");
    EXPECT_EQ(field.parameter("uri"), "/dir/index.html");
    EXPECT_EQ(field.parameter("algorithm"), challenge.parameter("algorithm"));
    EXPECT_EQ(field.parameter("opaque"), "FQhe/qaU925kfnzjCev0ciny7QMkPqMAFRtzCUYo5tdS");
    EXPECT_EQ(field.parameter("qop"), "auth");
    EXPECT_EQ(field.parameter("nc"), "00000001");
    EXPECT_EQ(field.parameter("cnonce"), "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ");
  }
}

// RFC 2069, 2.4, as corrected.
TEST(DigestAuthorization, LeavesOutWhatOldServersDoNotKnow) {
  const auto field = only(detail::digestAuthorization(
      only("Digest realm=\"testrealm@host.com\", nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\""),
      {"Mufasa", "CircleOfLife"}, "GET", "/dir/index.html", "unused"));
  EXPECT_EQ(field.parameter("response"), "1949323746fe6a43ef61f9606e7febea");
  for (const char* name : {"qop", "nc", "cnonce", "algorithm", "opaque"}) {
    EXPECT_EQ(field.parameter(name), std::nullopt) << name;
  }
}

TEST(DigestAuthorization, QuotesWhatItRepeats) {
  const auto field = detail::digestAuthorization(only("Digest realm=\"a \\\"b\\\" \\\\\", nonce=n"),
                                                 {"eve\r\nX-Evil: \"1\"", "p"}, "GET", "/", "c");
  EXPECT_NE(field.find("realm=\"a \\\"b\\\" \\\\\""), std::string::npos) << field;
  EXPECT_NE(field.find("username=\"eveX-Evil: \\\"1\\\"\""), std::string::npos) << field;
}

}  // namespace
}  // namespace tarn::test
