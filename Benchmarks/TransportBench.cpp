// GETs of a small body over loopback: the library beside a tuned libcurl multi loop, in one process
// and one run.

#include <TarnService/TarnService.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "BenchServer.hpp"
#include "CurlLoop.hpp"

namespace {

using Clock = std::chrono::steady_clock;

struct Figures {
  double cpuMicroseconds;  // of this process, for each request
  double requestsPerSecond;
  double p50;  // microseconds
  double p99;
};

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return double(time.tv_sec) + double(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Figures measure(const std::function<std::vector<double>()>& run) {
  const double cpu = cpuSeconds();
  const auto start = Clock::now();
  std::vector<double> durations = run();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const double count = double(durations.size());
  std::sort(durations.begin(), durations.end());
  const auto percentile = [&](double share) {
    return durations[std::size_t(share * (count - 1))] * 1e6;
  };
  return {(cpuSeconds() - cpu) / count * 1e6, count / seconds, percentile(0.5), percentile(0.99)};
}

// Sends `requests` GETs, `inFlight` at a time; each completion sends the next one.
class LibraryRun {
 public:
  LibraryRun(const tarn::URL& url, std::size_t requests)
      : request_(url), durations_(requests), requests_(requests) {}

  std::vector<double> run(std::size_t inFlight) {
    queue_.sync([&] {
      for (std::size_t index = 0; index < inFlight; ++index) sendNext();
    });
    done_.wait();
    return std::move(durations_);
  }

 private:
  void sendNext() {
    ++started_;
    request_.send(queue_, [this, start = Clock::now()](const tarn::DataResponse& response) {
      if (!response.result.isSuccessful()) {
        std::fprintf(stderr, "%s\n", response.result.error()->message().c_str());
        std::exit(1);
      }
      durations_[finished_++] = std::chrono::duration<double>(Clock::now() - start).count();
      if (started_ < requests_)
        sendNext();
      else if (finished_ == requests_)
        done_.signal();
    });
  }

  tarn::DataGetRequest request_;
  tarn::DispatchQueue queue_{"bench.completions"};
  tarn::DispatchSemaphore done_{0};
  std::vector<double> durations_;
  std::size_t requests_;
  std::size_t started_ = 0;
  std::size_t finished_ = 0;
};

// The field-wise medians of several runs.
Figures median(const std::vector<Figures>& runs) {
  const auto of = [&](double Figures::*field) {
    std::vector<double> values;
    for (const auto& run : runs) values.push_back(run.*field);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  };
  return {of(&Figures::cpuMicroseconds), of(&Figures::requestsPerSecond), of(&Figures::p50),
          of(&Figures::p99)};
}

void print(const char* workload, const char* client, const Figures& figures) {
  std::printf("%-18s %-12s %7.1f us CPU/request %9.0f requests/s  p50 %7.1f us  p99 %7.1f us\n",
              workload, client, figures.cpuMicroseconds, figures.requestsPerSecond, figures.p50,
              figures.p99);
}

struct Workload {
  const char* name;
  std::size_t requests;
  std::size_t inFlight;
};

void compare(const Workload& workload, const std::string& url) {
  const tarn::URL parsed(url);
  // The reference sends the same header fields as the library does.
  std::vector<std::string> headers;
  const auto request = tarn::DataGetRequest(parsed).urlRequest();
  for (const auto& [name, value] : request.allHTTPHeaderFields()) {
    headers.push_back(name + ": " + value);
  }
  constexpr int repetitions = 7;
  std::map<bool, std::vector<Figures>> runs;
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    runs[true].push_back(
        measure([&] { return LibraryRun(parsed, workload.requests).run(workload.inFlight); }));
    runs[false].push_back(measure(
        [&] { return bench::runCurlLoop(url, headers, workload.requests, workload.inFlight); }));
  }
  const Figures library = median(runs[true]);
  const Figures reference = median(runs[false]);
  print(workload.name, "TarnService", library);
  print(workload.name, "libcurl loop", reference);
  std::printf("%-18s %-12s %7.2f times the CPU, p50 %+.1f us\n\n", workload.name, "ratio",
              library.cpuMicroseconds / reference.cpuMicroseconds, library.p50 - reference.p50);
}

// Keeps the process, or with `everywhere` nothing any more, on one processor.
void stay(const cpu_set_t& everywhere, bool onOne) {
  cpu_set_t first;
  CPU_ZERO(&first);
  CPU_SET(0, &first);
  // For all threads that exist as for those to come: each is listed under /proc.
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    const auto identifier = std::stoi(thread.path().filename().string());
    sched_setaffinity(identifier, sizeof(cpu_set_t), onOne ? &first : &everywhere);
  }
}

}  // namespace

int main() {
  const bench::BenchServer server;  // before any thread
  cpu_set_t everywhere;
  sched_getaffinity(0, sizeof everywhere, &everywhere);
  for (const bool onOne : {true, false}) {
    std::printf(onOne ? "One processor for the client:\n\n" : "Left to the scheduler:\n\n");
    stay(everywhere, onOne);
    compare({"sequential GET", 4000, 1}, server.url());
    compare({"64 in flight", 20000, 64}, server.url());
  }
}
