#pragma once

#include <Platform/Types/URL.hpp>

#include <atomic>
#include <optional>
#include <vector>

namespace tarn {

/// How much is logged of each finished request, at debug level: nothing, what it was and how it
/// ended, or its body and headers too.
enum class HTTPVerbosityLevel { none, brief, verbose };

/// The settings of the process, read whenever they matter.
class TarnService {
 public:
  TarnService() = delete;

  static inline std::atomic<HTTPVerbosityLevel> verbosity = HTTPVerbosityLevel::none;
  /// Whether each logged request comes with a `curl` command that repeats it.
  static inline std::atomic<bool> shouldLogCurls = false;
  /// Whether mockable requests are answered with their canned responses instead of being sent.
  static inline std::atomic<bool> isMocked = false;
  /// Files of one certificate each, in DER form, that are trusted beside the system's anchors: the
  /// last that can be used counts, those before it do not. Set it before the first request: it is
  /// read without a lock.
  static inline std::optional<std::vector<URL>> debugCertificateURLs;
};

}  // namespace tarn
