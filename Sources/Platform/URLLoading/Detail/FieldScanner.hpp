#pragma once

#include <Platform/URLLoading/Detail/FieldValues.hpp>

#include <algorithm>
#include <string>
#include <string_view>

namespace tarn::detail {

/// Walks over one field value.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool atEnd() const noexcept { return rest_.empty(); }

  std::string_view until(std::string_view stops) {
    const auto end = std::find_first_of(rest_.begin(), rest_.end(), stops.begin(), stops.end());
    const std::string_view part(rest_.begin(), end);
    rest_.remove_prefix(part.size());
    return trimmed(part);
  }

  bool take(char c) {
    while (!rest_.empty() && isBlank(rest_.front())) rest_.remove_prefix(1);
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void skip() { rest_.remove_prefix(1); }

  // After the opening quote; a missing closing one ends with the text.
  std::string quoted() {
    std::string text;
    while (!rest_.empty() && rest_.front() != '"') {
      if (rest_.front() == '\\' && rest_.size() > 1) rest_.remove_prefix(1);
      text.push_back(rest_.front());
      rest_.remove_prefix(1);
    }
    if (!rest_.empty()) rest_.remove_prefix(1);
    return text;
  }

 private:
  std::string_view rest_;
};

}  // namespace tarn::detail
