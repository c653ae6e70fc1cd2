// The limit: sockets, epoll, a request that is text from the start and a parser that reads no more
// of an answer than it has to. No client of real life can be faster.
#include <charconv>
#include <string>
#include <string_view>

#include "SocketLoop.hpp"

namespace {

using Clock = bench::Recorder::Clock;

// Reads the status and Content-Length as nginx writes it; what else an answer may be it ignores.
class Parser {
 public:
  struct Answer {
    int status;
    std::size_t bodyBytes;
  };

  bool put(std::string_view bytes) {
    text_.append(bytes);
    if (bodyStart_ == 0) readHead();
    return bodyStart_ > 0 && text_.size() == bodyStart_ + answer_.bodyBytes;
  }

  Answer take() {
    text_.clear();
    bodyStart_ = 0;
    return answer_;
  }

 private:
  void readHead() {
    const auto end = text_.find("\r\n\r\n");
    if (end == std::string::npos) return;
    const std::string_view head(text_.data(), end);
    constexpr std::string_view name = "\r\nContent-Length: ";
    const auto field = head.find(name);
    if (!head.starts_with("HTTP/1.1 ") || field == std::string::npos) bench::fail("what is this?");
    answer_.status = number<int>(head.substr(9));
    answer_.bodyBytes = number<std::size_t>(head.substr(field + name.size()));
    bodyStart_ = end + 4;
  }

  template <class Number>
  static Number number(std::string_view digits) {
    Number result{};
    std::from_chars(digits.data(), digits.data() + digits.size(), result);
    return result;
  }

  std::string text_;
  std::size_t bodyStart_ = 0;  // 0: the head is not complete
  Answer answer_{};
};

class SocketClient : public bench::Client {
 public:
  explicit SocketClient(const bench::Workload& workload)
      : inFlight_(workload.name == "burst" ? workload.requests : workload.inFlight),
        loop_(bench::Target(workload), workload.connections) {
    const bench::Target target(workload);
    text_ = "GET " + target.path + " HTTP/1.1\r\nHost: " + target.authority() + "\r\n";
    for (const auto& header : workload.headers) text_ += header + "\r\n";
    text_ += "\r\n";
  }

  void run(std::size_t requests, bench::Recorder& recorder) override {
    recorder_ = &recorder;
    left_ = requests;
    for (std::size_t count = std::min(inFlight_, requests); count > 0; --count) submit();
    while (recorder.count() < requests) loop_.poll();
  }

 private:
  struct Job {
    SocketClient* client;
    Clock::time_point queued;

    std::string_view text() const { return client->text_; }
    void finish(const Parser::Answer& answer) const {
      client->recorder_->record(queued, answer.status, answer.bodyBytes);
      if (client->left_ > 0) client->submit();
    }
  };

  void submit() {
    --left_;
    loop_.submit({this, Clock::now()});
  }

  const std::size_t inFlight_;
  std::string text_;
  bench::Recorder* recorder_ = nullptr;
  std::size_t left_ = 0;
  bench::SocketLoop<Job, Parser> loop_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runClient(argc, argv,
                          [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
                            if (workload.name != "sequential" && workload.name != "concurrent" &&
                                workload.name != "burst" && workload.name != "start") {
                              return nullptr;
                            }
                            return std::make_unique<SocketClient>(workload);
                          });
}
