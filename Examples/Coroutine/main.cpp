// Asks for users and their cities in coroutines: one after another, and at the same time.

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <cstdio>
#include <string>

namespace {

tarn::URL service;

struct User {
  std::string name;
  std::string city;
};
struct City {
  int founded;
};

template <class Answer>
struct Get : tarn::JSONGetRequestable<Get<Answer>, Answer> {
  explicit Get(std::string path) : path(std::move(path)) {}
  tarn::URL baseURL() const { return service; }
  std::string path;
};

tarn::Future<std::string> describe(std::string id) {
  const Get<User> getUser("users/" + id);
  const User user = (co_await getUser.send()).body;
  const Get<City> getCity("cities/" + user.city);
  const City city = (co_await getCity.send()).body;
  co_return user.name + " lives in " + user.city + ", founded in " + std::to_string(city.founded);
}

tarn::Future<void> printBoth(tarn::DispatchQueue printing) {
  const auto ada = describe("ada");
  const auto nobody = describe("nobody").recover([](const auto& error) { return error.message(); });
  std::puts((co_await ada.on(printing)).c_str());
  std::puts((co_await nobody.on(printing)).c_str());
}

examples::LoopbackService::Answer answer(const examples::LoopbackService::Request& request) {
  if (request.path == "/users/ada") return {.body = R"({"name": "Ada", "city": "London"})"};
  if (request.path == "/cities/London") return {.body = R"({"founded": 47})"};
  return {.status = 404, .body = "not here"};
}

}  // namespace

int main() try {
  const examples::LoopbackService embedded(answer);
  service = tarn::URL(embedded.url());
  printBoth(tarn::DispatchQueue("example.printing")).get();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Coroutine: %s\n", error.what());
  return 1;
}
