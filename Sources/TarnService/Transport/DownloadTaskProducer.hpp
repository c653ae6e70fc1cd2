#pragma once

#include <TarnService/Transport/SessionTaskProducer.hpp>

namespace tarn {

/// Makes the tasks of downloads, whose body goes to a file.
///
/// A task's record is handed a copy that stays, in a directory of its own below the temporary
/// directory. Where no copy can be made it is handed the session's own file, which is there only
/// until the record's completion returns; a failed copy is logged as an error.
class DownloadTaskProducer final
    : public SessionTaskProducer<DownloadTaskProducer, HTTPDownloadTaskProducer> {
 public:
  static constexpr std::string_view queueName = "tarnservice.downloadtaskproducer";
  static constexpr std::string_view invalidationMessage =
      "TarnService download session became invalid with error: ";

  void didFinishDownloading(URLSession& session, URLSessionDownloadTask& task,
                            const URL& location) override;
  void didWriteData(URLSession& session, URLSessionDownloadTask& task, std::int64_t bytesWritten,
                    std::int64_t totalBytesWritten,
                    std::int64_t totalBytesExpectedToWrite) override;
  void didComplete(URLSession& session, URLSessionTask& task,
                   const std::optional<Error>& error) override;
  void didResume(URLSession& session, URLSessionDownloadTask& task, std::int64_t fileOffset,
                 std::int64_t expectedTotalBytes) override;

 private:
  friend class SessionTaskProducer;
  using SessionTaskProducer::SessionTaskProducer;
};

}  // namespace tarn
