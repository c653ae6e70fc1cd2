#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/Types/UUID.hpp>
#include <Platform/URLLoading/Detail/DownloadFile.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unordered_set>

namespace tarn::detail {

namespace {

constexpr std::string_view namePrefix = "TarnDownload-";
constexpr std::string_view nameSuffix = ".tmp";

// For a longer write the kernel's page cache takes longer stretches of memory, which are seldom at
// hand.
constexpr std::size_t longestWrite = 64 * 1024;

std::string freshPath(const std::string& directory) {
  std::string path = directory;
  if (!path.ends_with('/')) path += '/';
  return path.append(namePrefix).append(UUID().uuidString()).append(nameSuffix);
}

std::string pathOf(const std::string& directory, const std::string& name) {
  return directory.ends_with('/') ? directory + name : directory + '/' + name;
}

[[noreturn]] void fail(std::int32_t code, const char* attempt, const std::string& path,
                       int systemError) {
  throw URLError(code,
                 std::string(attempt) + " \"" + path +
                     "\" failed: " + std::generic_category().message(systemError) + ".",
                 URL::fileURL(path).absoluteString());
}

std::optional<std::int64_t> regularFileSize(const struct stat& status) noexcept {
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) return std::nullopt;
  return status.st_size;
}

/// The files that would be left behind if the process ended now.
class UnfinishedFiles {
 public:
  static UnfinishedFiles& shared() {
    const NoForkScope scope;  // not while it is being made
    static auto& files = []() -> UnfinishedFiles& {
      auto& made = *new UnfinishedFiles;
      std::atexit([] { shared().removeAll(); });
      return made;
    }();
    return files;
  }

  /// Runs what makes the file. Not while the process ends: nobody would remove it any more.
  template <class Make>
  auto add(const std::string& path, Make make) {
    const MutexLock lock(mutex_);
    if (ended_) fail(URLError::cannotCreateFile, "Creating the file", path, ECANCELED);
    paths_->insert(path);
    return make();
  }
  bool moveOut(const std::string& path, const std::string& to) noexcept {
    const MutexLock lock(mutex_);
    if (ended_ || ::rename(path.c_str(), to.c_str()) != 0) return false;
    paths_->erase(path);
    return true;
  }
  void remove(const std::string& path) noexcept {
    const MutexLock lock(mutex_);
    paths_->erase(path);
  }

 private:
  void removeAll() noexcept {
    const MutexLock lock(mutex_);
    ended_ = true;
    for (const auto& path : *paths_) unlink(path.c_str());
  }

  Mutex mutex_;
  bool ended_ TARN_GUARDED_BY(mutex_) = false;
  PerProcess<std::unordered_set<std::string>> paths_ TARN_GUARDED_BY(mutex_);
};

}  // namespace

DownloadFile::DownloadFile(std::string path) : path_(std::move(path)) {}

DownloadFile::~DownloadFile() {
  if (!process_.isCurrent()) return;  // the file is the parent's
  if (!kept_) unlink(path_.c_str());
  UnfinishedFiles::shared().remove(path_);
}

std::unique_ptr<DownloadFile> DownloadFile::create(const std::string& directory) {
  std::unique_ptr<DownloadFile> file(new DownloadFile(freshPath(directory)));
  int error = 0;
  UnfinishedFiles::shared().add(file->path_, [&] {
    file->descriptor_ =
        Descriptor(open(file->path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    error = errno;
  });
  if (!file->descriptor_.isOpen()) {
    fail(URLError::cannotCreateFile, "Creating the file", file->path_, error);
  }
  return file;
}

std::unique_ptr<DownloadFile> DownloadFile::reopen(const std::string& directory,
                                                   const std::string& name, std::int64_t size) {
  if (!isName(name)) return nullptr;
  std::unique_ptr<DownloadFile> file(new DownloadFile(freshPath(directory)));
  file->keptPath_ = pathOf(directory, name);
  const bool taken = UnfinishedFiles::shared().add(
      file->path_, [&] { return rename(file->keptPath_.c_str(), file->path_.c_str()) == 0; });
  if (!taken) return nullptr;
  file->descriptor_ =
      Descriptor(open(file->path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file->descriptor_.isOpen() || fstat(file->descriptor_.get(), &status) != 0) return nullptr;
  if (regularFileSize(status) != size) return nullptr;
  if (lseek(file->descriptor_.get(), size, SEEK_SET) != size) return nullptr;
  file->size_ = file->keptSize_ = size;
  return file;
}

std::optional<std::int64_t> DownloadFile::keptSize(const std::string& directory,
                                                   const std::string& name) noexcept {
  struct stat status {};
  if (!isName(name) || lstat(pathOf(directory, name).c_str(), &status) != 0) return std::nullopt;
  return regularFileSize(status);
}

void DownloadFile::discard(const std::string& directory, const std::string& name) noexcept {
  if (isName(name)) unlink(pathOf(directory, name).c_str());
}

bool DownloadFile::isName(std::string_view name) noexcept {
  if (!name.starts_with(namePrefix) || !name.ends_with(nameSuffix)) return false;
  name.remove_prefix(namePrefix.size());
  if (name.size() < nameSuffix.size()) return false;
  name.remove_suffix(nameSuffix.size());
  return UUID::parse(name).has_value();
}

std::string DownloadFile::name() const { return path_.substr(path_.rfind('/') + 1); }

void DownloadFile::write(const void* bytes, std::size_t count) {
  const auto* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const auto written = ::write(descriptor_.get(), next, std::min(count, longestWrite));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) fail(URLError::cannotWriteToFile, "Writing to the file", path_, errno);
    next += written;
    count -= static_cast<std::size_t>(written);
    size_ += written;
  }
}

void DownloadFile::close() {
  struct stat status {};
  if (fstat(descriptor_.get(), &status) == 0 && status.st_nlink == 0) {
    fail(URLError::cannotWriteToFile, "Finishing the file", path_, ENOENT);
  }
  // Whatever it answers, Linux has given the descriptor up.
  if (::close(descriptor_.release()) != 0 && errno != EINTR) {
    fail(URLError::cannotCloseFile, "Closing the file", path_, errno);
  }
}

void DownloadFile::keep() {
  if (descriptor_.isOpen()) close();
  kept_ = true;
  UnfinishedFiles::shared().remove(path_);
}

void DownloadFile::putBack() noexcept {
  if (keptSize_ == 0 || !descriptor_.isOpen() || !process_.isCurrent()) return;
  if (ftruncate(descriptor_.get(), keptSize_) != 0) return;
  kept_ = UnfinishedFiles::shared().moveOut(path_, keptPath_);
}

}  // namespace tarn::detail
