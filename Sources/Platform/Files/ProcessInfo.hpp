#pragma once

#include <Platform/Dispatch/Mutex.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

struct OperatingSystemVersion {
  int major = 0;
  int minor = 0;
  int patch = 0;

  friend bool operator==(const OperatingSystemVersion&, const OperatingSystemVersion&) = default;
};

/// What is known of the running process and its system. Callable from any thread.
class ProcessInfo {
 public:
  static ProcessInfo& processInfo();

  ProcessInfo(const ProcessInfo&) = delete;
  ProcessInfo& operator=(const ProcessInfo&) = delete;

  /// The kernel's release, unless the application has set another version.
  OperatingSystemVersion operatingSystemVersion() const;
  /// Nothing goes back to the kernel's release.
  void setOperatingSystemVersion(std::optional<OperatingSystemVersion> version);
  /// The name of the executable without its folder.
  std::string processName() const;
  int processIdentifier() const noexcept;

 private:
  ProcessInfo() = default;

  mutable Mutex mutex_;
  std::optional<OperatingSystemVersion> version_;
};

namespace detail {

/// The leading numbers of a kernel's release: "6.1.0-18-amd64" is 6.1.0; what is missing is 0.
OperatingSystemVersion parseKernelRelease(std::string_view release) noexcept;

}  // namespace detail
}  // namespace tarn
