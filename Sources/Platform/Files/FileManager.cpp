#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/Detail/Descriptor.hpp>
#include <Platform/Files/Detail/LocalFile.hpp>
#include <Platform/Files/FileManager.hpp>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn {

namespace {

namespace fs = std::filesystem;

std::string pathOf(const char* attempt, const URL& url) {
  if (!detail::isLocalFile(url)) throw FileError(attempt, url.redacted(), EINVAL);
  auto path = url.path();
  // The system would take the part before a NUL for the whole.
  if (path.find('\0') != std::string::npos) throw FileError(attempt, url.redacted(), EINVAL);
  return path;
}

[[noreturn]] void fail(const char* attempt, const std::string& path, int systemError) {
  throw FileError(attempt, path, systemError);
}

void check(const std::error_code& error, const char* attempt, const std::string& path) {
  if (error) fail(attempt, path, error.value());
}

template <class Call>
ssize_t untilUninterrupted(Call call) {
  ssize_t result = 0;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

void copyBytes(const detail::Descriptor& from, const std::string& fromPath,
               const detail::Descriptor& to, const std::string& toPath) {
  constexpr std::size_t atOnce = 1 << 30;
  while (copy_file_range(from.get(), nullptr, to.get(), nullptr, atOnce, 0) > 0) continue;
  // What the kernel can't copy by itself, or why it could not.
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    const auto count =
        untilUninterrupted([&] { return read(from.get(), buffer.data(), buffer.size()); });
    if (count < 0) fail("Reading", fromPath, errno);
    if (count == 0) return;
    for (ssize_t done = 0; done < count;) {
      const auto written = untilUninterrupted([&] {
        return write(to.get(), buffer.data() + done, static_cast<std::size_t>(count - done));
      });
      if (written < 0) fail("Writing", toPath, errno);
      done += written;
    }
  }
}

// The standard library's own copy answers any failure to write with EIO.
void copyFile(const std::string& from, const std::string& to, mode_t mode) {
  const detail::Descriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (!source.isOpen()) fail("Opening", from, errno);
  detail::Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!target.isOpen()) fail("Creating", to, errno);
  copyBytes(source, from, target, to);
  if (fchmod(target.get(), mode & 07777) != 0) fail("Setting the mode of", to, errno);
  if (close(target.release()) != 0 && errno != EINTR) fail("Closing", to, errno);
}

void copyEntry(const std::string& from, const std::string& to) {
  constexpr auto attempt = "Copying";
  struct stat status {};
  std::error_code error;
  if (lstat(from.c_str(), &status) != 0) fail(attempt, from, errno);
  if (S_ISLNK(status.st_mode)) {
    fs::copy_symlink(from, to, error);
    check(error, attempt, from);
  } else if (S_ISDIR(status.st_mode)) {
    if (mkdir(to.c_str(), 0700) != 0) fail("Making the directory", to, errno);
    fs::directory_iterator entry(from, error);
    for (const auto end = fs::directory_iterator(); !error && entry != end;
         entry.increment(error)) {
      copyEntry(entry->path(), to + "/" + entry->path().filename().string());
    }
    check(error, attempt, from);
    if (chmod(to.c_str(), status.st_mode & 07777) != 0) fail("Setting the mode of", to, errno);
  } else if (S_ISREG(status.st_mode)) {
    copyFile(from, to, status.st_mode);
  } else {
    fail(attempt, from, EINVAL);
  }
}

}  // namespace

FileError::FileError(const std::string& attempt, const std::string& path, int systemError)
    : message_(attempt + " \"" + path +
               "\" failed: " + std::generic_category().message(systemError) + "."),
      systemError_(systemError) {}

const FileManager& FileManager::default_() {
  const detail::NoForkScope scope;  // not while it is being made
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
    fail("Copying to", target, error ? error.value() : EEXIST);
  }
  // A directory within itself would have no end.
  const auto root = fs::weakly_canonical(from, error).string() + "/";
  if (fs::weakly_canonical(target, error).string().starts_with(root)) {
    fail("Copying to", target, EINVAL);
  }
  try {
    copyEntry(from, target);
  } catch (...) {
    fs::remove_all(target, error);
    throw;
  }
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
