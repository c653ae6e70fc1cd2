#include <Platform/Files/Locale.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace tarn {
namespace {

using Tags = std::vector<std::string>;

TEST(LocaleTests, WritesLanguageTags) {
  struct Row {
    std::string locale;
    std::optional<std::string> tag;
  };
  const Row rows[] = {
      {"de", "de"},
      {"de_CH", "de-CH"},
      {"de_CH.UTF-8", "de-CH"},
      {"de_CH.UTF-8@euro", "de-CH"},
      {"de-ch", "de-CH"},
      {"DE_ch", "de-CH"},
      {"gsw_CH", "gsw-CH"},
      {"es_419", "es-419"},
      {"sr_RS@latin", "sr-Latn-RS"},
      {"sr_RS.UTF-8@latin", "sr-Latn-RS"},
      {"uz_UZ@cyrillic", "uz-Cyrl-UZ"},
      {"ks_IN@devanagari", "ks-Deva-IN"},
      {"tt_RU@iqtelif", "tt-Latn-RU"},
      {"ca_ES@valencia", "ca-ES-valencia"},
      {"aa_ER@saaho", "aa-ER-saaho"},
      {"sr@latin", "sr-Latn"},
      {"zh_Hant_TW", "zh-Hant-TW"},
      {"zh-hant-tw", "zh-Hant-TW"},
      {"zh_HANT", "zh-Hant"},
      {"", std::nullopt},
      {"d", std::nullopt},
      {"german", std::nullopt},
      {"de_", "de"},
      {"de_C", std::nullopt},
      {"de_CHE", std::nullopt},
      {"de_12", std::nullopt},
      {"de_CH_AT", std::nullopt},
      {"de_CH_Latn", std::nullopt},
      {"zh_Hant_Hans", std::nullopt},
      {"de__CH", std::nullopt},
      {"d1_CH", std::nullopt},
      {"_CH", std::nullopt},
      {"de CH", std::nullopt},
      {"de\r\nX: y", std::nullopt},
      {"de_C\n", std::nullopt},
      {"d\xC3\xA9", std::nullopt},
      {"/usr/share/locale/de", std::nullopt},
      {"de;q=1", std::nullopt},
      {"*", std::nullopt},
      {"@latin", std::nullopt},
      {".UTF-8", std::nullopt},
      {"de_CH.UTF-8\r\nX: y", "de-CH"},
      {"de_CH@evil\r\nX: y", "de-CH"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale);
    EXPECT_EQ(detail::languageTag(row.locale), row.tag);
  }
}

TEST(LocaleTests, ReadsTheEnvironmentAsGettextDoes) {
  struct Row {
    const char* name;
    detail::LanguageEnvironment environment;
    Tags tags;
  };
  const Row rows[] = {
      {"nothing set", {"", "", "", ""}, {"en"}},
      {"LANG", {"", "", "", "de_CH.UTF-8"}, {"de-CH"}},
      {"LC_MESSAGES before LANG", {"", "", "fr_FR", "de_DE"}, {"fr-FR"}},
      {"LC_ALL before LC_MESSAGES", {"", "it_IT", "fr_FR", "de_DE"}, {"it-IT"}},
      {"LANGUAGE before all", {"es:pt_BR", "it_IT", "fr_FR", "de_DE"}, {"es", "pt-BR"}},
      {"LANGUAGE beside LANG only", {"es", "", "", "de_DE"}, {"es"}},
      {"LANGUAGE without a locale", {"es", "", "", ""}, {"en"}},
      {"LANGUAGE with LANG=C", {"es", "", "", "C"}, {"en"}},
      {"LANGUAGE with LANG=POSIX", {"es", "", "", "POSIX"}, {"en"}},
      {"LANGUAGE with LANG=C.UTF-8", {"es", "", "", "C.UTF-8"}, {"en"}},
      {"LC_ALL=C wins over LANG", {"es", "C", "", "de_DE"}, {"en"}},
      {"LC_MESSAGES=C wins over LANG", {"es", "", "C", "de_DE"}, {"en"}},
      {"LC_ALL wins over LC_MESSAGES=C", {"es", "de_DE", "C", "C"}, {"es"}},
      {"empty entries", {":es::pt:", "", "", "de_DE"}, {"es", "pt"}},
      {"only empty entries", {"::", "", "", "de_DE"}, {"de-DE"}},
      {"duplicates", {"es:pt:es:ES", "", "", "de_DE"}, {"es", "pt"}},
      {"same tag written differently", {"de_CH:de-ch:de_CH.UTF-8", "", "", "de_DE"}, {"de-CH"}},
      {"C ends the list", {"es:C:pt", "", "", "de_DE"}, {"es", "en"}},
      {"POSIX ends the list", {"POSIX:pt", "", "", "de_DE"}, {"en"}},
      {"en before C is not repeated", {"en:C:pt", "", "", "de_DE"}, {"en"}},
      {"invalid entries left out", {"es:german:pt\r\nX:fr", "", "", "de_DE"}, {"es", "fr"}},
      {"only invalid entries", {"german:x y", "", "", "de_DE"}, {"de-DE"}},
      {"invalid LANG", {"", "", "", "german"}, {"en"}},
      {"invalid LANG still lets LANGUAGE count", {"es", "", "", "german"}, {"es"}},
      {"invalid LC_ALL hides LANG", {"", "german", "", "de_DE"}, {"en"}},
      {"line break in LANG", {"", "", "", "de\r\nX: y"}, {"en"}},
      {"long list",
       {"aa:bb:cc:dd:ee:ff:gg:hh", "", "", "de"},
       {"aa", "bb", "cc", "dd", "ee", "ff", "gg", "hh"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(detail::preferredLanguages(row.environment), row.tags);
  }
}

TEST(LocaleTests, TakesTheVariablesOfTheProcess) {
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"})
    ASSERT_EQ(unsetenv(name), 0);
  EXPECT_EQ(Locale::preferredLanguages(), (Tags{"en"}));
  setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ(Locale::preferredLanguages(), (Tags{"de-DE"}));
  setenv("LC_MESSAGES", "fr_FR.UTF-8", 1);
  EXPECT_EQ(Locale::preferredLanguages(), (Tags{"fr-FR"}));
  setenv("LC_ALL", "it_IT.UTF-8", 1);
  EXPECT_EQ(Locale::preferredLanguages(), (Tags{"it-IT"}));
  setenv("LANGUAGE", "es_ES:pt", 1);
  EXPECT_EQ(Locale::preferredLanguages(), (Tags{"es-ES", "pt"}));
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
}

TEST(LocaleTests, TheListIsMadeAgainWhereTheEnvironmentHasChangedOnly) {
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES"}) unsetenv(name);
  setenv("LANG", "de_DE.UTF-8", 1);
  const auto list = detail::preferredLanguages();
  setenv("LANGUAGE_OF_ANOTHER_PROGRAM", "fr", 1);
  EXPECT_EQ(detail::preferredLanguages(), list);
  Locale::setPreferredLanguages(Tags{"pt"});
  EXPECT_EQ(*detail::preferredLanguages(), (Tags{"pt"}));
  Locale::setPreferredLanguages(std::nullopt);
  EXPECT_EQ(*detail::preferredLanguages(), (Tags{"de-DE"}));
  setenv("LANG", "de_AT.UTF-8", 1);
  EXPECT_EQ(*detail::preferredLanguages(), (Tags{"de-AT"}));
  unsetenv("LANG");
  EXPECT_EQ(*detail::preferredLanguages(), (Tags{"en"}));
  unsetenv("LANGUAGE_OF_ANOTHER_PROGRAM");
}

TEST(LocaleTests, ApplicationSetsItsOwnList) {
  const Tags before = Locale::preferredLanguages();
  struct Row {
    Tags set;
    Tags answered;
  };
  const Row rows[] = {
      {{"de-CH", "en"}, {"de-CH", "en"}},
      {{"sr-Latn-RS", "x-klingon", "de-1996"}, {"sr-Latn-RS", "x-klingon", "de-1996"}},
      {{"de", "de"}, {"de"}},
      {{"de", "", "fr\r\nX: y", "a b", "-de", "de-", "de--CH", "de_CH", "123", "abcdefghi",
        "de;q=1"},
       {"de"}},
      {{}, {"en"}},
      {{"?"}, {"en"}},
  };
  for (const auto& row : rows) {
    Locale::setPreferredLanguages(row.set);
    EXPECT_EQ(Locale::preferredLanguages(), row.answered);
  }
  Locale::setPreferredLanguages(std::nullopt);
  EXPECT_EQ(Locale::preferredLanguages(), before);
}

}  // namespace
}  // namespace tarn
