#include "Workload.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <map>
#include <stdexcept>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr int cannot = 64;

Workload parse(int argc, char** argv) {
  if (argc < 3) throw std::invalid_argument("usage: WORKLOAD URL [--OPTION VALUE]...");
  Workload workload;
  workload.name = argv[1];
  workload.url = argv[2];
  const std::map<std::string_view, std::size_t*> numbers{{"--requests", &workload.requests},
                                                         {"--warm-up", &workload.warmUp},
                                                         {"--in-flight", &workload.inFlight},
                                                         {"--connections", &workload.connections},
                                                         {"--body-bytes", &workload.bodyBytes}};
  const std::map<std::string_view, std::string*> texts{{"--file", &workload.file},
                                                       {"--authority", &workload.authority}};
  for (int index = 3; index + 1 < argc; index += 2) {
    const std::string_view option = argv[index];
    const std::string value = argv[index + 1];
    if (numbers.contains(option)) {
      *numbers.at(option) = std::stoul(value);
    } else if (texts.contains(option)) {
      *texts.at(option) = value;
    } else if (option == "--header") {
      workload.headers.push_back(value);
    } else {
      throw std::invalid_argument("unknown option " + std::string(option));
    }
  }
  return workload;
}

double cpuMicroseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto of = [](const timeval& time) {
    return double(time.tv_sec) * 1e6 + double(time.tv_usec);
  };
  return of(usage.ru_utime) + of(usage.ru_stime);
}

double kibibytes(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::stod(line.substr(field.size() + 1));
  }
  throw std::runtime_error("no such line in /proc/self/status");
}

void forgetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

double heapBytes() {
  const auto info = ::mallinfo2();
  return double(info.uordblks + info.hblkhd);
}

void measure(const Workload& workload, Client& client) {
  if (workload.warmUp > 0) {
    Recorder ignored(workload, workload.warmUp);
    client.run(workload.warmUp, ignored);
  }
  Recorder recorder(workload, workload.requests);
  const double peakBefore = kibibytes("VmHWM");
  forgetPeak();
  const double residentBefore = kibibytes("VmRSS");
  const double heapBefore = heapBytes();
  const double cpuBefore = cpuMicroseconds();
  const auto start = Recorder::Clock::now();
  client.run(workload.requests, recorder);
  const double seconds = std::chrono::duration<double>(Recorder::Clock::now() - start).count();
  const double cpu = cpuMicroseconds() - cpuBefore;
  const double heap = heapBytes() - heapBefore;
  const double peak = kibibytes("VmHWM");

  const auto durations = recorder.sortedDurations();
  if (durations.size() != workload.requests) fail("not every request was recorded");
  const double count = double(durations.size());
  const auto percentile = [&](double share) { return durations[std::size_t(share * (count - 1))]; };
  std::printf(
      "{\"requests\":%zu,\"requestsPerSecond\":%.3f,\"bytes\":%.0f,\"cpuMicroseconds\":%.3f,"
      "\"p50\":%.2f,\"p99\":%.2f,\"peakKiB\":%.0f,\"peakBytesPerRequest\":%.0f,"
      "\"keptBytesPerRequest\":%.0f}\n",
      durations.size(), count / seconds, count * double(workload.bodyBytes), cpu / count,
      percentile(0.5), percentile(0.99), std::max(peakBefore, peak),
      (peak - residentBefore) * 1024 / count, heap / count);
}

}  // namespace

Recorder::Recorder(const Workload& workload, std::size_t requests)
    : bodyBytes_(workload.bodyBytes), durations_(requests) {}

void Recorder::record(Clock::time_point start, int status, std::size_t bodyBytes) {
  if (status != 200 || bodyBytes != bodyBytes_) {
    fail("status " + std::to_string(status) + " with " + std::to_string(bodyBytes) +
         " bytes instead of 200 with " + std::to_string(bodyBytes_));
  }
  const auto index = count_.fetch_add(1, std::memory_order_relaxed);
  if (index >= durations_.size()) fail("more answers than requests");
  durations_[index] = Clock::now() - start;
}

std::vector<double> Recorder::sortedDurations() const {
  std::vector<double> result;
  for (std::size_t index = 0; index < count_; ++index) {
    result.push_back(std::chrono::duration<double, std::micro>(durations_[index]).count());
  }
  std::sort(result.begin(), result.end());
  return result;
}

int runClient(int argc, char** argv,
              const std::function<std::unique_ptr<Client>(const Workload&)>& make) try {
  const auto workload = parse(argc, argv);
  const auto client = make(workload);
  if (!client) return cannot;
  measure(workload, *client);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  return 1;
}

void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::fflush(nullptr);
  ::_exit(1);
}

}  // namespace bench
