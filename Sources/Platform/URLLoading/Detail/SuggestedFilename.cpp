#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/SuggestedFilename.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace tarn::detail {

namespace {

constexpr std::size_t longestName = 255;  // of a file, in bytes, on the usual file systems

constexpr std::array<std::pair<std::string_view, std::string_view>, 44> extensions{{
    {"application/gzip", "gz"},
    {"application/java-archive", "jar"},
    {"application/javascript", "js"},
    {"application/json", "json"},
    {"application/msword", "doc"},
    {"application/pdf", "pdf"},
    {"application/postscript", "ps"},
    {"application/rtf", "rtf"},
    {"application/vnd.ms-excel", "xls"},
    {"application/vnd.ms-powerpoint", "ppt"},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "pptx"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
    {"application/x-7z-compressed", "7z"},
    {"application/x-bzip2", "bz2"},
    {"application/x-gzip", "gz"},
    {"application/x-tar", "tar"},
    {"application/xhtml+xml", "xhtml"},
    {"application/xml", "xml"},
    {"application/zip", "zip"},
    {"audio/mp4", "m4a"},
    {"audio/mpeg", "mp3"},
    {"audio/ogg", "ogg"},
    {"audio/wav", "wav"},
    {"audio/x-wav", "wav"},
    {"font/woff", "woff"},
    {"font/woff2", "woff2"},
    {"image/avif", "avif"},
    {"image/bmp", "bmp"},
    {"image/gif", "gif"},
    {"image/heic", "heic"},
    {"image/jpeg", "jpg"},
    {"image/png", "png"},
    {"image/svg+xml", "svg"},
    {"image/tiff", "tiff"},
    {"image/webp", "webp"},
    {"text/calendar", "ics"},
    {"text/css", "css"},
    {"text/csv", "csv"},
    {"text/html", "html"},
    {"text/javascript", "js"},
    {"text/plain", "txt"},
    {"text/xml", "xml"},
    {"video/mp4", "mp4"},
}};

constexpr std::size_t longestType =
    std::ranges::max(extensions, {}, [](const auto& row) { return row.first.size(); }).first.size();

// Bytes C2 80 to C2 9F are the second set of control characters.
void removeSeparatorsAndControls(std::string& text) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) continue;
    if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      ++i;
      continue;
    }
    text[kept++] = text[i] == '/' || text[i] == '\\' ? '_' : text[i];
  }
  text.resize(kept);
}

// False where nothing can be made of it.
bool makeUsable(std::string& name) {
  if (!isValidUTF8(name)) return false;
  removeSeparatorsAndControls(name);
  while (name.ends_with(' ')) name.pop_back();
  name.erase(0, name.find_first_not_of(' '));
  return !name.empty() && name != "." && name != "..";
}

std::string_view extensionOf(std::string_view name) noexcept {
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return name.substr(dot + 1);
}

std::size_t characterBoundary(std::string_view text, std::size_t at) noexcept {
  while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
  return at;
}

std::string shortened(std::string name) {
  if (name.size() <= longestName) return name;
  constexpr std::size_t longestExtension = 32;
  std::string suffix;
  if (const auto extension = extensionOf(name);
      !extension.empty() && extension.size() <= longestExtension) {
    suffix = "." + std::string(extension);
  }
  name.resize(characterBoundary(name, longestName - suffix.size()));
  return name + suffix;
}

// Without the dot; empty where none is known.
std::string_view usualExtension(std::string_view mimeType) noexcept {
  if (mimeType.size() > longestType) return {};
  std::array<char, longestType> buffer;
  std::transform(mimeType.begin(), mimeType.end(), buffer.begin(),
                 [](char c) { return lowercased(c); });
  const std::string_view type(buffer.data(), mimeType.size());
  const auto entry = std::lower_bound(extensions.begin(), extensions.end(), type,
                                      [](const auto& row, auto text) { return row.first < text; });
  return entry != extensions.end() && entry->first == type ? entry->second : std::string_view();
}

}  // namespace

std::string suggestedFilename(std::optional<std::string> declared, const URL& url,
                              std::string_view mimeType) {
  std::string name = std::move(declared).value_or("");
  bool usable = makeUsable(name);
  if (!usable) {
    name = url.lastPathComponent();
    usable = name != "/" && makeUsable(name);
  }
  // The end of a host name looks like an extension and is none.
  const bool hasExtension = usable && !extensionOf(name).empty();
  if (!usable) {
    name = url.host().value_or("");
    if (!makeUsable(name)) name = "Unknown";
  }
  if (hasExtension) return shortened(std::move(name));
  if (const auto extension = usualExtension(mimeType); !extension.empty()) {
    if (name.back() != '.') name.push_back('.');
    name.append(extension);
  }
  return shortened(std::move(name));
}

}  // namespace tarn::detail
