#pragma once

#include <Platform/URLLoading/Curl/HostQueues.hpp>
#include <Platform/URLLoading/Curl/RequestOptions.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <curl/curl.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace tarn::detail {

/// An easy handle with what its options refer to, which it keeps from one transfer to the next.
class TransferHandle {
 public:
  /// What the options depend on that are set once. The session is the other thing, and its handles
  /// are never used for another.
  struct Use {
    std::shared_ptr<const HostQueue> queue;  // stands for the origin
    std::string method;
    bool sendsBody;
    // How much is read at once, in bytes. libcurl refuses another size as long as a handle has its
    // buffer, which it may keep after a transfer that shared its connection.
    long readBuffer;

    friend bool operator==(const Use&, const Use&) = default;
  };

  /// Throws std::bad_alloc.
  explicit TransferHandle(Use use);

  CURL* easy() const noexcept { return easy_.get(); }
  const Use& use() const noexcept { return use_; }
  /// No transfer has had it.
  bool isFresh() const noexcept { return isFresh_; }
  /// libcurl's words on what went wrong last.
  const char* errorText() const noexcept { return errorText_.data(); }

  /// The one that has it: what libcurl tells its callbacks of is the handle.
  Transfer* transfer() const noexcept { return transfer_; }
  void setTransfer(Transfer* transfer) noexcept { transfer_ = transfer; }

  /// Each of these throws std::bad_alloc.
  void setAddress(const std::string& address);
  void setFields(const URLRequest& request, const std::string& authorization);
  /// After setFields(): of this transfer only.
  void addField(const std::string& line);
  /// Something of the fields stays in libcurl: the host of a Host field, for the session's cookies,
  /// and a cookie.
  bool keepsFields() const noexcept { return keepsFields_; }

 private:
  friend class HandlePool;

  Use use_;
  Transfer* transfer_ = nullptr;
  bool isFresh_ = true;
  std::string address_;
  std::unique_ptr<CURLU, CurlDeleter> url_;
  std::shared_ptr<const URLRequest::HeaderFields> fields_;  // shared with the last request
  std::string authorization_;
  HeaderLines lines_;
  bool hasLines_ = false;  // of those fields and nothing else
  bool keepsFields_ = false;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  EasyHandle easy_;  // the first to go
};

/// The easy handles of one session that wait for another transfer of the same use.
///
/// A fresh handle and its options cost as much as a quarter of a small exchange. libcurl keeps more
/// in a handle than its options, so only those may come back whose transfers left nothing there;
/// the transfer knows.
class HandlePool {
 public:
  /// One that has waited, or else a fresh one. Throws std::bad_alloc.
  std::unique_ptr<TransferHandle> take(TransferHandle::Use use);
  void give(std::unique_ptr<TransferHandle> handle) noexcept;
  void clear() noexcept { waiting_.clear(); }

 private:
  std::vector<std::unique_ptr<TransferHandle>> waiting_;
};

}  // namespace tarn::detail
