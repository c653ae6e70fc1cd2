#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/AnyValue.hpp>

#include <map>
#include <optional>
#include <string>

namespace tarn {

inline constexpr const char* kCFBundleExecutableKey = "CFBundleExecutable";
inline constexpr const char* kCFBundleIdentifierKey = "CFBundleIdentifier";
inline constexpr const char* kCFBundleVersionKey = "CFBundleVersion";
inline constexpr const char* kCFBundleShortVersionStringKey = "CFBundleShortVersionString";

/// What a program or library says about itself: its name, identifier and versions. Callable from
/// any thread.
class Bundle {
 public:
  using InfoDictionary = std::map<std::string, AnyValue>;

  /// The program's: has its executable's name until the program sets more.
  static Bundle& main();
  /// This library's own: has the library's version.
  static Bundle& library();

  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;

  std::optional<InfoDictionary> infoDictionary() const;
  void setInfoDictionary(std::optional<InfoDictionary> info);

 private:
  explicit Bundle(std::optional<InfoDictionary> info) : info_(std::move(info)) {}

  mutable Mutex mutex_;
  std::optional<InfoDictionary> info_;
};

}  // namespace tarn
