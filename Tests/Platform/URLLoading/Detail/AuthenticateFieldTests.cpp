#include <Platform/URLLoading/Detail/AuthenticateField.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

/// "scheme name=value name=value; scheme"
std::string summary(std::string_view field) {
  std::string text;
  for (const auto& challenge : detail::parseAuthenticateField(field)) {
    if (!text.empty()) text += "; ";
    text += challenge.scheme;
    for (const auto& [name, value] : challenge.parameters) text += " " + name + "=" + value;
  }
  return text;
}

struct FieldRow {
  const char* field;
  const char* summary;
};

TEST(AuthenticateField, IsAListOfChallengesWithListsOfParameters) {
  for (const auto& row : std::vector<FieldRow>{
           {"", ""},
           {" , ,, ", ""},
           {"Basic", "basic"},
           {"Basic realm=\"here\"", "basic realm=here"},
           {"  bAsIC\tREALM = \"here\"  ", "basic realm=here"},
           {"Basic realm=here", "basic realm=here"},
           {"Basic realm=\"a, b=\\\"c\\\" \\\\\", charset=\"UTF-8\"",
            "basic realm=a, b=\"c\" \\ charset=UTF-8"},
           {"Basic realm=\"\"", "basic realm="},
           {"Digest realm=\"r\", qop=\"auth, auth-int\",nonce=n",
            "digest realm=r qop=auth, auth-int nonce=n"},
           {"Digest realm=\"r\", nonce=\"1\", Basic realm=\"s\"",
            "digest realm=r nonce=1; basic realm=s"},
           {"Negotiate, NTLM, Basic realm=\"s\"", "negotiate; ntlm; basic realm=s"},
           {"Negotiate YWJj==, Basic realm=\"s\"", "negotiate ywjj==; basic realm=s"},
           {"Negotiate YWJj, Basic realm=\"s\"", "negotiate; basic realm=s"},
           {"Digest realm=\"r\" nonce=\"n\"", "digest realm=r nonce=n"},
           {"Basic realm=\"r\" basic", "basic realm=r"},
           {", Basic realm=s,, Digest nonce=n ,", "basic realm=s; digest nonce=n"},
           {"Newauth realm=\"apps\", type=1, title=\"Login to \\\"apps\\\"\", Basic "
            "realm=\"simple\"",
            "newauth realm=apps type=1 title=Login to \"apps\"; basic realm=simple"},
           {"realm=\"of nobody\"", ""},
           {"=, =x, Basic realm=s", "x; basic realm=s"},
           {"Basic realm=\"never ends", "basic realm=never ends"},
           {"Basic realm=\"ends in a backslash\\", "basic realm=ends in a backslash\\"},
           {"Basic realm=", "basic realm="},
       }) {
    SCOPED_TRACE(row.field);
    EXPECT_EQ(summary(row.field), row.summary);
  }
}

TEST(AuthenticateField, TheFirstParameterOfANameCounts) {
  const auto challenges = detail::parseAuthenticateField("Basic realm=a, REALM=b");
  ASSERT_EQ(challenges.size(), 1u);
  EXPECT_EQ(challenges[0].parameter("realm"), "a");
  EXPECT_EQ(challenges[0].parameter("charset"), std::nullopt);
}

}  // namespace
}  // namespace tarn::test
