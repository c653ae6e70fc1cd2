#pragma once

#include <Platform/Types/Error.hpp>
#include <Platform/Types/URL.hpp>

#include <cstdint>
#include <string>

namespace tarn {

/// A file operation that the operating system refused: says what was tried, on which path, and why.
class FileError final : public CodedError {
 public:
  /// `systemError` is a value of errno.
  FileError(const std::string& attempt, const std::string& path, int systemError);

  std::string message() const override { return message_; }
  std::string domain() const override { return "NSPOSIXErrorDomain"; }
  /// The value of errno.
  std::int64_t code() const noexcept override { return systemError_; }

 private:
  std::string message_;
  int systemError_;
};

/// Makes, copies and removes files and directories.
///
/// Addresses are file URLs; every operation that fails throws FileError. Callable from any thread.
class FileManager {
 public:
  /// The process's one.
  static const FileManager& default_();

  FileManager(const FileManager&) = delete;
  FileManager& operator=(const FileManager&) = delete;

  /// What the environment's TMPDIR says now, where that is an absolute path; else "/tmp". It may
  /// not exist.
  URL temporaryDirectory() const;
  /// With `withIntermediateDirectories` makes missing parents too, and takes a directory that is
  /// there already.
  void createDirectory(const URL& at, bool withIntermediateDirectories) const;
  /// Copies a file, or a directory with all it holds; symbolic links are copied as links. Nothing
  /// may be at `to` yet, and after a failure nothing is.
  void copyItem(const URL& at, const URL& to) const;
  /// Removes a file or link, or a directory with all it holds.
  void removeItem(const URL& at) const;
  /// Whether there is something at `atPath`, behind a symbolic link too.
  bool fileExists(const std::string& atPath) const noexcept;

 private:
  FileManager() = default;
};

}  // namespace tarn
