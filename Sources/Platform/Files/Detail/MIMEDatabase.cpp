#include <Platform/Files/Detail/MIMEDatabase.hpp>
#include <Platform/Files/Detail/ReadFile.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <set>
#include <tuple>
#include <utility>

namespace tarn::detail {
namespace {

struct Common {
  std::string_view extension;
  std::string_view type;
};

constexpr auto commonTypes = std::to_array<Common>({
    {"7z", "application/x-7z-compressed"},
    {"aac", "audio/aac"},
    {"avi", "video/x-msvideo"},
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"bz2", "application/x-bzip2"},
    {"c", "text/x-csrc"},
    {"cpp", "text/x-c++src"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"eml", "message/rfc822"},
    {"epub", "application/epub+zip"},
    {"flac", "audio/flac"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"h", "text/x-chdr"},
    {"heic", "image/heif"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ico", "image/vnd.microsoft.icon"},
    {"ics", "text/calendar"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript"},
    {"json", "application/json"},
    {"jsonl", "application/jsonl"},
    {"log", "text/plain"},
    {"m4a", "audio/mp4"},
    {"m4v", "video/mp4"},
    {"md", "text/markdown"},
    {"mjs", "text/javascript"},
    {"mkv", "video/x-matroska"},
    {"mov", "video/quicktime"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"mpeg", "video/mpeg"},
    {"mpg", "video/mpeg"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"oga", "audio/ogg"},
    {"ogg", "audio/ogg"},
    {"ogv", "video/ogg"},
    {"otf", "font/otf"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"ps", "application/postscript"},
    {"rar", "application/vnd.rar"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"ttf", "font/ttf"},
    {"txt", "text/plain"},
    {"wasm", "application/wasm"},
    {"wav", "audio/x-wav"},
    {"weba", "audio/webm"},
    {"webm", "video/webm"},
    {"webp", "image/webp"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"xz", "application/x-xz"},
    {"yaml", "application/yaml"},
    {"yml", "application/yaml"},
    {"zip", "application/zip"},
    {"zst", "application/zstd"},
});

static_assert(std::ranges::is_sorted(commonTypes, {}, &Common::extension));

// ASCII only, whatever the locale.
std::string lowerCase(std::string_view text) {
  std::string lowered(text);
  for (char& character : lowered) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character | 0x20);
  }
  return lowered;
}

// What stands before the first `separator`; takes it and the separator off `text`.
std::string_view cut(std::string_view& text, char separator) {
  const std::string_view part = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

// A type goes into header fields, so that a damaged one must not get any further.
bool isMIMEType(std::string_view text) {
  const auto isToken = [](std::string_view part) {
    return !part.empty() && std::ranges::all_of(part, [](char c) {
      return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
             std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    });
  };
  const std::string_view kind = cut(text, '/');
  return isToken(kind) && isToken(text);
}

/// One line of a globs2 file: "50:text/x-c++src:*.C:cs".
struct Line {
  int weight = 0;
  std::string_view type;
  std::string_view pattern;
  bool isCaseSensitive = false;
};

std::optional<Line> parseLine(std::string_view text) {
  if (text.ends_with('\r')) text.remove_suffix(1);
  if (text.starts_with('#')) return std::nullopt;
  Line line;
  const std::string_view weight = cut(text, ':');
  const auto [end, error] =
      std::from_chars(weight.data(), weight.data() + weight.size(), line.weight);
  line.type = cut(text, ':');
  line.pattern = cut(text, ':');
  if (error != std::errc() || end != weight.data() + weight.size()) return std::nullopt;
  if (!isMIMEType(line.type) || line.pattern.empty()) return std::nullopt;
  std::string_view flags = cut(text, ':');
  while (!flags.empty()) {
    if (cut(flags, ',') == "cs") line.isCaseSensitive = true;
  }
  return line;
}

// A path extension is what follows the last dot, so "*.tar.gz" never applies.
std::optional<std::string_view> extensionOf(std::string_view pattern) {
  if (!pattern.starts_with("*.")) return std::nullopt;
  pattern.remove_prefix(2);
  if (pattern.empty() || pattern.find_first_of("*?[].") != pattern.npos) return std::nullopt;
  return pattern;
}

std::string databaseIn(const std::string& directory) {
  try {
    return std::string(readFile(directory + "/mime/globs2").view());
  } catch (const std::exception&) {
    return {};  // none there, or none that may be read: the other folders and the table remain
  }
}

}  // namespace

MIMEDatabase::MIMEDatabase(const std::vector<std::string>& dataDirectories) {
  std::set<std::string, std::less<>> hidden;  // of these a less important folder says nothing
  for (std::size_t index = 0; index < dataDirectories.size(); ++index) {
    const std::string text = databaseIn(dataDirectories[index]);
    std::set<std::string, std::less<>> hiddenBelow;
    for (std::string_view rest = text; !rest.empty();) {
      const auto line = parseLine(cut(rest, '\n'));
      if (!line || hidden.contains(line->type)) continue;
      if (line->pattern == "__NOGLOBS__") hiddenBelow.emplace(line->type);
      const auto extension = extensionOf(line->pattern);
      if (!extension) continue;
      add(*extension, line->isCaseSensitive,
          {line->weight, std::string(line->type), index,
           commonMIMEType(lowerCase(*extension)) == line->type});
    }
    hidden.merge(hiddenBelow);
  }
}

void MIMEDatabase::add(std::string_view extension, bool isCaseSensitive, Candidate candidate) {
  const auto isBetter = [](const Candidate& left, const Candidate& right) {
    return std::tie(left.weight, right.directory, left.isCommon, right.type) >
           std::tie(right.weight, left.directory, right.isCommon, left.type);
  };
  const auto [known, isNew] = isCaseSensitive
                                  ? exact_.try_emplace(std::string(extension), candidate)
                                  : lowered_.try_emplace(lowerCase(extension), candidate);
  if (!isNew && isBetter(candidate, known->second)) known->second = std::move(candidate);
}

std::optional<std::string> MIMEDatabase::type(std::string_view extension) const {
  if (const auto found = exact_.find(extension); found != exact_.end()) return found->second.type;
  const std::string lowered = lowerCase(extension);
  if (const auto found = lowered_.find(lowered); found != lowered_.end()) return found->second.type;
  if (const auto common = commonMIMEType(lowered)) return std::string(*common);
  return std::nullopt;
}

std::optional<std::string_view> commonMIMEType(std::string_view extension) {
  const auto* found = std::ranges::lower_bound(commonTypes, extension, {}, &Common::extension);
  if (found == commonTypes.end() || found->extension != extension) return std::nullopt;
  return found->type;
}

std::vector<std::string> dataDirectories(std::string_view xdgDataHome, std::string_view home,
                                         std::string_view xdgDataDirs) {
  std::vector<std::string> directories;
  const auto add = [&directories](std::string directory) {
    if (directory.starts_with('/')) directories.push_back(std::move(directory));
  };
  if (!xdgDataHome.empty()) {
    add(std::string(xdgDataHome));
  } else if (!home.empty()) {
    add(std::string(home) + "/.local/share");
  }
  if (xdgDataDirs.empty()) xdgDataDirs = "/usr/local/share:/usr/share";
  while (!xdgDataDirs.empty()) add(std::string(cut(xdgDataDirs, ':')));
  return directories;
}

}  // namespace tarn::detail
