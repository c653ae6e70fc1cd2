#include <TarnService/Transport/UploadTaskProducer.hpp>

namespace tarn {

void UploadTaskProducer::didReceiveData(URLSession&, URLSessionDataTask& task, Data data) {
  write(std::move(data), task);
}

void UploadTaskProducer::didComplete(URLSession&, URLSessionTask& task,
                                     const std::optional<Error>& error) {
  reportCompletion(task, error);
}

}  // namespace tarn
