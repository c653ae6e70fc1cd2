#include <Support/System.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace tarn::test {
namespace {

std::size_t entryCount(const char* directory) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    static_cast<void>(entry);
    ++count;
  }
  return count;
}

std::optional<std::string> environmentValue(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string()) {
  if (!::mkdtemp(path_.data())) {
    throw std::runtime_error("cannot make a temporary directory: " +
                             std::string(std::strerror(errno)));
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::string& value)
    : name_(std::move(name)), former_(environmentValue(name_)) {
  ::setenv(name_.c_str(), value.c_str(), 1);
}

ScopedEnvironment::ScopedEnvironment(std::string name, std::nullopt_t)
    : name_(std::move(name)), former_(environmentValue(name_)) {
  ::unsetenv(name_.c_str());
}

ScopedEnvironment::~ScopedEnvironment() {
  if (former_) {
    ::setenv(name_.c_str(), former_->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

std::vector<Descriptor> openDescriptors() {
  std::vector<Descriptor> found;
  for (const auto& name : fileNames("/proc/self/fd")) {
    const int number = std::stoi(name);
    std::error_code gone;
    auto target = std::filesystem::read_symlink("/proc/self/fd/" + name, gone).string();
    const int flags = ::fcntl(number, F_GETFD);
    if (gone || flags < 0) continue;
    int domain = -1;
    socklen_t size = sizeof domain;
    if (::getsockopt(number, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) domain = -1;
    found.push_back({number, std::move(target), domain, (flags & FD_CLOEXEC) != 0});
  }
  return found;
}

std::size_t openFileDescriptorCount() {
  return entryCount("/proc/self/fd") - 1;  // without the one that reads the directory
}

std::size_t threadCount() { return entryCount("/proc/self/task"); }

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) throw std::runtime_error("cannot read " + path);
  return content;
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

bool fileExists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

std::string outputOf(const std::string& command) {
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("popen");
  std::string text;
  std::array<char, 4096> buffer;
  while (const auto count = std::fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), count);
  if (const int status = ::pclose(pipe); status != 0)
    throw std::runtime_error(command + " ended with " + std::to_string(status));
  return text;
}

std::vector<std::string> fileNames(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace tarn::test
