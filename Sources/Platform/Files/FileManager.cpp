#include <Platform/Files/FileManager.hpp>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace tarn {

namespace {

namespace fs = std::filesystem;

std::string pathOf(const char* attempt, const URL& url) {
  if (!url.isFileURL()) throw FileError(attempt, url.redacted(), EINVAL);
  auto path = url.path();
  // The system would take the part before a NUL for the whole.
  if (path.find('\0') != std::string::npos) throw FileError(attempt, url.redacted(), EINVAL);
  return path;
}

void check(const std::error_code& error, const char* attempt, const std::string& path) {
  if (error) throw FileError(attempt, path, error.value());
}

}  // namespace

FileError::FileError(const std::string& attempt, const std::string& path, int systemError)
    : message_(attempt + " \"" + path +
               "\" failed: " + std::generic_category().message(systemError) + "."),
      systemError_(systemError) {}

const FileManager& FileManager::default_() {
  static const auto& manager = *new FileManager;
  return manager;
}

URL FileManager::temporaryDirectory() const {
  const char* configured = std::getenv("TMPDIR");
  const std::string_view path = configured != nullptr ? configured : "";
  return URL::fileURL(path.starts_with('/') ? path : "/tmp");
}

void FileManager::createDirectory(const URL& at, bool withIntermediateDirectories) const {
  constexpr auto attempt = "Making the directory";
  const auto path = pathOf(attempt, at);
  std::error_code error;
  if (withIntermediateDirectories) {
    fs::create_directories(path, error);
    // Answers for a file of that name as for a directory that was there.
    if (!error && !fs::is_directory(path, error) && !error)
      error.assign(ENOTDIR, std::generic_category());
  } else if (mkdir(path.c_str(), 0777) != 0) {
    error.assign(errno, std::generic_category());
  }
  check(error, attempt, path);
}

void FileManager::copyItem(const URL& at, const URL& to) const {
  const auto from = pathOf("Copying", at);
  const auto target = pathOf("Copying to", to);
  std::error_code error;
  if (fs::symlink_status(target, error).type() != fs::file_type::not_found) {
    throw FileError("Copying to", target, error ? error.value() : EEXIST);
  }
  fs::copy(from, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
  if (!error) return;
  std::error_code ignored;
  fs::remove_all(target, ignored);
  throw FileError("Copying", from + "\" to \"" + target, error.value());
}

void FileManager::removeItem(const URL& at) const {
  constexpr auto attempt = "Removing";
  const auto path = pathOf(attempt, at);
  std::error_code error;
  const bool nothing = fs::remove_all(path, error) == 0;
  if (nothing && !error) error.assign(ENOENT, std::generic_category());
  check(error, attempt, path);
}

bool FileManager::fileExists(const std::string& atPath) const noexcept {
  struct stat status {};
  return stat(atPath.c_str(), &status) == 0;
}

}  // namespace tarn
