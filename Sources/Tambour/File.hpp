#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>
#include <Tambour/FileInitializable.hpp>
#include <Tambour/FileRepresentable.hpp>

#include <utility>

namespace tarn {

/// A file as a value: nothing but its URL. It neither opens the file nor removes it, so a body that
/// is a File stays where it is until somebody deletes it. Nor does it check that the file is there.
/// Callable from any thread.
class File {
 public:
  explicit File(URL fileURL) : fileURL_(std::move(fileURL)) {}
  static File fromFile(const URL& fileURL) { return File(fileURL); }

  const URL& fileURL() const noexcept { return fileURL_; }

  /// Reads the whole file. Throws URLError: `unsupportedURL` for a URL that names no file of this
  /// machine, `fileDoesNotExist`, `fileIsDirectory`, `noPermissionsToReadFile`,
  /// `dataLengthExceedsMaximum` where it does not fit into memory, `cannotOpenFile` for everything
  /// else, such as a pipe or a device.
  Data asData() const;

  friend bool operator==(const File&, const File&) noexcept = default;

 private:
  URL fileURL_;
};

static_assert(FileRepresentable<File> && FileInitializable<File>);

}  // namespace tarn
