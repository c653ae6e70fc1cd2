#include <TarnService/Transport/DataTaskProducer.hpp>

namespace tarn {

void DataTaskProducer::didReceiveData(URLSession&, URLSessionDataTask& task, Data data) {
  write(std::move(data), task);
}

void DataTaskProducer::didComplete(URLSession&, URLSessionTask& task,
                                   const std::optional<Error>& error) {
  reportCompletion(task, error);
}

}  // namespace tarn
