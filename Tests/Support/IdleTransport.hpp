#pragma once
#include <TarnService/Transport/HTTPTaskProducer.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tarn::test {

/// A session that loads nothing: for tests of what is worked out before anything is sent.
class IdleSession final : public URLSession {
 public:
  explicit IdleSession(URLSessionConfiguration configuration)
      : URLSession(std::move(configuration)) {}

  std::shared_ptr<URLSessionDataTask> dataTask(URLRequest) override { refuse(); }
  std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest, Data) override { refuse(); }
  std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest, URL) override { refuse(); }
  std::shared_ptr<URLSessionDownloadTask> downloadTask(URLRequest) override { refuse(); }
  std::shared_ptr<URLSessionDownloadTask> downloadTask(const Data&) override { refuse(); }
  void invalidateAndCancel() override {}
  void finishTasksAndInvalidate() override {}

 private:
  [[noreturn]] static void refuse() { throw std::logic_error("an idle session makes no tasks"); }
};

class IdleProducer final : public HTTPDataTaskProducer {
 public:
  explicit IdleProducer(URLSessionConfiguration configuration)
      : session_(std::make_shared<IdleSession>(std::move(configuration))) {}

  std::shared_ptr<URLSession> session() override { return session_; }
  void resetSession() override {}

 private:
  std::shared_ptr<URLSession> session_;
};

/// A task that does nothing but tell when it is cancelled.
class IdleTask final : public URLSessionTask {
 public:
  explicit IdleTask(std::function<void()> onCancel)
      : URLSessionTask(1), onCancel_(std::move(onCancel)) {}

  State state() const noexcept override { return State::suspended; }
  URLRequest originalRequest() const override { return URLRequest(URL::empty()); }
  URLRequest currentRequest() const override { return URLRequest(URL::empty()); }
  std::shared_ptr<const URLResponse> response() const override { return nullptr; }
  std::optional<Error> error() const override { return std::nullopt; }
  std::int64_t countOfBytesReceived() const noexcept override { return 0; }
  void resume() override {}
  void suspend() override {}
  void cancel() override { onCancel_(); }

 private:
  std::function<void()> onCancel_;
};

}  // namespace tarn::test
