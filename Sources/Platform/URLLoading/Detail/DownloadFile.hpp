#pragma once

#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/Detail/Descriptor.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn::detail {

/// The file that a download is written to, with a name of its own that nobody else uses.
///
/// Removed with this object unless it is kept, and when the process ends by exit(); not by a child
/// of fork(). One thread at a time. What fails throws URLError.
class DownloadFile {
 public:
  /// In `directory`, for its owner alone.
  static std::unique_ptr<DownloadFile> create(const std::string& directory);
  /// Takes over a file that was kept, under a new name, so that only one can. Null where there is
  /// none of this size; one of another size is removed.
  static std::unique_ptr<DownloadFile> reopen(const std::string& directory, const std::string& name,
                                              std::int64_t size);
  /// The size of a file that was kept; nothing where there is none.
  static std::optional<std::int64_t> keptSize(const std::string& directory,
                                              const std::string& name) noexcept;
  /// Removes a file that was kept.
  static void discard(const std::string& directory, const std::string& name) noexcept;
  /// Whether it is a name that these files have: no other is ever opened or removed.
  static bool isName(std::string_view name) noexcept;

  ~DownloadFile();
  DownloadFile(const DownloadFile&) = delete;
  DownloadFile& operator=(const DownloadFile&) = delete;

  const std::string& path() const noexcept { return path_; }
  std::string name() const;
  std::int64_t size() const noexcept { return size_; }

  void write(const void* bytes, std::size_t count);
  /// Fails too where somebody has removed the file.
  void close();
  /// Closes the file and leaves it where it is.
  void keep();
  /// Leaves a file that was reopened as it was then, under its former name; to be destroyed next.
  void putBack() noexcept;

 private:
  explicit DownloadFile(std::string path);

  const std::string path_;
  const ProcessMark process_;
  Descriptor descriptor_;
  std::int64_t size_ = 0;
  bool kept_ = false;
  std::string keptPath_;  // with what follows, of a file that was reopened
  std::int64_t keptSize_ = 0;
};

}  // namespace tarn::detail
