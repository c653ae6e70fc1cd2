// Creates a user at a service that is busy at first: the request is sent again until it succeeds.

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <atomic>
#include <cstdio>
#include <string>

namespace {

struct User {
  int id;
  std::string name;
};

struct CreateUser : tarn::JSONPostRequestable<CreateUser, User>,
                    tarn::HTTPRetryAttempting<CreateUser> {
  static constexpr double retryInterval = 0.01;  // seconds before each retry
  static constexpr std::int64_t retryLimit = 3;  // failures that are retried
  static constexpr std::int64_t retryDelta = 0;  // seconds more each time; 1 where it is left out
  tarn::URL url;
  User body;
};

// Turns the first two requests away.
examples::LoopbackService::Answer answer(const examples::LoopbackService::Request&) {
  static std::atomic<int> requests = 0;
  if (++requests <= 2) return {.status = 503, .body = "busy"};
  return {.body = R"({"id": 7, "name": "ada"})"};
}

}  // namespace

int main() try {
  const examples::LoopbackService service(answer);
  const CreateUser createUser{{}, {}, tarn::URL(service.url()), {0, "ada"}};
  createUser.sendAttemptingRetry(tarn::DispatchQueue::main(), [](const auto& result) {
    for (const auto& failed : result.failedResponses())
      if (const auto error = failed.result.error()) std::puts(error->message().c_str());
    if (const auto& response = result.successfulResponse())
      if (const auto& user = response->result.body())
        std::printf("%s is user %d\n", user->name.c_str(), user->id);
    tarn::MainQueue::stop();
  });
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Retry: %s\n", error.what());
  return 1;
}
