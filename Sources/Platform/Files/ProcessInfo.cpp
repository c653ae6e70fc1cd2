#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/ProcessInfo.hpp>

#include <array>
#include <charconv>
#include <cstddef>
#include <sys/utsname.h>
#include <unistd.h>

namespace tarn {
namespace {

std::string executableName() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) return program_invocation_short_name;
  const std::string_view text(path.data(), static_cast<std::size_t>(length));
  return std::string(text.substr(text.rfind('/') + 1));
}

}  // namespace

ProcessInfo& ProcessInfo::processInfo() {
  const detail::NoForkScope scope;  // not while it is being made
  static ProcessInfo& info = *new ProcessInfo;
  return info;
}

OperatingSystemVersion ProcessInfo::operatingSystemVersion() const {
  {
    const MutexLock lock(mutex_);
    if (version_) return *version_;
  }
  utsname names{};
  return uname(&names) == 0 ? detail::parseKernelRelease(names.release) : OperatingSystemVersion{};
}

void ProcessInfo::setOperatingSystemVersion(std::optional<OperatingSystemVersion> version) {
  const MutexLock lock(mutex_);
  version_ = version;
}

std::string ProcessInfo::processName() const {
  const detail::NoForkScope scope;  // not while it is being made
  static const std::string& name = *new std::string(executableName());
  return name;
}

int ProcessInfo::processIdentifier() const noexcept { return getpid(); }

namespace detail {

OperatingSystemVersion parseKernelRelease(std::string_view release) noexcept {
  std::array<int, 3> numbers{};
  const char* at = release.data();
  const char* const end = at + release.size();
  for (int& number : numbers) {
    if (at == end || *at < '0' || *at > '9') break;
    const auto result = std::from_chars(at, end, number);
    if (result.ec != std::errc()) break;
    at = result.ptr;
    if (at == end || *at != '.') break;
    ++at;
  }
  return {numbers[0], numbers[1], numbers[2]};
}

}  // namespace detail
}  // namespace tarn
