#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Detail/DownloadFile.hpp>
#include <Platform/URLLoading/Detail/ResumeData.hpp>

#include <string>
#include <vector>

namespace tarn::detail {

/// A task that writes the body to a file.
class CurlDownloadTask final : public TaskFace<URLSessionDownloadTask> {
 public:
  /// Goes on from `earlier` where that is given.
  CurlDownloadTask(TaskSetup setup, URLRequest request,
                   std::optional<ResumeData> earlier = std::nullopt);

  using TaskFace::cancel;
  void cancel(ResumeDataHandler byProducingResumeData) override TARN_EXCLUDES(handlersMutex_);

  bool isDownload() const noexcept override { return true; }
  std::optional<URLRequest> requestInstead(const HTTPURLResponse& answer) override;

 private:
  std::optional<URLRequest> firstRequest() override;
  void takeBody(Data bytes) override;
  void completeBody() override;
  void settled() noexcept override TARN_EXCLUDES(handlersMutex_);

  std::optional<URLRequest> continueFrom(const HTTPURLResponse& answer);
  std::optional<URLRequest> startAfresh();
  bool openFile();
  void putBackKeptPart() noexcept;
  std::optional<ResumeData> resumeData();
  void answerHandlers() noexcept TARN_EXCLUDES(handlersMutex_);

  const std::string directory_;
  const std::shared_ptr<OperationQueue> queue_;

  // Used on the loop thread until the first byte of the body, then by the events; what carries
  // those from the one to the other orders it.
  std::optional<ResumeData> earlier_;  // until an answer continues or replaces what it stands for
  bool rangeAsked_ = false;
  std::int64_t continuedAt_ = 0;
  std::int64_t expectedSize_ = -1;
  std::unique_ptr<DownloadFile> file_;

  // By the events only.
  bool opened_ = false;

  Mutex handlersMutex_;
  std::vector<ResumeDataHandler> handlers_ TARN_GUARDED_BY(handlersMutex_);
  bool handlersAnswered_ TARN_GUARDED_BY(handlersMutex_) = false;
};

}  // namespace tarn::detail
