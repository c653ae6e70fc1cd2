#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Files/Locale.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace tarn {
namespace {

bool isLetter(char character) { return (character | 0x20) >= 'a' && (character | 0x20) <= 'z'; }
bool isDigit(char character) { return character >= '0' && character <= '9'; }

bool isAlpha(std::string_view text) { return std::all_of(text.begin(), text.end(), isLetter); }
bool isAlphanumeric(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return isLetter(c) || isDigit(c); });
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& character : result) {
    if (isLetter(character)) character = static_cast<char>(character | 0x20);
  }
  return result;
}

std::string raised(std::string_view text) {
  std::string result(text);
  for (char& character : result) {
    if (isLetter(character)) character = static_cast<char>(character & ~0x20);
  }
  return result;
}

bool isLanguage(std::string_view part) {
  return (part.size() == 2 || part.size() == 3) && isAlpha(part);
}
bool isScript(std::string_view part) { return part.size() == 4 && isAlpha(part); }
bool isRegion(std::string_view part) {
  return (part.size() == 2 && isAlpha(part)) ||
         (part.size() == 3 && std::all_of(part.begin(), part.end(), isDigit));
}

// What stands before the first of `separators`; takes it and the separator off `text`.
std::string_view cutPart(std::string_view& text, std::string_view separators) {
  const std::size_t end = std::min(text.find_first_of(separators), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

struct Modifier {
  std::string_view name;
  std::string_view script;
  std::string_view variant;
};

// The modifiers of glibc's locales that change the language; others ("euro") are about other
// matters.
constexpr std::array<Modifier, 6> modifiers = {{{"latin", "Latn", ""},
                                                {"cyrillic", "Cyrl", ""},
                                                {"devanagari", "Deva", ""},
                                                {"iqtelif", "Latn", ""},
                                                {"valencia", "", "valencia"},
                                                {"saaho", "", "saaho"}}};

Modifier modifierNamed(std::string_view name) {
  const auto* found =
      std::find_if(modifiers.begin(), modifiers.end(),
                   [name](const Modifier& modifier) { return modifier.name == name; });
  return found != modifiers.end() ? *found : Modifier{};
}

// The locale without translations; its messages are English.
bool isPortableLocale(std::string_view locale) {
  return locale == "C" || locale == "POSIX" || locale.starts_with("C.");
}

void addUnlessPresent(std::vector<std::string>& tags, std::string tag) {
  if (std::find(tags.begin(), tags.end(), tag) == tags.end()) tags.push_back(std::move(tag));
}

// Whether `tag` has the form of a language tag (RFC 5646): parts of one to eight letters or digits.
bool isLanguageTag(std::string_view tag) {
  bool isFirst = true;
  while (!tag.empty()) {
    if (tag.back() == '-') return false;
    const std::string_view part = cutPart(tag, "-");
    if (part.empty() || part.size() > 8 || !isAlphanumeric(part)) return false;
    if (std::exchange(isFirst, false) && !isAlpha(part)) return false;
  }
  return !isFirst;
}

Mutex chosenMutex;
std::optional<std::vector<std::string>>& chosenLanguages() {
  const detail::NoForkScope scope;  // not while it is being made
  static auto& languages = *new std::optional<std::vector<std::string>>;
  return languages;
}

std::string_view environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

std::vector<std::string> Locale::preferredLanguages() {
  {
    const MutexLock lock(chosenMutex);
    if (chosenLanguages()) return *chosenLanguages();
  }
  return detail::preferredLanguages({.language = environmentValue("LANGUAGE"),
                                     .lcAll = environmentValue("LC_ALL"),
                                     .lcMessages = environmentValue("LC_MESSAGES"),
                                     .lang = environmentValue("LANG")});
}

void Locale::setPreferredLanguages(const std::optional<std::vector<std::string>>& languages) {
  std::optional<std::vector<std::string>> chosen;
  if (languages) {
    chosen.emplace();
    for (const auto& tag : *languages) {
      if (isLanguageTag(tag)) addUnlessPresent(*chosen, tag);
    }
    if (chosen->empty()) chosen->emplace_back("en");
  }
  const MutexLock lock(chosenMutex);
  std::swap(chosenLanguages(), chosen);
}

namespace detail {

std::optional<std::string> languageTag(std::string_view locale) {
  std::string_view modifierName = locale;
  std::string_view name = cutPart(modifierName, "@");
  name = name.substr(0, name.find('.'));

  const std::string_view language = cutPart(name, "_-");
  if (!isLanguage(language)) return std::nullopt;
  const Modifier modifier = modifierNamed(modifierName);
  std::string script(modifier.script);
  std::string region;
  while (!name.empty()) {
    const std::string_view part = cutPart(name, "_-");
    if (isScript(part) && script.empty() && region.empty()) {
      script = raised(part.substr(0, 1)) + lowered(part.substr(1));
    } else if (isRegion(part) && region.empty()) {
      region = raised(part);
    } else {
      return std::nullopt;
    }
  }

  std::string tag = lowered(language);
  for (const std::string_view part :
       {std::string_view(script), std::string_view(region), modifier.variant}) {
    if (!part.empty()) tag.append(1, '-').append(part);
  }
  return tag;
}

std::vector<std::string> preferredLanguages(const LanguageEnvironment& environment) {
  std::string_view locale = environment.lang;
  if (!environment.lcMessages.empty()) locale = environment.lcMessages;
  if (!environment.lcAll.empty()) locale = environment.lcAll;
  if (locale.empty() || isPortableLocale(locale)) return {"en"};  // LANGUAGE does not count here

  std::vector<std::string> tags;
  std::string_view list = environment.language;
  while (!list.empty()) {
    const std::string_view entry = cutPart(list, ":");
    if (isPortableLocale(entry)) {
      addUnlessPresent(tags, "en");
      break;  // nothing behind it is ever looked at: the untranslated text is always there
    }
    if (auto tag = languageTag(entry)) addUnlessPresent(tags, *std::move(tag));
  }
  if (tags.empty()) {
    if (auto tag = languageTag(locale)) tags.push_back(*std::move(tag));
  }
  if (tags.empty()) tags.emplace_back("en");
  return tags;
}

}  // namespace detail
}  // namespace tarn
