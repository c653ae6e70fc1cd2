#include <Platform/JSON/Detail/SnakeCase.hpp>

#include <cstddef>

namespace tarn::detail {
namespace {

bool isUpper(char c) noexcept { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) noexcept { return c >= 'a' && c <= 'z'; }
char lower(char c) noexcept { return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }
char upper(char c) noexcept { return isLower(c) ? static_cast<char>(c - 'a' + 'A') : c; }

// At the first capital of a run, and at the last one where a small letter follows: the P of
// "URLProperty".
bool startsWord(std::string_view name, std::size_t i) noexcept {
  if (i == 0 || !isUpper(name[i]) || name[i - 1] == '_') return false;
  return !isUpper(name[i - 1]) || (i + 1 < name.size() && isLower(name[i + 1]));
}

}  // namespace

std::string snakeCase(std::string_view name) {
  std::string result;
  result.reserve(name.size() + 4);
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (startsWord(name, i)) result += '_';
    result += lower(name[i]);
  }
  return result;
}

std::string camelCase(std::string_view name) {
  const std::size_t first = name.find_first_not_of('_');
  if (first == name.npos) return std::string(name);
  const std::size_t end = name.find_last_not_of('_') + 1;
  if (name.substr(first, end - first).find('_') == name.npos) return std::string(name);

  std::string result(name.substr(0, first));
  result.reserve(name.size());
  bool isFirstWord = true;
  for (std::size_t i = first; i < end; ++i) {
    if (name[i] == '_') {
      isFirstWord = false;
      continue;
    }
    const bool isCapital = !isFirstWord && name[i - 1] == '_';
    result += isCapital ? upper(name[i]) : lower(name[i]);
  }
  return result += name.substr(end);
}

}  // namespace tarn::detail
