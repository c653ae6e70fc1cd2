#include <Includes/IncludeCheck.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace tarn {
namespace {

using namespace std::string_view_literals;

/// A part of the library may include itself and every part of a lower level; parts of one level
/// stay apart.
struct Part {
  std::string_view prefix;
  int level;
};

/// The longest prefix comes first where one holds another.
constexpr auto parts = std::to_array<Part>({
    {"Platform/", 0},
    {"TarnLogger/", 1},
    {"Tambour/", 1},
    {"TarnService/Settings.", 2},
    {"TarnService/Diagnostics/Logger.", 2},
    {"TarnService/Responses/", 3},
    {"TarnService/Transport/", 4},
    {"TarnService/RequestModel/", 5},
    {"TarnService/PayloadEncoding/", 6},
    {"TarnService/Diagnostics/", 6},
    {"TarnService/Sending/", 7},
    {"TarnService/TarnService.", 8},
});

/// For users of a library that the rest does without.
constexpr auto optionalHeader = "Platform/JSON/NlohmannCoding.hpp"sv;

/// A library's headers stay out of public headers; where a home is named, out of all other folders
/// too.
struct ForeignLibrary {
  std::string_view header;
  std::string_view home;
};

constexpr auto foreignLibraries = std::to_array<ForeignLibrary>({
    {"curl/", "Platform/URLLoading/Curl/"},
    {"nlohmann/", optionalHeader},
    {"openssl/", "Platform/Trust/"},
    {"simdjson", "Platform/JSON/"},
    {"spdlog/", "TarnLogger/"},
    {"zlib.h", ""},
    {"boost/", ""},
});

constexpr std::size_t longestFile = 799;
constexpr std::size_t longestPublicHeader = 299;

const Part* partOf(std::string_view path) {
  const auto* part = std::ranges::find_if(
      parts, [path](std::string_view prefix) { return path.starts_with(prefix); }, &Part::prefix);
  return part == parts.end() ? nullptr : part;
}

bool isPrivate(std::string_view path) {
  return path.find("/Curl/") != path.npos || path.find("/Detail/") != path.npos;
}

bool isPublicHeader(std::string_view path) { return path.ends_with(".hpp") && !isPrivate(path); }

/// What stands between the brackets or quotes, these included; nothing where the line is no
/// include.
std::optional<std::string_view> includedName(std::string_view line) {
  const auto skipBlanks = [&line] {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  };
  for (const auto word : {"#"sv, "include"sv}) {
    skipBlanks();
    if (!line.starts_with(word)) return std::nullopt;
    line.remove_prefix(word.size());
  }
  skipBlanks();
  if (line.empty() || (line.front() != '<' && line.front() != '"')) return std::nullopt;
  const auto end = line.find(line.front() == '<' ? '>' : '"', 1);
  return end == line.npos ? line : line.substr(0, end + 1);
}

/// `path` and `header` are relative to Sources/.
std::optional<std::string> faultOfInclude(std::string_view path, std::string_view header) {
  if (header == optionalHeader) return "may not include this header: users have its library or not";
  if (const auto* included = partOf(header)) {
    const auto* part = partOf(path);
    if (part && part != included && included->level >= part->level)
      return "may not include this part of the library";
    if (isPublicHeader(path) && isPrivate(header))
      return "is a public header and may not include a private one";
    return std::nullopt;
  }
  const auto* library = std::ranges::find_if(
      foreignLibraries, [header](std::string_view prefix) { return header.starts_with(prefix); },
      &ForeignLibrary::header);
  if (library == foreignLibraries.end()) return std::nullopt;
  if (!library->home.empty() && !path.starts_with(library->home))
    return "may not include this library: its home is " + std::string(library->home);
  const bool reflectsStructs =
      path.starts_with("Platform/JSON/") && header.starts_with("boost/pfr");
  // A home that is a header is there for the library's sake, and only included for it.
  const bool isForIt = library->home == path;
  if (isPublicHeader(path) && !reflectsStructs && !isForIt)
    return "is a public header and may not include this library";
  return std::nullopt;
}

}  // namespace

std::vector<std::string> includeFaults(std::string_view path, std::string_view text) {
  constexpr auto sources = "Sources/"sv;
  const bool isSource = path.starts_with(sources);
  const auto inSources = isSource ? path.substr(sources.size()) : path;
  std::vector<std::string> faults;

  if (isSource && !partOf(inSources))
    faults.push_back("stands in no part of the library that the table knows");

  std::size_t lines = 0;
  for (auto rest = text; !rest.empty(); ++lines) {
    const auto line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const auto name = includedName(line);
    if (!isSource || !name) continue;
    auto fault = name->front() == '"' || name->find("..") != name->npos
                     ? "includes are written <Module/Folder/Unit.hpp>"
                     : faultOfInclude(inSources, name->substr(1, name->size() - 2));
    if (fault) faults.push_back(std::string(*name) + ": " + *fault);
  }

  const bool isShort = isSource && isPublicHeader(path);
  if (const auto longest = isShort ? longestPublicHeader : longestFile; lines > longest)
    faults.push_back("has " + std::to_string(lines) + " lines; " + std::to_string(longest) +
                     " are allowed");
  for (auto& fault : faults) fault = std::string(path) + ": " + fault;
  return faults;
}

}  // namespace tarn
