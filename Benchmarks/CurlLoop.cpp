#include "CurlLoop.hpp"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

class CurlLoop {
 public:
  CurlLoop(const std::string& url, const std::vector<std::string>& headers, std::size_t requests)
      : requests_(requests) {
    for (const auto& header : headers) headers_ = curl_slist_append(headers_, header.c_str());
    curl_url_set(url_, CURLUPART_URL, url.c_str(), 0);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlLoop::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlLoop::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, 6L);
  }

  ~CurlLoop() {
    for (const auto& transfer : transfers_) {
      curl_multi_remove_handle(multi_, transfer->easy);
      curl_easy_cleanup(transfer->easy);
    }
    curl_multi_cleanup(multi_);
    curl_url_cleanup(url_);
    curl_slist_free_all(headers_);
    ::close(poll_);
  }

  std::vector<double> run(std::size_t inFlight) {
    for (std::size_t index = 0; index < inFlight; ++index) addTransfer();
    int running = 0;
    while (durations_.size() < requests_) {
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
    return std::move(durations_);
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
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlLoop::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    start(*transfer);
    transfers_.push_back(std::move(transfer));
  }

  void start(Transfer& transfer) {
    ++started_;
    transfer.body.clear();
    transfer.start = Clock::now();
    curl_multi_add_handle(multi_, transfer.easy);
  }

  void takeFinished() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->data.result != CURLE_OK) throw std::runtime_error("the reference loop failed");
      CURL* easy = message->easy_handle;
      Transfer* transfer = nullptr;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
      curl_multi_remove_handle(multi_, easy);
      durations_.push_back(std::chrono::duration<double>(Clock::now() - transfer->start).count());
      if (started_ < requests_) start(*transfer);
    }
  }

  int millisecondsLeft() const {
    if (!hasDeadline_) return 1000;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  }

  static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known) {
    auto& loop = *static_cast<CurlLoop*>(self);
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
    auto& loop = *static_cast<CurlLoop*>(self);
    loop.hasDeadline_ = milliseconds >= 0;
    loop.deadline_ = Clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
  }

  static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* transfer) {
    static_cast<Transfer*>(transfer)->body.append(bytes, count);
    return count;
  }

  const std::size_t requests_;
  std::size_t started_ = 0;
  std::vector<double> durations_;
  CURLM* multi_ = curl_multi_init();
  CURLU* url_ = curl_url();
  curl_slist* headers_ = nullptr;
  int poll_ = ::epoll_create1(EPOLL_CLOEXEC);
  bool hasDeadline_ = false;
  Clock::time_point deadline_;
  std::vector<std::unique_ptr<Transfer>> transfers_;
};

}  // namespace

std::vector<double> runCurlLoop(const std::string& url, const std::vector<std::string>& headers,
                                std::size_t requests, std::size_t inFlight) {
  return CurlLoop(url, headers, requests).run(inFlight);
}

}  // namespace bench
