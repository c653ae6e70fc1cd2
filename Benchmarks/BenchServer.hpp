#pragma once

#include <string>
#include <sys/types.h>

namespace bench {

/// An HTTP/1.1 server in a child process that answers every GET with the same small body: as little
/// work as a server can do, and none of it on the account of the process that measures.
///
/// Make it before the process has threads.
class BenchServer {
 public:
  BenchServer();
  ~BenchServer();
  BenchServer(const BenchServer&) = delete;
  BenchServer& operator=(const BenchServer&) = delete;

  /// "http://127.0.0.1:PORT/"
  std::string url() const;

 private:
  pid_t child_ = -1;
  int port_ = 0;
};

}  // namespace bench
