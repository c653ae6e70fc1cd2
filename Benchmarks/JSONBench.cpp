// A page of orders decoded into structs and encoded from them: the library beside nlohmann/json and
// RapidJSON, in one process and one run.

#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Orders.hpp"

namespace {

using bench::OrderPage;

// How many times as fast as each other library this one is to be.
constexpr double aimNlohmann = 6;
constexpr double aimRapidJSON = 1.5;

double cpuSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "JSONBench: %s\n", what);
  std::exit(1);
}

struct Contender {
  const char* name;
  std::function<std::size_t()> run;  // answers a size, so that nothing is optimised away
};

// Microseconds for each contender, who take turns; the median of several repetitions.
std::vector<double> measure(const std::vector<Contender>& contenders) {
  constexpr int repetitions = 9;
  constexpr double secondsPerTurn = 0.08;
  std::vector<int> iterations;
  for (const auto& contender : contenders) {
    const double start = cpuSeconds();
    int count = 0;
    for (; cpuSeconds() - start < secondsPerTurn; ++count) contender.run();
    iterations.push_back(count);
  }
  std::vector<std::vector<double>> turns(contenders.size());
  std::size_t total = 0;
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      const double start = cpuSeconds();
      for (int iteration = 0; iteration < iterations[i]; ++iteration) total += contenders[i].run();
      turns[i].push_back((cpuSeconds() - start) / iterations[i] * 1e6);
    }
  }
  require(total > 0, "a contender did nothing");
  std::vector<double> medians;
  for (auto& times : turns) {
    std::sort(times.begin(), times.end());
    medians.push_back(times[times.size() / 2]);
  }
  return medians;
}

// The library comes first of the contenders.
void compare(const char* workload, std::size_t bytes, const std::vector<Contender>& contenders) {
  const auto times = measure(contenders);
  for (std::size_t i = 0; i < contenders.size(); ++i)
    std::printf("%-24s %-12s %9.1f us %8.1f MB/s\n", workload, contenders[i].name, times[i],
                double(bytes) / times[i]);
  std::printf("%-24s %-12s %9.2f times nlohmann (aim %g), %.2f times RapidJSON (aim %g)\n\n",
              workload, "speed", times[1] / times[0], aimNlohmann, times[2] / times[0],
              aimRapidJSON);
}

void compareDecoding(const char* workload, const OrderPage& page, const std::string& text) {
  const tarn::JSONDecoder decoder;
  require(decoder.decode<OrderPage>(text) == page, "the library read another value");
  require(bench::decodeWithNlohmann(text) == page, "nlohmann/json read another value");
  require(bench::decodeWithRapidJSON(text) == page, "RapidJSON read another value");
  compare(workload, text.size(),
          {{"TarnService", [&] { return decoder.decode<OrderPage>(text).orders.size(); }},
           {"nlohmann", [&] { return bench::decodeWithNlohmann(text).orders.size(); }},
           {"RapidJSON", [&] { return bench::decodeWithRapidJSON(text).orders.size(); }}});
}

void compareEncoding(const char* workload, const OrderPage& page) {
  const tarn::JSONEncoder encoder;
  const std::string text(encoder.encode(page).view());
  std::string other;
  bench::encodeWithRapidJSON(page, &other);
  require(bench::decodeWithNlohmann(text) == page, "the library wrote another value");
  require(bench::decodeWithNlohmann(other) == page, "RapidJSON wrote another value");
  require(bench::decodeWithNlohmann(bench::encodeWithNlohmann(page)) == page,
          "nlohmann/json wrote another value");
  compare(workload, text.size(),
          {{"TarnService", [&] { return encoder.encode(page).size(); }},
           {"nlohmann", [&] { return bench::encodeWithNlohmann(page).size(); }},
           {"RapidJSON", [&] { return bench::encodeWithRapidJSON(page); }}});
}

std::string encoded(const OrderPage& page, bool isPretty = false) {
  tarn::JSONEncoder encoder;
  encoder.outputFormatting.prettyPrinted = isPretty;
  return std::string(encoder.encode(page).view());
}

// As many orders as the size takes.
OrderPage makeOrders(std::size_t bytes) {
  std::size_t count = 1;
  while (encoded(bench::makeOrders(count)).size() < bytes) count += 1 + count / 64;
  return bench::makeOrders(count);
}

}  // namespace

// With --document, only prints the small document.
int main(int argc, char** argv) {
  constexpr std::size_t kibibyte = 1024;
  const auto small = makeOrders(10 * kibibyte);
  if (argc > 1 && std::string_view(argv[1]) == "--document") {
    std::fputs(encoded(small).c_str(), stdout);
    return 0;
  }
  const auto large = makeOrders(1024 * kibibyte);
  compareDecoding("decode 10 KiB", small, encoded(small));
  compareDecoding("decode 10 KiB, pretty", small, encoded(small, true));
  compareDecoding("decode 1 MiB", large, encoded(large));
  compareEncoding("encode 10 KiB", small);
  compareEncoding("encode 1 MiB", large);
}
