#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tarn {
class URL;
class URLRequest;
}  // namespace tarn

namespace tarn::detail {

/// The bytes that go out with a request; never none.
class RequestBody {
 public:
  /// `file` in place of the request's own body where it is not null. Null where nothing is to be
  /// sent: HEAD never has a body. Throws URLError where the file can't be read.
  static std::unique_ptr<RequestBody> of(const URLRequest& request, const URL* file);

  virtual ~RequestBody() = default;
  RequestBody(const RequestBody&) = delete;
  RequestBody& operator=(const RequestBody&) = delete;

  virtual std::int64_t size() const noexcept = 0;
  /// At most `capacity` bytes from `offset` on, none only at the end. Throws URLError where they
  /// are not what they were when the body was opened.
  virtual std::size_t read(std::int64_t offset, char* buffer, std::size_t capacity) = 0;

 protected:
  RequestBody() = default;
};

}  // namespace tarn::detail
