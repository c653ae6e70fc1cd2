#include <Platform/URLLoading/URLSessionDelegate.hpp>

namespace tarn {

void URLSessionDelegate::didBecomeInvalid(URLSession&, const std::optional<Error>&) {}

void URLSessionDelegate::didReceiveChallenge(URLSession&, const URLAuthenticationChallenge&,
                                             URLChallengeHandler completionHandler) {
  completionHandler(URLSessionAuthChallengeDisposition::performDefaultHandling, std::nullopt);
}

void URLSessionDelegate::didReceiveTaskChallenge(URLSession&, URLSessionTask&,
                                                 const URLAuthenticationChallenge&,
                                                 URLChallengeHandler completionHandler) {
  completionHandler(URLSessionAuthChallengeDisposition::performDefaultHandling, std::nullopt);
}

void URLSessionDelegate::taskIsWaitingForConnectivity(URLSession&, URLSessionTask&) {}

void URLSessionDelegate::willPerformHTTPRedirection(
    URLSession&, URLSessionTask&, const std::shared_ptr<const HTTPURLResponse>&,
    URLRequest newRequest, std::function<void(std::optional<URLRequest>)> completionHandler) {
  completionHandler(std::move(newRequest));
}

void URLSessionDelegate::didReceiveData(URLSession&, URLSessionDataTask&, Data) {}

void URLSessionDelegate::didFinishDownloading(URLSession&, URLSessionDownloadTask&, const URL&) {}

void URLSessionDelegate::didWriteData(URLSession&, URLSessionDownloadTask&, std::int64_t,
                                      std::int64_t, std::int64_t) {}

void URLSessionDelegate::didResume(URLSession&, URLSessionDownloadTask&, std::int64_t,
                                   std::int64_t) {}

void URLSessionDelegate::didComplete(URLSession&, URLSessionTask&, const std::optional<Error>&) {}

}  // namespace tarn
