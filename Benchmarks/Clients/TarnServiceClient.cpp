// The workloads as a user of the library writes them: request values, and a completion that sends
// the next one.

#include <TarnService/TarnService.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "Orders.hpp"
#include "Workload.hpp"

namespace {

using Clock = bench::Recorder::Clock;

struct Get : tarn::DataGetRequestable<Get> {
  tarn::URL url;
  std::shared_ptr<tarn::DataTaskProducer> taskProducer;
  Get(tarn::URL url, std::shared_ptr<tarn::DataTaskProducer> producer)
      : url(std::move(url)), taskProducer(std::move(producer)) {}
};

struct GetOrders : tarn::JSONGetRequestable<GetOrders, bench::OrderPage> {
  tarn::URL url;
  std::shared_ptr<tarn::DataTaskProducer> taskProducer;
  GetOrders(tarn::URL url, std::shared_ptr<tarn::DataTaskProducer> producer)
      : url(std::move(url)), taskProducer(std::move(producer)) {}
};

struct PutFile : tarn::UploadPutRequestable<PutFile> {
  tarn::URL url;
  tarn::File body;
  PutFile(tarn::URL url, tarn::File body) : url(std::move(url)), body(std::move(body)) {}
};

std::size_t size(const tarn::DataResponse& response) {
  return response.data ? response.data->size() : 0;
}

std::size_t size(const tarn::JSONResponse<bench::OrderPage>& response) {
  if (!bench::isServedPage(*response.result.body())) bench::fail("another page than was served");
  return response.data->size();
}

template <class Request>
class TarnServiceClient : public bench::Client {
 public:
  TarnServiceClient(const bench::Workload& workload, Request request)
      : workload_(workload), request_(std::move(request)) {}

  void run(std::size_t requests, bench::Recorder& recorder) override {
    recorder_ = &recorder;
    left_ = requests;
    queue_.sync([this] {
      for (auto first = std::min(workload_.inFlight, left_); first > 0; --first) sendNext();
    });
    done_.wait();
  }

 private:
  using Response = typename Request::Response;

  void sendNext() {
    --left_;
    ++inFlight_;
    request_.send(queue_, [this, start = Clock::now()](const Response& response) {
      finish(start, response);
    });
  }

  void finish(Clock::time_point start, const Response& response) {
    if (const auto error = response.result.error()) bench::fail(error->message());
    recorder_->record(start, int(response.status.rawValue()), sizeOf(response));
    --inFlight_;
    if (left_ > 0) {
      sendNext();
    } else if (inFlight_ == 0) {
      done_.signal();
    }
  }

  std::size_t sizeOf(const tarn::DownloadResponse<tarn::File>& response) const {
    std::filesystem::rename(response.result.body()->fileURL().path(), workload_.file);
    return std::filesystem::file_size(workload_.file);
  }
  template <class Other>
  std::size_t sizeOf(const Other& response) const {
    return size(response);
  }

  const bench::Workload workload_;
  const Request request_;
  bench::Recorder* recorder_ = nullptr;
  std::size_t left_ = 0;
  std::size_t inFlight_ = 0;
  tarn::DispatchSemaphore done_{0};
  tarn::DispatchQueue queue_{"bench.completions"};
};

template <class Request>
std::unique_ptr<bench::Client> makeClient(const bench::Workload& workload, Request request) {
  return std::make_unique<TarnServiceClient<Request>>(workload, std::move(request));
}

std::shared_ptr<tarn::DataTaskProducer> makeProducer(const bench::Workload& workload) {
  auto configuration = tarn::URLSessionConfiguration::ephemeral();
  configuration.httpMaximumConnectionsPerHost = int(workload.connections);
  return tarn::DataTaskProducer::make(configuration);
}

std::unique_ptr<bench::Client> make(const bench::Workload& workload) {
  if (!workload.authority.empty()) ::setenv("SSL_CERT_FILE", workload.authority.c_str(), 1);
  const tarn::URL url(workload.url);
  if (workload.name == "json") return makeClient(workload, GetOrders(url, makeProducer(workload)));
  if (workload.name == "download") return makeClient(workload, tarn::DownloadRequest(url));
  if (workload.name == "upload") {
    return makeClient(workload, PutFile(url, tarn::File(tarn::URL::fileURL(workload.file))));
  }
  return makeClient(workload, Get(url, makeProducer(workload)));
}

}  // namespace

int main(int argc, char** argv) { return bench::runClient(argc, argv, make); }
