#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/URLSession.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tarn::detail {

class CurlTask;
class SessionCore;

/// A session as any thread sees it; what drives its transfers is its SessionCore.
class CurlSession final : public URLSession, public std::enable_shared_from_this<CurlSession> {
 public:
  CurlSession(URLSessionConfiguration configuration, std::shared_ptr<URLSessionDelegate> delegate,
              std::shared_ptr<OperationQueue> delegateQueue);
  ~CurlSession() override;

  std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request) override TARN_EXCLUDES(mutex_);
  std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest request, Data fromData) override
      TARN_EXCLUDES(mutex_);
  std::shared_ptr<URLSessionUploadTask> uploadTask(URLRequest request, URL fromFile) override
      TARN_EXCLUDES(mutex_);
  std::shared_ptr<URLSessionDownloadTask> downloadTask(URLRequest request) override
      TARN_EXCLUDES(mutex_);
  std::shared_ptr<URLSessionDownloadTask> downloadTask(const Data& withResumeData) override
      TARN_EXCLUDES(mutex_);
  void invalidateAndCancel() override TARN_EXCLUDES(mutex_);
  void finishTasksAndInvalidate() override TARN_EXCLUDES(mutex_);

  const std::shared_ptr<SessionCore>& core() const noexcept { return core_; }
  const std::shared_ptr<OperationQueue>& queue() const noexcept { return queue_; }
  /// A task has told its last event, or is gone without ever having been started.
  void retire(CurlTask& task) noexcept TARN_EXCLUDES(mutex_);

 private:
  /// Closing: no new tasks, those that are there come to their end.
  enum class Phase { active, closing, invalid };

  template <class Task, class... Arguments>
  std::shared_ptr<Task> makeTask(std::optional<URLError> refusal, URLRequest request,
                                 Arguments&&... arguments) TARN_EXCLUDES(mutex_);
  std::shared_ptr<URLSessionDelegate> endIfIdle() TARN_REQUIRES(mutex_);
  void tellEnd(std::shared_ptr<URLSessionDelegate> delegate) TARN_EXCLUDES(mutex_);
  void closeCore();

  const std::shared_ptr<OperationQueue> queue_;
  const std::shared_ptr<SessionCore> core_;

  Mutex mutex_;
  Phase phase_ TARN_GUARDED_BY(mutex_) = Phase::active;
  std::shared_ptr<URLSessionDelegate> delegate_ TARN_GUARDED_BY(mutex_);
  std::int64_t lastIdentifier_ TARN_GUARDED_BY(mutex_) = 0;
  // Each knows its place. One that is about to go takes itself out first.
  std::vector<CurlTask*> tasks_ TARN_GUARDED_BY(mutex_);
};

}  // namespace tarn::detail
