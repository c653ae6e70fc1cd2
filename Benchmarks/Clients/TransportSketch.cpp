// What an exchange would cost over a transport of our own for plain HTTP/1.1: the socket loop with
// requests and answers as values and Beast's parser. Built twice: with the loop on the calling
// thread, and in the library's shape, with the loop on a thread of its own, which is handed
// requests through a queue and hands answers to a DispatchQueue.
// See Documentation/decisions/2026-11-21-own-transport.md. No error, no time-out, no cancellation:
// a sketch.
#include <Platform/Dispatch/DispatchQueue.hpp>
#include <Platform/Dispatch/DispatchSemaphore.hpp>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <functional>
#include <mutex>
#include <sys/eventfd.h>
#include <thread>

#include "SocketLoop.hpp"

namespace {

using Clock = bench::Recorder::Clock;
using Fields = std::vector<std::pair<std::string, std::string>>;

struct Request {
  std::string path;
  std::string authority;
  Fields fields;
};

struct Response {
  int status = 0;
  Fields fields;
  std::string body;
};

using Completion = std::function<void(Response&&)>;

std::string text(const Request& request) {
  std::string result;
  result.reserve(512);
  result.append("GET ").append(request.path).append(" HTTP/1.1\r\nHost: ");
  result.append(request.authority).append("\r\n");
  for (const auto& [name, value] : request.fields) {
    result.append(name).append(": ").append(value).append("\r\n");
  }
  return result.append("\r\n");
}

class Parser {
 public:
  Parser() { begin(); }

  bool put(std::string_view bytes) {
    // Beast wants a head in one piece: what it has not taken is shown again with what comes next.
    if (!left_.empty()) bytes = left_.append(bytes);
    boost::system::error_code error;
    const auto taken = parser_->put(boost::asio::buffer(bytes), error);
    if (error && error != boost::beast::http::error::need_more) bench::fail(error.message());
    left_ = std::string(bytes.substr(taken));
    return parser_->is_done();
  }

  Response take() {
    auto message = parser_->release();
    Response response{static_cast<int>(message.result_int()), {}, std::move(message.body())};
    for (const auto& field : message) {
      response.fields.emplace_back(field.name_string(), field.value());
    }
    begin();
    return response;
  }

 private:
  void begin() {
    parser_.emplace();
    parser_->eager(true);
  }

  std::optional<boost::beast::http::response_parser<boost::beast::http::string_body>> parser_;
  std::string left_;
};

// The loop on the thread that asks.
class CallersTransport {
 public:
  CallersTransport(const bench::Target& target, std::size_t connections)
      : loop_(target, connections) {}

  void send(const Request& request, Completion completion) {
    loop_.submit({text(request), std::move(completion)});
  }

  template <class F>
  void start(F body) {
    body();
  }
  void wait() {
    while (!isDone_) loop_.poll();
    isDone_ = false;
  }
  void signal() { isDone_ = true; }

 private:
  struct Job {
    std::string request;
    Completion completion;

    std::string_view text() const { return request; }
    void finish(Response&& response) { completion(std::move(response)); }
  };

  bench::SocketLoop<Job, Parser> loop_;
  bool isDone_ = false;
};

// The loop on its own thread, completions on a queue.
class ThreadedTransport {
 public:
  ThreadedTransport(const bench::Target& target, std::size_t connections)
      : loop_(target, connections) {
    loop_.watch(wake_);
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  }

  ~ThreadedTransport() {
    thread_.request_stop();
    wake();
    thread_.join();
    ::close(wake_);
  }

  void send(Request request, Completion completion) {
    {
      const std::lock_guard lock(mutex_);
      queued_.push_back({std::move(request), std::move(completion)});
      // One wake for all that are queued before the loop looks.
      if (queued_.size() > 1) return;
    }
    wake();
  }

  template <class F>
  void start(F body) {
    completions_.sync(body);
  }
  void wait() { done_.wait(); }
  void signal() { done_.signal(); }

 private:
  struct Queued {
    Request request;
    Completion completion;
  };
  struct Job {
    ThreadedTransport* transport;
    std::string request;
    Completion completion;

    std::string_view text() const { return request; }
    void finish(Response&& response) {
      transport->finished_.push_back({std::move(completion), std::move(response)});
    }
  };
  struct Finished {
    Completion completion;
    Response response;
  };

  void run(const std::stop_token& stop) {
    std::vector<Queued> batch;
    while (!stop.stop_requested()) {
      loop_.poll();
      deliver();
      {
        const std::lock_guard lock(mutex_);
        batch.swap(queued_);
      }
      if (batch.empty()) continue;
      eventfd_t count = 0;
      ::eventfd_read(wake_, &count);
      for (auto& [request, completion] : batch) {
        loop_.submit({this, text(request), std::move(completion)});
      }
      batch.clear();
    }
  }

  // One hand-over for all that was answered at once: a worker woken by each would take the loop's
  // processor from it.
  void deliver() {
    if (finished_.empty()) return;
    completions_.async([finished = std::exchange(finished_, {})]() mutable {
      for (auto& [completion, response] : finished) completion(std::move(response));
    });
  }

  void wake() const { ::eventfd_write(wake_, 1); }

  const int wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  // The thread's.
  bench::SocketLoop<Job, Parser> loop_;
  std::vector<Finished> finished_;

  tarn::DispatchQueue completions_{"sketch.completions"};
  tarn::DispatchSemaphore done_{0};
  std::mutex mutex_;
  std::vector<Queued> queued_;
  std::jthread thread_;
};

#ifdef BENCH_LOOP_ON_CALLER
using Transport = CallersTransport;
#else
using Transport = ThreadedTransport;
#endif

class SketchClient : public bench::Client {
 public:
  explicit SketchClient(const bench::Workload& workload)
      : inFlight_(workload.name == "burst" ? workload.requests : workload.inFlight),
        transport_(bench::Target(workload), workload.connections) {
    const bench::Target target(workload);
    request_ = {target.path, target.authority(), target.fields};
  }

  void run(std::size_t requests, bench::Recorder& recorder) override {
    recorder_ = &recorder;
    left_ = requests;
    unfinished_ = requests;
    transport_.start([&] {
      for (std::size_t count = std::min(inFlight_, requests); count > 0; --count) sendNext();
    });
    transport_.wait();
  }

 private:
  void sendNext() {
    --left_;
    transport_.send(request_, [this, queued = Clock::now()](const Response& response) {
      recorder_->record(queued, response.status, response.body.size());
      --unfinished_;
      if (left_ > 0) return sendNext();
      if (unfinished_ == 0) transport_.signal();
    });
  }

  const std::size_t inFlight_;
  Request request_;
  bench::Recorder* recorder_ = nullptr;
  std::size_t left_ = 0;
  std::size_t unfinished_ = 0;
  Transport transport_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runClient(argc, argv,
                          [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
                            if (workload.name != "sequential" && workload.name != "concurrent" &&
                                workload.name != "burst") {
                              return nullptr;
                            }
                            return std::make_unique<SketchClient>(workload);
                          });
}
