#pragma once

#include <Platform/URLLoading/URLRequest.hpp>

#include <memory>
#include <utility>

namespace tarn::detail {

/// Stands for the header fields of a request for as long as any request has them.
class SharedHeaderFields {
 public:
  SharedHeaderFields() = default;
  explicit SharedHeaderFields(const URLRequest& request) noexcept
      : fields_(request.headerFields_) {}

  /// The fields themselves; null for none.
  static const std::shared_ptr<const URLRequest::HeaderFields>& of(
      const URLRequest& request) noexcept {
    return request.headerFields_;
  }

  /// False, and no change, where no request has the fields any more.
  bool shareWith(URLRequest& request) const noexcept {
    auto fields = fields_.lock();
    if (!fields) return false;
    request.headerFields_ = std::move(fields);
    return true;
  }

 private:
  std::weak_ptr<const URLRequest::HeaderFields> fields_;
};

}  // namespace tarn::detail
