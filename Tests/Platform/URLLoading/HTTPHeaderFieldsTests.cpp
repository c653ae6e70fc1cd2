#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(HTTPHeaderFields, LooksUpWithoutRegardToCase) {
  const HTTPHeaderFields fields{{"Content-Type", "text/plain"}};
  for (const char* name : {"Content-Type", "content-type", "CONTENT-TYPE", "cOnTeNt-TyPe"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(fields.value(name), "text/plain");
  }
  EXPECT_EQ(fields.value("Content-Typ"), std::nullopt);
}

TEST(HTTPHeaderFields, JoinsDuplicatesByCommaUnderTheFirstName) {
  HTTPHeaderFields fields;
  fields.add("Set-Thing", "a");
  fields.add("Other", "x");
  fields.add("set-thing", "b");
  fields.add("SET-THING", "");
  EXPECT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields.value("set-thing"), "a, b, ");
  EXPECT_EQ(fields.begin()->first, "Set-Thing");
}

TEST(HTTPHeaderFields, SetsAndRemovesWhateverTheCase) {
  HTTPHeaderFields fields{{"A", "1"}, {"B", "2"}};
  fields.set("a", "3");
  EXPECT_EQ(fields.value("A"), "3");
  fields.set("c", "4");
  EXPECT_EQ(fields.size(), 3u);
  fields.remove("b");
  EXPECT_FALSE(fields.contains("B"));
  fields.remove("b");
  EXPECT_EQ(fields.size(), 2u);
}

TEST(HTTPHeaderFields, ComparesWithoutOrderAndCaseOfNames) {
  const HTTPHeaderFields fields{{"A", "1"}, {"B", "2"}};
  EXPECT_EQ(fields, (HTTPHeaderFields{{"b", "2"}, {"a", "1"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}, {"b", "3"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}, {"c", "2"}}));
}

TEST(HTTPHeaderFields, OnlyAsciiLettersHaveCase) {
  EXPECT_TRUE(equalsIgnoringCase("X-a.B", "x-A.b"));
  EXPECT_FALSE(equalsIgnoringCase("[", "{"));
  EXPECT_FALSE(equalsIgnoringCase("\xC4", "\xE4"));
  EXPECT_FALSE(equalsIgnoringCase("a", "ab"));
}

}  // namespace
}  // namespace tarn
