#pragma once
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::test {

/// SHA-256, in pieces.
class Hash {
 public:
  Hash() : context_(EVP_MD_CTX_new()) { EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr); }

  void add(std::string_view bytes) { EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()); }
  std::string value() {
    std::string digest(32, '\0');
    EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr);
    return digest;
  }

  static std::string of(std::string_view bytes) {
    Hash hash;
    hash.add(bytes);
    return hash.value();
  }
  static std::string ofRepeated(std::string_view bytes, std::size_t times) {
    Hash hash;
    for (std::size_t i = 0; i < times; ++i) hash.add(bytes);
    return hash.value();
  }
  /// Without holding the file in memory.
  static std::string ofFile(const std::string& path) {
    Hash hash;
    std::ifstream file(path, std::ios::binary);
    std::string piece(1 << 16, '\0');
    while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())), file.gcount() > 0) {
      hash.add({piece.data(), static_cast<std::size_t>(file.gcount())});
    }
    return hash.value();
  }

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_;
};

/// The most memory that was resident since `mark()`.
class MemoryPeak {
 public:
  static void mark() {
    std::ofstream("/proc/self/clear_refs") << "5";
    resident() = kilobytes("VmRSS:");
  }
  /// In bytes, beyond what there was at `mark()`.
  static std::size_t growth() {
    const auto peak = kilobytes("VmHWM:");
    return peak > resident() ? (peak - resident()) * 1024 : 0;
  }
  /// What a build may need more than the plain one: sanitizers keep freed memory for a while.
  static constexpr std::size_t factor() {
#if defined(TARN_ADDRESS_SANITIZER) || defined(TARN_THREAD_SANITIZER)
    return 24;
#else
    return 1;
#endif
  }

 private:
  static std::size_t& resident() {
    static std::size_t before = 0;
    return before;
  }
  static std::size_t kilobytes(std::string_view name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
      std::size_t value = 0;
      if (word == name && status >> value) return value;
    }
    ADD_FAILURE() << "no " << name;
    return 0;
  }
};

/// A temporary directory of its own for the files of a test, none of which may be open at its end.
class TransferFiles : public testing::Test {
 protected:
  ~TransferFiles() override { EXPECT_EQ(openFiles(), 0u); }

  const std::string& directory() const { return directory_.path(); }

  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(directory(), ignored)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  /// Descriptors of files in the directory, removed ones too.
  std::size_t openFiles() const {
    std::size_t count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      const auto target = std::filesystem::read_symlink(entry.path(), ignored).string();
      if (target.starts_with(directory() + "/")) ++count;
    }
    return count;
  }

  /// Starts a download; its content is noted as its record's body, unless the test looks itself.
  static std::shared_ptr<URLSessionDownloadTask> download(RecordedSession& session,
                                                          const URLRequest& request) {
    return session.start(session->downloadTask(request));
  }
  static std::shared_ptr<URLSessionDownloadTask> download(RecordedSession& session,
                                                          const std::string& url) {
    return download(session, RecordedSession::request(url));
  }

 private:
  const TemporaryDirectory directory_;
  const ScopedEnvironment variable_{"TMPDIR", directory_.path()};
};

/// Downloads that leave nothing behind.
class DownloadFiles : public TransferFiles {
 protected:
  ~DownloadFiles() override { EXPECT_EQ(entries(), std::vector<std::string>()); }
};

}  // namespace tarn::test
