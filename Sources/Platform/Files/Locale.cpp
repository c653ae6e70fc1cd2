#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Files/Locale.hpp>

#include <algorithm>
#include <array>
#include <unistd.h>
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

// One walk over the environment: requests ask for each of their headers.
detail::LanguageEnvironment readEnvironment() {
  detail::LanguageEnvironment found;
  const std::pair<std::string_view, std::string_view*> variables[] = {
      {"LANGUAGE=", &found.language},
      {"LC_ALL=", &found.lcAll},
      {"LC_MESSAGES=", &found.lcMessages},
      {"LANG=", &found.lang},
  };
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (**entry != 'L') continue;
    const std::string_view text(*entry);
    for (const auto& [start, value] : variables) {
      // The first of several counts, as with getenv.
      if (text.starts_with(start) && value->data() == nullptr) *value = text.substr(start.size());
    }
  }
  return found;
}

/// The application's list, or that of the environment, which is made again where that has changed.
class CurrentLanguages {
 public:
  static CurrentLanguages& shared() {
    const detail::NoForkScope scope;  // not while they are being made
    static auto& languages = *new CurrentLanguages;
    return languages;
  }

  detail::LanguageList list() TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (areChosen_) return list_;
    const auto environment = readEnvironment();
    if (!list_ ||
        !(environment == detail::LanguageEnvironment{language_, lcAll_, lcMessages_, lang_})) {
      list_ =
          std::make_shared<const std::vector<std::string>>(detail::preferredLanguages(environment));
      language_ = environment.language;
      lcAll_ = environment.lcAll;
      lcMessages_ = environment.lcMessages;
      lang_ = environment.lang;
    }
    return list_;
  }

  void choose(detail::LanguageList list) TARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    areChosen_ = list != nullptr;
    list_ = std::move(list);
  }

 private:
  Mutex mutex_;
  bool areChosen_ TARN_GUARDED_BY(mutex_) = false;
  detail::LanguageList list_ TARN_GUARDED_BY(mutex_);
  // Of the environment as the list was made.
  std::string language_ TARN_GUARDED_BY(mutex_);
  std::string lcAll_ TARN_GUARDED_BY(mutex_);
  std::string lcMessages_ TARN_GUARDED_BY(mutex_);
  std::string lang_ TARN_GUARDED_BY(mutex_);
};

}  // namespace

std::vector<std::string> Locale::preferredLanguages() { return *detail::preferredLanguages(); }

void Locale::setPreferredLanguages(const std::optional<std::vector<std::string>>& languages) {
  if (!languages) return CurrentLanguages::shared().choose(nullptr);
  std::vector<std::string> chosen;
  for (const auto& tag : *languages) {
    if (isLanguageTag(tag)) addUnlessPresent(chosen, tag);
  }
  if (chosen.empty()) chosen.emplace_back("en");
  CurrentLanguages::shared().choose(
      std::make_shared<const std::vector<std::string>>(std::move(chosen)));
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

LanguageList preferredLanguages() { return CurrentLanguages::shared().list(); }

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
