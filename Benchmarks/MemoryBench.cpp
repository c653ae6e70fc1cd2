// What requests cost in memory: each one that is queued, each one that is finished, and a long run
// whose sessions are reset now and then. `MemoryBench [REQUESTS]`: the length of that run, a
// million by default.

#include <TarnService/TarnService.hpp>

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "BenchServer.hpp"

namespace {

constexpr std::size_t inFlight = 64;
constexpr std::size_t batch = 10000;

// Bytes that malloc has handed out, in all of its arenas and in mappings of their own.
std::size_t bytesInUse() {
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

double bytesEach(std::size_t before, std::size_t after) {
  return (static_cast<double>(after) - static_cast<double>(before)) / batch;
}

std::size_t residentKiB() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr || std::fscanf(file, "%zu %zu", &total, &resident) != 2) std::exit(1);
  std::fclose(file);
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

// Sends a batch of GETs, several at a time; each completion sends the next one.
class Batch {
 public:
  explicit Batch(const tarn::URL& url) : request_(url) {}

  void run() {
    queue_.sync([&] {
      for (std::size_t index = 0; index < inFlight; ++index) sendNext();
    });
    done_.wait();
  }

 private:
  void sendNext() {
    ++started_;
    request_.send(queue_, [this](const tarn::DataResponse& response) {
      if (!response.result.isSuccessful()) {
        std::fprintf(stderr, "%s\n", response.result.error()->message().c_str());
        std::exit(1);
      }
      if (started_ < batch) sendNext();
      if (++finished_ == batch) done_.signal();
    });
  }

  tarn::DataGetRequest request_;
  tarn::DispatchQueue queue_{"bench.completions"};
  tarn::DispatchSemaphore done_{0};
  std::size_t started_ = 0;
  std::size_t finished_ = 0;
};

// Takes connections, as far as the kernel does, and never answers.
class SilentServer {
 public:
  SilentServer() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket_, generic, size) != 0 || ::listen(socket_, 64) != 0 ||
        ::getsockname(socket_, generic, &size) != 0) {
      std::perror("silent server");
      std::exit(1);
    }
    port_ = ntohs(address.sin_port);
  }
  ~SilentServer() { ::close(socket_); }
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;

  tarn::URL url() const { return tarn::URL("http://127.0.0.1:" + std::to_string(port_) + "/"); }

 private:
  const int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int port_ = 0;
};

void measureFinished(const tarn::URL& url) {
  Batch(url).run();  // connections, threads, and what else is made once
  const std::size_t before = bytesInUse();
  Batch(url).run();
  std::printf("finished requests   %6.0f bytes each, with a body of 27\n",
              bytesEach(before, bytesInUse()));
}

// Waits until all that was sent has come to rest.
std::size_t settledBytes() {
  for (std::size_t last = 0;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const std::size_t now = bytesInUse();
    if (now == last) return now;
    last = now;
  }
}

void measureQueued() {
  const SilentServer server;
  const tarn::DataGetRequest request(server.url());
  const tarn::DispatchQueue queue("bench.completions");
  tarn::DispatchSemaphore cancelled(0);
  const std::size_t before = settledBytes();
  for (std::size_t index = 0; index < batch; ++index) {
    request.send(queue, [&cancelled](const tarn::DataResponse&) { cancelled.signal(); });
  }
  std::printf("queued requests     %6.0f bytes each, %zu of them\n",
              bytesEach(before, settledBytes()), batch);
  tarn::resetDefaultTaskProducers();
  for (std::size_t index = 0; index < batch; ++index) cancelled.wait();
}

void measureLongRun(const tarn::URL& url, std::size_t requests) {
  const std::size_t batches = requests / batch;
  for (std::size_t index = 0; index <= batches; ++index) {
    if (index % 10 == 0) {
      std::printf("after %8zu requests, reset every %zu: %6.1f MB in use, %6.1f MB resident\n",
                  index * batch, batch, static_cast<double>(bytesInUse()) / 1e6,
                  static_cast<double>(residentKiB()) * 1024 / 1e6);
    }
    if (index == batches) break;
    tarn::resetDefaultTaskProducers();
    Batch(url).run();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bench::BenchServer server;  // before any thread
  const tarn::URL url(server.url());
  tarn::Logger::setDefaultSink(nullptr);  // each reset is a line of level error
  // Numbers of tasks that no session has had yet, so that no record of an earlier one goes
  // meanwhile.
  measureQueued();
  measureFinished(url);
  measureLongRun(url, argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1'000'000);
}
