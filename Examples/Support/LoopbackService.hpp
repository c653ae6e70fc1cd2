#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace examples {

/// A small HTTP/1.1 service on a free port of 127.0.0.1, for the examples to talk to over real
/// sockets.
///
/// Each connection has a thread of its own. Good enough for an example, not for the world: requests
/// of up to 64 KiB.
class LoopbackService {
 public:
  struct Request {
    std::string method;
    std::string path;
    std::string body;
  };
  struct Answer {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    std::string body;
    /// Takes the request and never answers.
    bool stalls = false;
  };
  using Handler = std::function<Answer(const Request&)>;

  /// Starts to listen. Throws std::system_error where it can't. The handler runs on several threads
  /// at once.
  explicit LoopbackService(Handler handler);
  ~LoopbackService();
  LoopbackService(const LoopbackService&) = delete;
  LoopbackService& operator=(const LoopbackService&) = delete;

  /// "http://127.0.0.1:PORT"
  std::string url() const;

 private:
  void acceptConnections();
  void serve(int connection);

  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  std::mutex mutex_;
  bool stopping_ = false;
  std::set<int> connections_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace examples
