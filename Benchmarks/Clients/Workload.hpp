#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// What a client program is to do, from its command line:
/// `XClient NAME URL [--requests N] [--warm-up N] [--in-flight N] [--connections N]
/// [--body-bytes N] [--file PATH] [--authority PATH] [--header "Name: value"]...`
struct Workload {
  /// sequential: GETs one after another; concurrent: `inFlight` at a time; json: the same, and each
  /// answer decoded into an OrderPage; http2: the same with streams of one connection; download:
  /// GET to `file`; upload: PUT of `file`; burst: GETs that are all queued before the first is
  /// answered.
  std::string name;
  std::string url;
  std::size_t requests = 1;
  std::size_t warmUp = 0;  // requests before those that are measured
  std::size_t inFlight = 1;
  std::size_t connections = 1;       // at most
  std::size_t bodyBytes = 0;         // of each answer
  std::string file;                  // target of a download, source of an upload
  std::string authority;             // PEM file of the one authority that https trusts
  std::vector<std::string> headers;  // "Name: value": sent with each request
};

/// Takes down how long each request took, and that its answer was the right one.
class Recorder {
 public:
  using Clock = std::chrono::steady_clock;

  Recorder(const Workload& workload, std::size_t requests);

  /// One request is over; callable on any thread. An answer with another status than 200 or another
  /// length than the workload's ends the program with status 1.
  void record(Clock::time_point start, int status, std::size_t bodyBytes);

  std::size_t count() const { return count_; }
  /// Microseconds, ascending.
  std::vector<double> sortedDurations() const;

 private:
  const std::size_t bodyBytes_;
  std::vector<Clock::duration> durations_;
  std::atomic<std::size_t> count_{0};
};

/// A client made for one workload.
class Client {
 public:
  Client() = default;
  virtual ~Client() = default;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Does so many requests, records each and returns after the last. Runs once to warm up and once
  /// to be measured: connections stay open in between. What it throws ends the program with
  /// status 1.
  virtual void run(std::size_t requests, Recorder& recorder) = 0;
};

/// The main function of a client program: runs the workload and prints one line of JSON: requests,
/// requestsPerSecond, bytes (of bodies), cpuMicroseconds (user and system, per request), p50 and
/// p99 (microseconds), peakKiB (resident, of the whole life of the process), peakBytesPerRequest
/// (resident memory above that before the measured part), keptBytesPerRequest (heap in use after it
/// above that before). `make` answers null for a workload that the client cannot do: status 64.
int runClient(int argc, char** argv,
              const std::function<std::unique_ptr<Client>(const Workload&)>& make);

/// Ends the program with status 1 and this text on stderr. For faults on whatever thread.
[[noreturn]] void fail(const std::string& what);

}  // namespace bench
