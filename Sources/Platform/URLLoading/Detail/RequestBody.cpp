#include <Platform/Files/Detail/Descriptor.hpp>
#include <Platform/Files/Detail/LocalFile.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Detail/RequestBody.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>

namespace tarn::detail {

namespace {

class DataBody final : public RequestBody {
 public:
  explicit DataBody(Data data) noexcept : data_(std::move(data)) {}

  std::int64_t size() const noexcept override { return static_cast<std::int64_t>(data_.size()); }
  std::size_t read(std::int64_t offset, char* buffer, std::size_t capacity) override {
    const auto rest = data_.view().substr(static_cast<std::size_t>(offset), capacity);
    if (!rest.empty()) std::memcpy(buffer, rest.data(), rest.size());
    return rest.size();
  }

 private:
  const Data data_;
};

std::int32_t openCode(int systemError) noexcept {
  switch (systemError) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
      return URLError::fileDoesNotExist;
    case EACCES:
    case EPERM:
      return URLError::noPermissionsToReadFile;
    default:
      return URLError::cannotOpenFile;
  }
}

bool isSame(const struct stat& left, const struct stat& right) noexcept {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
         left.st_size == right.st_size && left.st_mtim.tv_sec == right.st_mtim.tv_sec &&
         left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

/// Every piece is looked at before it goes out: the last one of a file that is no longer the same
/// never leaves, so a server never takes a wrong body for a whole one.
class FileBody final : public RequestBody {
 public:
  explicit FileBody(const URL& url) : path_(url.path()) {
    if (!isLocalFile(url) || path_.find('\0') != std::string::npos) {
      throw URLError(URLError::fileDoesNotExist, "The body's address is not one of a file.",
                     url.redacted());
    }
    // Non-blocking: opening a FIFO would wait for somebody to write to it.
    descriptor_ = Descriptor(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!descriptor_.isOpen()) fail(openCode(errno), std::generic_category().message(errno));
    if (fstat(descriptor_.get(), &opened_) != 0) {
      fail(URLError::cannotOpenFile, std::generic_category().message(errno));
    }
    if (S_ISDIR(opened_.st_mode)) fail(URLError::fileIsDirectory, "it is a directory");
    if (!S_ISREG(opened_.st_mode)) fail(URLError::cannotOpenFile, "it is no regular file");
  }

  std::int64_t size() const noexcept override { return opened_.st_size; }

  std::size_t read(std::int64_t offset, char* buffer, std::size_t capacity) override {
    const auto left = static_cast<std::size_t>(opened_.st_size - offset);
    const std::size_t wanted = std::min(capacity, left);
    if (wanted == 0) return 0;
    const auto count = pread(descriptor_.get(), buffer, wanted, offset);
    struct stat now {};
    if (stat(path_.c_str(), &now) != 0) {
      fail(openCode(errno), std::generic_category().message(errno));
    }
    if (count <= 0 || !isSame(now, opened_)) {
      fail(URLError::requestBodyStreamExhausted, "it changed while it was sent");
    }
    return static_cast<std::size_t>(count);
  }

 private:
  [[noreturn]] void fail(std::int32_t code, const std::string& reason) const {
    throw URLError(code, "The file \"" + path_ + "\" can't be sent: " + reason + ".",
                   URL::fileURL(path_).absoluteString());
  }

  const std::string path_;
  Descriptor descriptor_;
  struct stat opened_ {};
};

}  // namespace

std::unique_ptr<RequestBody> RequestBody::of(const URLRequest& request, const URL* file) {
  if (request.httpMethod() == "HEAD") return nullptr;
  if (file != nullptr) {
    auto body = std::make_unique<FileBody>(*file);
    if (body->size() == 0) return nullptr;
    return body;
  }
  const auto& data = request.httpBody();
  return data && !data->empty() ? std::make_unique<DataBody>(*data) : nullptr;
}

}  // namespace tarn::detail
