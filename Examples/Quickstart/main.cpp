// Declares a request, sends it three times and prints what comes: an answer, a failure and a
// time-out.
//
//   Quickstart [URL]    talks to a service inside this program, or to the one at the URL

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <cstdio>
#include <memory>
#include <string>

namespace {

tarn::URL service = tarn::URL::empty();

// [request]
struct GetUser : tarn::DataGetRequestable<GetUser> {
  std::string name;
  explicit GetUser(std::string name) : name(std::move(name)) {}

  tarn::URL baseURL() const { return service; }
  std::string path() const { return "users/" + name; }
  tarn::TimeInterval timeoutInterval() const { return std::chrono::seconds(1); }
};
// [request]

void print(const std::string& name, const tarn::DataResponse& response) {
  if (const auto error = response.result.error()) {
    std::printf("%-7s failed: %s\n", name.c_str(), error->message().c_str());
    return;
  }
  const auto http = std::dynamic_pointer_cast<const tarn::HTTPURLResponse>(response.urlResponse);
  const auto text = response.result.body()->utf8().value_or("(no text)");
  std::printf("%-7s %s (%s): %s\n", name.c_str(),
              std::string(response.status.description()).c_str(), http->httpVersion().c_str(),
              text.c_str());
}

// One after another, so that the output is the same every time.
void sendNext(std::vector<std::string> names) {
  if (names.empty()) return tarn::MainQueue::stop();
  const std::string name = names.front();
  names.erase(names.begin());
  // [send]
  GetUser(name).send(tarn::DispatchQueue::main(), [name, names](tarn::DataResponse response) {
    print(name, response);
    sendNext(names);
  });
  // [send]
}

examples::LoopbackService::Answer answer(const examples::LoopbackService::Request& request) {
  if (request.path == "/users/ada") return {.body = "Ada Lovelace, London"};
  if (request.path == "/users/stalled") return {.body = "", .stalls = true};
  return {.status = 404, .body = "no such user"};
}

}  // namespace

int main(int argc, char** argv) try {
  std::unique_ptr<examples::LoopbackService> embedded;
  if (argc < 2) embedded = std::make_unique<examples::LoopbackService>(answer);
  service = tarn::URL(embedded ? embedded->url() : argv[1]);

  sendNext({"ada", "nobody", "stalled"});
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Quickstart: %s\n", error.what());
  return 1;
}
