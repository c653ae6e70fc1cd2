#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// The user's languages. Callable from any thread that does not race with a change of the
/// environment.
class Locale {
 public:
  Locale() = delete;

  /// BCP 47 tags, the best first, never empty: from LC_ALL, LC_MESSAGES, LANG and LANGUAGE as
  /// gettext reads them, unless the application has set its own list. Without a usable setting:
  /// "en".
  static std::vector<std::string> preferredLanguages();
  /// Replaces the environment's languages; nothing goes back to them. Entries that are no language
  /// tags are left out, since they end up in header fields.
  static void setPreferredLanguages(const std::optional<std::vector<std::string>>& languages);
};

namespace detail {

/// The values of the environment variables that choose a language; empty is the same as unset.
struct LanguageEnvironment {
  std::string_view language;
  std::string_view lcAll;
  std::string_view lcMessages;
  std::string_view lang;

  friend bool operator==(const LanguageEnvironment&, const LanguageEnvironment&) = default;
};

using LanguageList = std::shared_ptr<const std::vector<std::string>>;

/// The list of Locale::preferredLanguages(); the same one until it changes.
LanguageList preferredLanguages();
std::vector<std::string> preferredLanguages(const LanguageEnvironment& environment);

/// "de_CH.UTF-8" gives "de-CH", "sr_RS@latin" gives "sr-Latn-RS"; nothing for what names no
/// language.
std::optional<std::string> languageTag(std::string_view locale);

}  // namespace detail
}  // namespace tarn
