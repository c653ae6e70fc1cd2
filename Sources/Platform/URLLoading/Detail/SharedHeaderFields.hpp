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

  /// Whether the request has these very fields, not just equal ones.
  bool areThoseOf(const URLRequest& request) const noexcept {
    const auto& fields = request.headerFields_;
    return fields && !fields.owner_before(fields_) && !fields_.owner_before(fields);
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
