#pragma once

namespace tarn {

/// Where in a program something happened: the caller's file, function and line when made as a
/// default argument.
///
/// Stands in for std::source_location, which Clang 14 does not offer with libstdc++.
struct SourceLocation {
  const char* file = "";
  const char* function = "";
  int line = 0;

  static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                          const char* function = __builtin_FUNCTION(),
                                          int line = __builtin_LINE()) noexcept {
    return {file, function, line};
  }

  /// The caller's file and line under a function name of its own, for names that C++ can't spell.
  static constexpr SourceLocation in(const char* function, const char* file = __builtin_FILE(),
                                     int line = __builtin_LINE()) noexcept {
    return {file, function, line};
  }
};

}  // namespace tarn
