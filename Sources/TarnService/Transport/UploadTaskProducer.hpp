#pragma once

#include <TarnService/Transport/SessionTaskProducer.hpp>

namespace tarn {

/// Makes the tasks of uploads, from bytes or from a file.
///
/// How much of a body has been sent is not reported: the progress callback of an upload is never
/// called.
class UploadTaskProducer final
    : public SessionTaskProducer<UploadTaskProducer, HTTPUploadTaskProducer> {
 public:
  static constexpr std::string_view queueName = "tarnservice.uploadtaskproducer";
  // The same text as that of plain requests; kept, log filters look for it.
  static constexpr std::string_view invalidationMessage =
      "TarnService session became invalid with error: ";

  void didReceiveData(URLSession& session, URLSessionDataTask& task, Data data) override;
  void didComplete(URLSession& session, URLSessionTask& task,
                   const std::optional<Error>& error) override;

 private:
  friend class SessionTaskProducer;
  using SessionTaskProducer::SessionTaskProducer;
};

}  // namespace tarn
