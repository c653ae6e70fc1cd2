// Declares a request with a typed answer, sends it three times and prints what comes: an answer, a
// refusal and a document that does not fit.
//
//   Quickstart [URL]    talks to a service inside this program, or to the one at the URL

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

tarn::URL service;

// [request]
struct User {
  int id;
  std::string name;
  std::string city;
};

struct GetUser : tarn::JSONGetRequestable<GetUser, User> {
  std::string name;
  tarn::URL baseURL() const { return service; }
  std::string path() const { return "users/" + name; }
};
// [request]

void print(const User& user) {
  std::printf("%s lives in %s\n", user.name.c_str(), user.city.c_str());
}

void print(const std::string& name, const tarn::Error& error) {
  const auto* answer = error.as<tarn::HTTPResponseError>();
  const auto where = answer ? answer->decodingError() : std::nullopt;
  std::printf("%s: %s\n", name.c_str(), (where ? *where : error).message().c_str());
}

std::vector<std::string> names{"grace", "nobody", "ada"};

// One after another, so that the output is the same every time.
void sendNext() {
  if (names.empty()) return tarn::MainQueue::stop();
  const std::string name = names.back();
  names.pop_back();
  // [send]
  GetUser{{}, name}.send(tarn::DispatchQueue::main(), [name](tarn::JSONResponse<User> response) {
    if (const auto& user = response.result.body()) print(*user);
    if (const auto error = response.result.error()) print(name, *error);
    sendNext();
  });
  // [send]
}

examples::LoopbackService::Answer answer(const examples::LoopbackService::Request& request) {
  if (request.path == "/users/ada")
    return {.body = R"({"id": 1, "name": "Ada Lovelace", "city": "London"})"};
  if (request.path == "/users/grace")
    return {.body = R"({"id": 2, "name": "Grace Hopper", "city": 1906})"};
  return {.status = 404, .body = "no such user"};
}

}  // namespace

int main(int argc, char** argv) try {
  std::unique_ptr<examples::LoopbackService> embedded;
  if (argc < 2) embedded = std::make_unique<examples::LoopbackService>(answer);
  service = tarn::URL(embedded ? embedded->url() : argv[1]);

  sendNext();
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Quickstart: %s\n", error.what());
  return 1;
}
