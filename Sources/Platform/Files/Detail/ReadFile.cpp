#include <Platform/Files/Detail/ReadFile.hpp>
#include <Platform/Types/URL.hpp>
#include <Platform/Types/URLError.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tarn::detail {
namespace {

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  ~FileDescriptor() {
    if (number_ >= 0) ::close(number_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int number() const noexcept { return number_; }

 private:
  int number_;
};

[[noreturn]] void fail(std::int32_t code, const std::string& path, const std::string& reason) {
  std::string failingURL;
  if (!path.empty() && path.find('\0') == std::string::npos) {
    failingURL = URL::fileURL(path).absoluteString();
  }
  throw URLError(code, "The file \"" + path + "\" " + reason, std::move(failingURL));
}

[[noreturn]] void failWith(int error, const std::string& path) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      fail(URLError::fileDoesNotExist, path, "does not exist.");
    case EISDIR:
      fail(URLError::fileIsDirectory, path, "is a directory.");
    case EACCES:
    case EPERM:
      fail(URLError::noPermissionsToReadFile, path, "may not be read.");
    default:
      fail(URLError::cannotOpenFile, path,
           "cannot be read: " + std::system_category().message(error) + ".");
  }
}

// Reads to the end wherever that turns out to be: a file may grow or shrink meanwhile, and those of
// the kernel say that they are empty. `expected` and one more byte see the end without growing.
std::vector<std::uint8_t> readToEnd(int file, std::size_t expected, const std::string& path) {
  constexpr std::size_t smallest = 4096;
  constexpr std::size_t largestRead = std::size_t{1} << 30;
  std::vector<std::uint8_t> bytes(std::max(expected + 1, smallest));
  std::size_t count = 0;
  for (;;) {
    if (count == bytes.size()) bytes.resize(2 * bytes.size());
    const auto got =
        ::read(file, bytes.data() + count, std::min(bytes.size() - count, largestRead));
    if (got == 0) break;
    if (got > 0) {
      count += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      failWith(errno, path);
    }
  }
  bytes.resize(count);
  return bytes;
}

}  // namespace

Data readFile(const std::string& path) {
  // The name would end at a zero byte, and another file be read.
  if (path.find('\0') != std::string::npos) failWith(ENOENT, path);
  // Not blocking: opening a pipe that nobody writes to would wait for ever.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (file.number() < 0 || ::fstat(file.number(), &status) != 0) failWith(errno, path);
  if (S_ISDIR(status.st_mode)) failWith(EISDIR, path);
  if (!S_ISREG(status.st_mode)) fail(URLError::cannotOpenFile, path, "is no regular file.");
  try {
    return Data(readToEnd(file.number(), static_cast<std::size_t>(status.st_size), path));
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  fail(URLError::dataLengthExceedsMaximum, path, "does not fit into memory.");
}

}  // namespace tarn::detail
