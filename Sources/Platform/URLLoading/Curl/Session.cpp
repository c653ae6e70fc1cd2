#include <Platform/Types/FatalError.hpp>
#include <Platform/URLLoading/Curl/DataTask.hpp>
#include <Platform/URLLoading/Curl/DownloadTask.hpp>
#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Curl/Session.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>

namespace tarn::detail {

CurlSession::CurlSession(URLSessionConfiguration configuration,
                         std::shared_ptr<URLSessionDelegate> delegate,
                         std::shared_ptr<OperationQueue> delegateQueue)
    : URLSession(std::move(configuration)),
      queue_(delegateQueue ? std::move(delegateQueue)
                           : std::make_shared<OperationQueue>("URLSession delegate")),
      core_(std::make_shared<SessionCore>(Engine::shared(), this->configuration())),
      delegate_(delegate ? std::move(delegate) : std::make_shared<URLSessionDelegate>()) {}

CurlSession::~CurlSession() {
  // Without an application that could still see it, there is nobody to tell that the session became
  // invalid.
  try {
    closeCore();
  } catch (...) {
    reportUncaughtError(Error::current(), "URLSession");
  }
}

template <class Task, class... Arguments>
std::shared_ptr<Task> CurlSession::makeTask(std::optional<URLError> refusal, URLRequest request,
                                            Arguments&&... arguments) {
  const MutexLock lock(mutex_);
  if (phase_ != Phase::active) {
    refusal.emplace(URLError::cancelled, "The session is invalid.", request.url().redacted());
  }
  TaskSetup setup{++lastIdentifier_, shared_from_this(), delegate_.get(), std::move(refusal)};
  auto task = std::make_shared<Task>(std::move(setup), std::move(request),
                                     std::forward<Arguments>(arguments)...);
  if (phase_ != Phase::invalid) {
    tasks_.push_back(task.get());
    task->underWay_->place = tasks_.size() - 1;
    task->underWay_->isListed = true;
  }
  return task;
}

std::shared_ptr<URLSessionDataTask> CurlSession::dataTask(URLRequest request) {
  return makeTask<CurlDataTask>(std::nullopt, std::move(request));
}

std::shared_ptr<URLSessionUploadTask> CurlSession::uploadTask(URLRequest request, Data fromData) {
  request.setHTTPBody(std::move(fromData));
  return makeTask<CurlUploadTask>(std::nullopt, std::move(request), std::nullopt);
}

std::shared_ptr<URLSessionUploadTask> CurlSession::uploadTask(URLRequest request, URL fromFile) {
  request.setHTTPBody(std::nullopt);
  return makeTask<CurlUploadTask>(std::nullopt, std::move(request), std::move(fromFile));
}

std::shared_ptr<URLSessionDownloadTask> CurlSession::downloadTask(URLRequest request) {
  return makeTask<CurlDownloadTask>(std::nullopt, std::move(request));
}

std::shared_ptr<URLSessionDownloadTask> CurlSession::downloadTask(const Data& withResumeData) {
  if (auto earlier = ResumeData::decode(withResumeData)) {
    auto request = earlier->request;
    return makeTask<CurlDownloadTask>(std::nullopt, std::move(request), std::move(earlier));
  }
  return makeTask<CurlDownloadTask>(
      URLError(URLError::cannotOpenFile, "The resume data can't be read."),
      URLRequest(URL::empty()));
}

void CurlSession::invalidateAndCancel() {
  std::vector<std::shared_ptr<CurlTask>> tasks;
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::active) phase_ = Phase::closing;
    tasks.reserve(tasks_.size());
    for (CurlTask* const listed : tasks_) {
      if (auto task = listed->weak_from_this().lock()) tasks.push_back(std::move(task));
    }
  }
  for (const auto& task : tasks) task->cancel();
  finishTasksAndInvalidate();
}

void CurlSession::finishTasksAndInvalidate() {
  std::shared_ptr<URLSessionDelegate> delegate;
  {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::active) phase_ = Phase::closing;
    delegate = endIfIdle();
  }
  tellEnd(std::move(delegate));
}

void CurlSession::retire(CurlTask& task) noexcept {
  // One that could not be made whole is let go with the lock held.
  if (!std::exchange(task.underWay_->isListed, false)) return;
  try {
    std::shared_ptr<URLSessionDelegate> delegate;
    {
      const MutexLock lock(mutex_);
      const auto place = task.underWay_->place;
      tasks_.back()->underWay_->place = place;
      tasks_[place] = tasks_.back();
      tasks_.pop_back();
      delegate = endIfIdle();
    }
    tellEnd(std::move(delegate));
  } catch (...) {
    reportUncaughtError(Error::current(), "URLSession");
  }
}

// Whom to tell that the session is invalid, where it becomes so now.
std::shared_ptr<URLSessionDelegate> CurlSession::endIfIdle() {
  if (phase_ != Phase::closing || !tasks_.empty()) return nullptr;
  phase_ = Phase::invalid;
  return std::exchange(delegate_, nullptr);
}

void CurlSession::tellEnd(std::shared_ptr<URLSessionDelegate> delegate) {
  if (!delegate) return;
  closeCore();
  queue_->addOperation([self = shared_from_this(), delegate = std::move(delegate)] {
    delegate->didBecomeInvalid(*self, std::nullopt);
  });
}

void CurlSession::closeCore() {
  core_->engine().post([core = core_] { core->close(); });
}

}  // namespace tarn::detail
