#pragma once

#include <TarnService/Transport/SessionTaskProducer.hpp>

namespace tarn {

/// Makes the tasks of plain requests.
class DataTaskProducer final : public SessionTaskProducer<DataTaskProducer, HTTPDataTaskProducer> {
 public:
  static constexpr std::string_view queueName = "tarnservice.datataskproducer";
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
