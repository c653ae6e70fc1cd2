#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarn::test {

/// A fresh directory that is removed, with all that it holds, at the end of the scope.
class TemporaryDirectory {
 public:
  /// Throws std::runtime_error when it cannot be made.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  /// `path()/name`
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Sets or removes an environment variable and puts the former value back at the end of the scope.
/// Not while another thread reads the environment.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const std::string& value);
  /// Removes the variable.
  ScopedEnvironment(std::string name, std::nullopt_t none);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> former_;
};

/// An open file descriptor of this process.
struct Descriptor {
  int number;
  std::string target;  // what /proc calls it: "socket:[4711]", or a path
  int socketDomain;    // AF_UNIX and so on; -1 for what is no socket
  bool closesOnExec;
};
/// Without the one that reads the directory.
std::vector<Descriptor> openDescriptors();
/// Of this process; what the count itself opens is not counted.
std::size_t openFileDescriptorCount();
/// Of this process.
std::size_t threadCount();

/// Throws std::runtime_error when the file cannot be read or written.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
bool fileExists(const std::string& path);
/// What a directory holds, by name, in order.
std::vector<std::string> fileNames(const std::string& directory);

/// What the shell command prints. Throws std::runtime_error unless it ends with 0.
std::string outputOf(const std::string& command);

}  // namespace tarn::test
