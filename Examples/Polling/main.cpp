// Asks for a build again and again until it is complete.

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <atomic>
#include <cstdio>
#include <optional>
#include <string>

namespace {

tarn::URL service;
std::atomic<bool> isWaiting = false;

struct Build {
  int percent;
};

struct GetBuild : tarn::JSONGetRequestable<GetBuild, Build>, tarn::HTTPPolling<GetBuild> {
  static constexpr double pollingRate = 0.01;  // seconds; 300 where it is left out
  tarn::URL baseURL() const { return service; }
  std::string path() const { return "build"; }

  // No poll while the one before has no answer. Without `make`, each poll is a `GetBuild{}`.
  static std::optional<GetBuild> make() {
    if (isWaiting.exchange(true)) return std::nullopt;
    return GetBuild{};
  }
};

void print(const GetBuild&, const tarn::JSONResponse<Build>& response) {
  isWaiting = false;
  const auto& build = response.result.body();
  if (!build) return;
  std::printf("%d %%\n", build->percent);
  if (build->percent < 100) return;
  GetBuild::stopPolling();
  tarn::MainQueue::stop();
}

examples::LoopbackService::Answer answer(const examples::LoopbackService::Request&) {
  static std::atomic<int> percent = 0;
  return {.body = R"({"percent": )" + std::to_string(percent += 50) + "}"};
}

}  // namespace

int main() try {
  const examples::LoopbackService embedded(answer);
  service = tarn::URL(embedded.url());
  GetBuild::poll(print);
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Polling: %s\n", error.what());
  return 1;
}
