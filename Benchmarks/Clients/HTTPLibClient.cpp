// cpp-httplib: blocking, one httplib::Client and one thread for each connection. The 4 KiB of its
// receive buffer are compiled into Debian's library.
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <httplib.h>
#include <memory>
#include <unistd.h>

#include "BlockingClient.hpp"
#include "PlainHTTP.hpp"

namespace {

class HTTPLibConnection : public bench::BlockingClient::Connection {
 public:
  using Clock = bench::Recorder::Clock;

  explicit HTTPLibConnection(const bench::Workload& workload)
      : workload_(workload), target_(workload), client_(target_.host, target_.port) {
    client_.set_keep_alive(true);
    client_.set_tcp_nodelay(true);
    headers_.insert(target_.fields.begin(), target_.fields.end());
  }

  void exchange(Clock::time_point queued, bench::Recorder& recorder) override {
    if (workload_.name == "download") return download(queued, recorder);
    const auto result = workload_.name == "upload" ? upload() : client_.Get(target_.path, headers_);
    check(result);
    if (workload_.name == "json") bench::decodeOrders(result->body);
    recorder.record(queued, result->status, result->body.size());
  }

 private:
  static void check(const httplib::Result& result) {
    if (!result) bench::fail(httplib::to_string(result.error()));
  }

  void download(Clock::time_point queued, bench::Recorder& recorder) {
    const int file = ::open(workload_.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::size_t bytes = 0;
    const auto result =
        client_.Get(target_.path, headers_, [&](const char* data, std::size_t count) {
          bytes += count;
          return ::write(file, data, count) == static_cast<ssize_t>(count);
        });
    ::close(file);
    check(result);
    recorder.record(queued, result->status, bytes);
  }

  httplib::Result upload() {
    const int file = ::open(workload_.file.c_str(), O_RDONLY | O_CLOEXEC);
    auto result = client_.Put(
        target_.path, headers_, std::filesystem::file_size(workload_.file),
        [&](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
          const auto count = ::pread(file, buffer_->data(), std::min(length, buffer_->size()),
                                     static_cast<off_t>(offset));
          return count > 0 && sink.write(buffer_->data(), static_cast<std::size_t>(count));
        },
        "application/octet-stream");
    ::close(file);
    return result;
  }

  using Buffer = std::array<char, 64 * 1024>;

  const bench::Workload& workload_;
  const bench::Target target_;
  httplib::Client client_;
  httplib::Headers headers_;
  std::unique_ptr<Buffer> buffer_ = std::make_unique<Buffer>();
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runClient(
      argc, argv, [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
        if (!bench::isPlain(workload)) return nullptr;
        return std::make_unique<bench::BlockingClient>(
            workload, [&] { return std::make_unique<HTTPLibConnection>(workload); });
      });
}
