#include <Platform/JSON/CodingPath.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>

#include <algorithm>

namespace tarn {
namespace {

bool isLetter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isIdentifier(const std::string& key) noexcept {
  return !key.empty() && isLetter(key[0]) &&
         std::ranges::all_of(key, [](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

}  // namespace

std::string description(const CodingPath& path) {
  std::string text;
  for (const CodingKey& key : path) {
    if (key.intValue()) {
      text += '[' + key.stringValue() + ']';
    } else if (isIdentifier(key.stringValue())) {
      if (!text.empty()) text += '.';
      text += key.stringValue();
    } else {
      text += '[' + detail::quoted(key.stringValue()) + ']';
    }
  }
  return text;
}

namespace detail {

CodingPath codingPath(const CodingFrame* innermost) {
  CodingPath path;
  for (const auto* frame = innermost; frame; frame = frame->outer)
    path.push_back(frame->isIndex ? CodingKey(frame->index) : CodingKey(std::string(frame->key)));
  std::ranges::reverse(path);
  return path;
}

std::string located(const CodingPath& path, const std::string& reason) {
  return path.empty() ? reason : description(path) + ": " + reason;
}

}  // namespace detail
}  // namespace tarn
