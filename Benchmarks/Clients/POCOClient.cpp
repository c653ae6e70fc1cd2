// POCO's HTTPClientSession: blocking, one session and one thread for each connection.
#include <Poco/FileStream.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>
#include <filesystem>

#include "BlockingClient.hpp"
#include "PlainHTTP.hpp"

namespace {

constexpr std::size_t bufferSize = 64 * 1024;

class POCOConnection : public bench::BlockingClient::Connection {
 public:
  using Clock = bench::Recorder::Clock;
  using HTTPRequest = Poco::Net::HTTPRequest;

  explicit POCOConnection(const bench::Workload& workload)
      : workload_(workload), target_(workload), session_(target_.host, target_.port) {
    const bool isUpload = workload.name == "upload";
    request_.setMethod(isUpload ? HTTPRequest::HTTP_PUT : HTTPRequest::HTTP_GET);
    request_.setURI(target_.path);
    for (const auto& [name, value] : target_.fields) request_.set(name, value);
    session_.setKeepAlive(true);
    session_.setKeepAliveTimeout(Poco::Timespan(3600, 0));  // else it closes after 8 seconds
  }

  void exchange(Clock::time_point queued, bench::Recorder& recorder) override {
    send();
    std::istream& answer = session_.receiveResponse(response_);
    const std::size_t bytes = receive(answer);
    recorder.record(queued, response_.getStatus(), bytes);
  }

 private:
  void send() {
    if (workload_.name != "upload") {
      session_.sendRequest(request_);
      return;
    }
    request_.setContentLength64(
        static_cast<Poco::Int64>(std::filesystem::file_size(workload_.file)));
    Poco::FileInputStream file(workload_.file);
    Poco::StreamCopier::copyStream64(file, session_.sendRequest(request_), bufferSize);
  }

  std::size_t receive(std::istream& answer) {
    if (workload_.name == "download") {
      Poco::FileOutputStream file(workload_.file, std::ios::trunc);
      return Poco::StreamCopier::copyStream64(answer, file, bufferSize);
    }
    body_.resize(static_cast<std::size_t>(response_.getContentLength64()));
    answer.read(body_.data(), static_cast<std::streamsize>(body_.size()));
    if (workload_.name == "json") bench::decodeOrders(body_);
    return static_cast<std::size_t>(answer.gcount());
  }

  const bench::Workload& workload_;
  const bench::Target target_;
  Poco::Net::HTTPClientSession session_;
  HTTPRequest request_{HTTPRequest::HTTP_1_1};
  Poco::Net::HTTPResponse response_;
  std::string body_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runClient(
      argc, argv, [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
        if (!bench::isPlain(workload)) return nullptr;
        return std::make_unique<bench::BlockingClient>(
            workload, [&] { return std::make_unique<POCOConnection>(workload); });
      });
}
