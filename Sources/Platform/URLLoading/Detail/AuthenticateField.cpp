#include <Platform/URLLoading/Detail/AuthenticateField.hpp>
#include <Platform/URLLoading/Detail/FieldScanner.hpp>

namespace tarn::detail {

std::optional<std::string_view> AuthenticateChallenge::parameter(
    std::string_view name) const noexcept {
  for (const auto& [key, value] : parameters) {
    if (key == name) return value;
  }
  return std::nullopt;
}

// Commas part challenges as well as parameters: a "=" tells a parameter's name from a scheme.
std::vector<AuthenticateChallenge> parseAuthenticateField(std::string_view text) {
  std::vector<AuthenticateChallenge> challenges;
  Scanner scanner(text);
  bool afterComma = true;
  while (!scanner.atEnd()) {
    if (scanner.take(',')) {
      afterComma = true;
      continue;
    }
    const auto word = scanner.until(" \t=,");
    if (word.empty()) {
      if (!scanner.atEnd()) scanner.skip();
      continue;
    }
    const bool first = std::exchange(afterComma, false);
    if (scanner.take('=')) {
      auto value = scanner.take('"') ? scanner.quoted() : std::string(scanner.until(","));
      if (!challenges.empty()) {
        challenges.back().parameters.emplace_back(lowercased(word), std::move(value));
      }
    } else if (first) {  // otherwise it is a token of the scheme's own
      challenges.push_back({lowercased(word), {}});
    }
  }
  return challenges;
}

}  // namespace tarn::detail
