// Ends, in one of many ways, while requests of every kind are on their way: queued, connecting,
// waiting and being answered; while queues are full and timers fire.
//
//   ExitInFlight URL COUNT data|download WAY    ends once COUNT of 40 requests are answered

#include <Platform/Dispatch/DispatchTimer.hpp>
#include <Platform/Dispatch/MainQueue.hpp>
#include <Platform/Dispatch/OperationQueue.hpp>
#include <TarnService/TarnService.hpp>

#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Never destroyed: requests are answered to the end.
const auto& answered = *new tarn::DispatchSemaphore(0);

void send(const std::string& url, bool download) {
  if (download) {
    const tarn::DownloadRequest request{tarn::URL(url)};
    request.send(std::nullopt,
                 [](const tarn::DownloadResponse<tarn::File>&) { answered.signal(); });
    return;
  }
  const tarn::DataGetRequest request{tarn::URL(url)};
  request.send(std::nullopt, [](const tarn::DataResponse&) { answered.signal(); });
}

/// Work without end on every kind of queue. Not destroyed: it is at work to the end.
struct Bustle {
  tarn::DispatchQueue serial{"bustle.serial"};
  tarn::OperationQueue operations{"bustle.operations"};
  tarn::DispatchTimer timer{serial};

  Bustle() {
    timer.setEventHandler([this] { serial.async([] {}); });
    timer.schedule(tarn::DispatchTime::now(), tarn::TimeInterval(0.001));
    timer.resume();
    for (int i = 0; i < 4; ++i) {
      again();
      tarn::DispatchQueue::global().async([this] { serial.sync([] {}); });
    }
  }
  void again() {
    operations.addOperation([this] {
      tarn::DispatchQueue::global().asyncAfter(tarn::TimeInterval(0.0005), [this] { again(); });
    });
  }
};

/// The child asks for something itself and ends by exit(), as the parent does after it.
int forkAndExit(const std::string& url) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    const tarn::DispatchSemaphore done(0);
    bool succeeded = false;
    const tarn::DataGetRequest request{tarn::URL(url + "/child")};
    request.send(std::nullopt, [&](const tarn::DataResponse& response) {
      succeeded = !response.result.error();
      done.signal();
    });
    done.wait();
    std::exit(succeeded ? 0 : 3);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
}

int end(const std::string& way, const std::string& url) {
  const tarn::DispatchSemaphore never(0);
  if (way == "main") return 0;
  if (way == "fork") return forkAndExit(url);
  if (way == "quick") std::quick_exit(0);
  if (way == "atonce") _exit(0);
  if (way == "thread") std::thread([] { std::exit(0); }).detach();
  if (way == "completion") {
    const tarn::DataGetRequest request{tarn::URL(url + "/")};
    request.send(std::nullopt, [](const tarn::DataResponse&) { std::exit(0); });
  }
  if (way == "mainqueue") {
    tarn::DispatchQueue::main().async([] { std::exit(0); });
    tarn::MainQueue::run();
  }
  never.wait();
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  alarm(60);  // one that hangs is ended by the system
  const std::string url = argv[1];
  static auto* const bustle = new Bustle;
  static_cast<void>(bustle);
  for (int index = 0; index < 40; ++index) {
    send(url + "/" + std::to_string(index), argv[3] == std::string("download"));
  }
  for (int left = std::atoi(argv[2]); left > 0; --left) answered.wait();
  return end(argv[4], url);
}
