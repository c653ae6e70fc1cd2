#pragma once

#include <Platform/URLLoading/Curl/Task.hpp>

namespace tarn::detail {

/// A task that hands the body to the delegate.
template <class Interface>
class BodyInMemory : public TaskFace<Interface> {
 public:
  using TaskFace<Interface>::TaskFace;

 protected:
  void takeBody(Data bytes) override {
    this->tell("didReceiveData", &URLSessionDelegate::didReceiveData,
               static_cast<URLSessionDataTask&>(*this), std::move(bytes));
  }
};

using CurlDataTask = BodyInMemory<URLSessionDataTask>;

class CurlUploadTask final : public BodyInMemory<URLSessionUploadTask> {
 public:
  /// The request's own body is sent unless there is a file.
  CurlUploadTask(TaskSetup setup, URLRequest request, std::optional<URL> bodyFile)
      : BodyInMemory(std::move(setup), std::move(request)), bodyFile_(std::move(bodyFile)) {}

  const URL* bodyFile() const noexcept override { return bodyFile_ ? &*bodyFile_ : nullptr; }

 private:
  const std::optional<URL> bodyFile_;
};

}  // namespace tarn::detail
