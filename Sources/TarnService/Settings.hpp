#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/Types/URL.hpp>

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarn {

/// How much is logged of each finished request, at debug level: nothing, what it was and how it
/// ended, or its body and headers too.
enum class HTTPVerbosityLevel { none, brief, verbose };

/// A body that the log stands for by a key: its text where it is valid UTF-8, else its bytes.
using HTTPDebugData = std::variant<std::string, Data>;

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

  /// A body too long for the log, by the key that stands there in its place. Absent where the key
  /// is not known, or the body has made room for later ones: the last 64 MiB are kept, and no body
  /// of more than that. Callable from any thread.
  ///
  /// In a debugger, the call is made as the log shows it: TarnService.httpDebugData("KEY").
  static std::optional<HTTPDebugData> httpDebugData(std::string_view key);
};

namespace detail {

/// Keeps a body for httpDebugData() and answers its new key.
std::string keepHTTPDebugData(Data body);

}  // namespace detail

}  // namespace tarn
