// The reference: a tuned libcurl multi loop, socket_action on epoll in one thread, which reuses its
// handles and the parsed URL and has a queue of its own. With BENCH_KEEPING it treats bodies as the
// library does, which shows how much of the library's cost that is.

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

#include "Orders.hpp"
#include "Workload.hpp"

#ifdef BENCH_KEEPING
#include <TarnService/TarnService.hpp>
#endif

namespace {

using Clock = bench::Recorder::Clock;

#ifdef BENCH_KEEPING
class Bodies {
 public:
  bench::OrderPage decode(const std::string& body) {
    return decoder_.decode<bench::OrderPage>(kept_.emplace_back(body));
  }

 private:
  const tarn::JSONDecoder decoder_;
  std::deque<tarn::Data> kept_;  // as in the records of ended tasks
};
#else
struct Bodies {
  static bench::OrderPage decode(const std::string& body) {
    return bench::decodeWithNlohmann(body);
  }
};
#endif

class CurlLoopClient : public bench::Client {
 public:
  explicit CurlLoopClient(const bench::Workload& workload)
      : workload_(workload), decodes_(workload.name == "json") {
    for (const auto& header : workload.headers) {
      headers_ = curl_slist_append(headers_, header.c_str());
    }
    curl_url_set(url_, CURLUPART_URL, workload.url.c_str(), 0);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlLoopClient::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlLoopClient::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    const auto connections = long(workload.connections);
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, connections);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, connections);
    // A queue of our own costs less than handles that wait in libcurl's, which tries them all again
    // at each answer.
    const bool shareConnections = workload.name == "http2";
    const auto handles =
        shareConnections ? workload.inFlight : std::min(workload.inFlight, workload.connections);
    for (std::size_t index = 0; index < handles; ++index) addTransfer();
  }
  ~CurlLoopClient() override {
    for (const auto& transfer : transfers_) curl_easy_cleanup(transfer->easy);
    curl_multi_cleanup(multi_);
    curl_url_cleanup(url_);
    curl_slist_free_all(headers_);
    ::close(poll_);
  }

  void run(std::size_t requests, bench::Recorder& recorder) override {
    recorder_ = &recorder;
    handedOver_ = 0;
    requests_ = requests;
    for (std::size_t index = 0; index < workload_.inFlight; ++index) handOver();
    for (const auto& transfer : transfers_) startNext(*transfer);
    while (recorder.count() < requests) turn();
  }

 private:
  struct Transfer {
    CURL* easy = curl_easy_init();
    Clock::time_point start;
    std::string body;
  };

  void addTransfer() {
    auto transfer = std::make_unique<Transfer>();
    CURL* easy = transfer->easy;
    curl_easy_setopt(easy, CURLOPT_CURLU, url_);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer.get());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlLoopClient::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    if (!workload_.authority.empty()) {
      curl_easy_setopt(easy, CURLOPT_CAINFO, workload_.authority.c_str());
      curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
      curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
    }
    transfers_.push_back(std::move(transfer));
  }

  void handOver() {
    if (handedOver_ == requests_) return;
    ++handedOver_;
    waiting_.push_back(Clock::now());
  }

  void startNext(Transfer& transfer) {
    if (waiting_.empty()) return;
    transfer.body.clear();
    transfer.start = waiting_.front();
    waiting_.pop_front();
    curl_multi_add_handle(multi_, transfer.easy);
  }

  void turn() {
    int running = 0;
    epoll_event events[64];
    const int count = ::epoll_wait(poll_, events, 64, millisecondsLeft());
    for (int index = 0; index < count; ++index) {
      const auto& event = events[index];
      const int mask = ((event.events & EPOLLIN) ? CURL_CSELECT_IN : 0) |
                       ((event.events & EPOLLOUT) ? CURL_CSELECT_OUT : 0) |
                       ((event.events & (EPOLLERR | EPOLLHUP)) ? CURL_CSELECT_ERR : 0);
      curl_multi_socket_action(multi_, event.data.fd, mask, &running);
    }
    while (hasDeadline_ && Clock::now() >= deadline_) {
      hasDeadline_ = false;
      curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    }
    takeFinished();
  }

  void takeFinished() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->data.result != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(message->data.result));
      }
      CURL* easy = message->easy_handle;
      Transfer* transfer = nullptr;
      long status = 0;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      curl_multi_remove_handle(multi_, easy);
      if (decodes_ && !bench::isServedPage(bodies_.decode(transfer->body))) {
        throw std::runtime_error("another page than was served");
      }
      recorder_->record(transfer->start, int(status), transfer->body.size());
      handOver();
      startNext(*transfer);
    }
  }

  int millisecondsLeft() const {
    if (!hasDeadline_) return 1000;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  }

  static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known) {
    auto& loop = *static_cast<CurlLoopClient*>(self);
    if (what == CURL_POLL_REMOVE) {
      ::epoll_ctl(loop.poll_, EPOLL_CTL_DEL, socket, nullptr);
      return 0;
    }
    epoll_event event{
        ((what & CURL_POLL_IN) ? EPOLLIN : 0u) | ((what & CURL_POLL_OUT) ? EPOLLOUT : 0u),
        {.fd = socket}};
    ::epoll_ctl(loop.poll_, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
    curl_multi_assign(loop.multi_, socket, &loop);
    return 0;
  }

  static int onTimer(CURLM*, long milliseconds, void* self) {
    auto& loop = *static_cast<CurlLoopClient*>(self);
    loop.hasDeadline_ = milliseconds >= 0;
    loop.deadline_ = Clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
  }

  static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* transfer) {
    static_cast<Transfer*>(transfer)->body.append(bytes, count);
    return count;
  }

  const bench::Workload workload_;
  const bool decodes_;
  Bodies bodies_;
  bench::Recorder* recorder_ = nullptr;
  std::size_t requests_ = 0;
  std::size_t handedOver_ = 0;
  std::deque<Clock::time_point> waiting_;  // since when
  CURLM* multi_ = curl_multi_init();
  CURLU* url_ = curl_url();
  curl_slist* headers_ = nullptr;
  int poll_ = ::epoll_create1(EPOLL_CLOEXEC);
  bool hasDeadline_ = false;
  Clock::time_point deadline_;
  std::vector<std::unique_ptr<Transfer>> transfers_;
};

std::unique_ptr<bench::Client> make(const bench::Workload& workload) {
  if (workload.name == "download" || workload.name == "upload") return nullptr;
  return std::make_unique<CurlLoopClient>(workload);
}

}  // namespace

int main(int argc, char** argv) {
  curl_global_init(CURL_GLOBAL_ALL);
  return bench::runClient(argc, argv, make);
}
