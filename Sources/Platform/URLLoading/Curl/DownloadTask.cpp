#include <Platform/Files/FileManager.hpp>
#include <Platform/URLLoading/Curl/DownloadTask.hpp>
#include <Platform/URLLoading/Curl/Session.hpp>

namespace tarn::detail {

CurlDownloadTask::CurlDownloadTask(TaskSetup setup, URLRequest request,
                                   std::optional<ResumeData> earlier)
    : TaskFace(std::move(setup), std::move(request)),
      directory_(FileManager::default_().temporaryDirectory().path()),
      queue_(queue()),
      earlier_(std::move(earlier)) {}

void CurlDownloadTask::cancel(ResumeDataHandler byProducingResumeData) {
  if (byProducingResumeData) {
    const MutexLock lock(handlersMutex_);
    if (!handlersAnswered_) handlers_.push_back(std::exchange(byProducingResumeData, nullptr));
  }
  cancel();
  if (!byProducingResumeData) return;
  queue_->addOperation([handler = std::move(byProducingResumeData)] { handler(std::nullopt); });
}

// -- On the loop thread

std::optional<URLRequest> CurlDownloadTask::firstRequest() {
  if (!earlier_) return std::nullopt;
  if (DownloadFile::keptSize(directory_, earlier_->file) != earlier_->byteCount) {
    startAfresh();
    return std::nullopt;
  }
  rangeAsked_ = true;
  return earlier_->rangeRequest();
}

// An answer that is neither the rest nor the whole, an error page perhaps, leaves the kept part to
// the next attempt.
std::optional<URLRequest> CurlDownloadTask::requestInstead(const HTTPURLResponse& answer) {
  if (!rangeAsked_) return std::nullopt;
  switch (answer.statusCode()) {
    case 206:
      return continueFrom(answer);
    case 416:
      return startAfresh();
    case 200:
      startAfresh();
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

std::optional<URLRequest> CurlDownloadTask::startAfresh() {
  DownloadFile::discard(directory_, earlier_->file);
  earlier_.reset();
  rangeAsked_ = false;
  return originalRequest();
}

std::optional<URLRequest> CurlDownloadTask::continueFrom(const HTTPURLResponse& answer) {
  const auto& fields = answer.allHeaderFields();
  const auto range = ContentRange::parse(fields.value("Content-Range").value_or(""));
  const auto length = answer.expectedContentLength();
  const auto offset = earlier_->byteCount;
  if (!range || range->first != offset || fields.contains("Content-Encoding") ||
      (length >= 0 && length != range->last + 1 - offset)) {
    throw URLError(URLError::cannotParseResponse, "The server sent another range than asked for.",
                   answer.url().redacted());
  }
  // A server may send less than was asked for (RFC 9110, 15.3.7): the file would end too early.
  if (range->total >= 0 && range->last + 1 != range->total) return startAfresh();
  const bool byTag = earlier_->validator.starts_with('"');
  const auto validator = fields.value(byTag ? "ETag" : "Last-Modified");
  if (validator && *validator != earlier_->validator) return startAfresh();
  file_ = DownloadFile::reopen(directory_, earlier_->file, offset);
  if (!file_) return startAfresh();
  earlier_.reset();
  rangeAsked_ = false;
  continuedAt_ = offset;
  expectedSize_ = range->last + 1;
  return std::nullopt;
}

// -- On the queue

/// False where the delegate has forked in between and this is the child: the file is the parent's.
bool CurlDownloadTask::openFile() {
  if (std::exchange(opened_, true)) return true;
  if (file_) {
    const ProcessMark process;
    tell("didResume", &URLSessionDelegate::didResume, static_cast<URLSessionDownloadTask&>(*this),
         continuedAt_, expectedSize_);
    return process.isCurrent();
  }
  file_ = DownloadFile::create(directory_);
  if (const auto answer = response()) expectedSize_ = answer->expectedContentLength();
  return true;
}

void CurlDownloadTask::takeBody(Data bytes) {
  if (!openFile()) return;
  file_->write(bytes.bytes(), bytes.size());
  tell("didWriteData", &URLSessionDelegate::didWriteData,
       static_cast<URLSessionDownloadTask&>(*this), static_cast<std::int64_t>(bytes.size()),
       file_->size(), expectedSize_);
}

// So that the resume data stays true: with it the next attempt goes on where this one did.
void CurlDownloadTask::putBackKeptPart() noexcept {
  const auto failure = error();
  if (!failure || !file_ || continuedAt_ == 0) return;
  switch (failure->code()) {
    case URLError::cancelled:
    case URLError::cannotCreateFile:
    case URLError::cannotWriteToFile:
    case URLError::cannotCloseFile:
      return;
    default:
      file_->putBack();
  }
}

void CurlDownloadTask::completeBody() {
  if (!openFile()) return;  // an empty body has a file too
  if (continuedAt_ > 0 && file_->size() != expectedSize_) {
    throw URLError(URLError::networkConnectionLost, "The body ended too early.",
                   currentRequest().url().redacted());
  }
  file_->close();
}

void CurlDownloadTask::settled() noexcept {
  const ProcessMark process;
  if (!error()) {
    guarded("URL loading", [&] {
      tell("didFinishDownloading", &URLSessionDelegate::didFinishDownloading,
           static_cast<URLSessionDownloadTask&>(*this), URL::fileURL(file_->path()));
    });
  }
  if (!process.isCurrent()) return;
  answerHandlers();
  putBackKeptPart();
  file_.reset();
}

void CurlDownloadTask::answerHandlers() noexcept {
  std::vector<ResumeDataHandler> handlers;
  {
    const MutexLock lock(handlersMutex_);
    handlersAnswered_ = true;
    handlers.swap(handlers_);
  }
  if (handlers.empty()) return;
  std::optional<Data> data;
  guarded("URL loading", [&] {
    try {
      if (const auto resume = resumeData()) data = resume->encoded();
    } catch (const URLError&) {
      // There is nothing to go on with where the file can't be kept.
    }
  });
  for (const auto& handler : handlers) {
    guarded("byProducingResumeData", [&] { handler(data); });
  }
}

std::optional<ResumeData> CurlDownloadTask::resumeData() {
  const auto failure = error();
  if (!failure || failure->code() != URLError::cancelled) return std::nullopt;
  if (earlier_) return earlier_;
  const auto answer = CurlTask::response();
  if (!answer || !file_ || file_->size() == 0) return std::nullopt;
  if (answer->statusCode() != (continuedAt_ > 0 ? 206 : 200)) return std::nullopt;
  auto validator = resumeValidator(originalRequest(), *answer);
  if (!validator) return std::nullopt;
  file_->keep();
  return ResumeData{originalRequest(), std::move(*validator), file_->size(), file_->name()};
}

}  // namespace tarn::detail
