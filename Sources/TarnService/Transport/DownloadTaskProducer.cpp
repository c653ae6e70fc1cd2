#include <TarnService/Transport/DownloadTaskProducer.hpp>

namespace tarn {

void DownloadTaskProducer::didFinishDownloading(URLSession&, URLSessionDownloadTask& task,
                                                const URL& location) {
  reportSuccess(task, location);
}

void DownloadTaskProducer::didWriteData(URLSession&, URLSessionDownloadTask& task, std::int64_t,
                                        std::int64_t totalBytesWritten,
                                        std::int64_t totalBytesExpectedToWrite) {
  reportProgress(task, totalBytesWritten, totalBytesExpectedToWrite);
}

void DownloadTaskProducer::didComplete(URLSession&, URLSessionTask& task,
                                       const std::optional<Error>& error) {
  if (error) reportCompletion(task, error);  // success came with the file
}

void DownloadTaskProducer::didResume(URLSession&, URLSessionDownloadTask& task,
                                     std::int64_t fileOffset, std::int64_t expectedTotalBytes) {
  reportProgress(task, fileOffset, expectedTotalBytes);
}

}  // namespace tarn
