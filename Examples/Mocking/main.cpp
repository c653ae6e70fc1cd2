// Answers requests without a service: one with a canned user, one with a canned failure.

#include <TarnService/TarnService.hpp>

#include <cstdio>
#include <string>

namespace {

struct User {
  int id;
  std::string name;
};

struct GetUser : tarn::JSONGetRequestable<GetUser, User>, tarn::HTTPTestMockable<GetUser> {
  int id;
  tarn::HTTPStatus testStatus = tarn::HTTPStatus::success;

  explicit GetUser(int number) : id(number) {}
  tarn::URL baseURL() const { return tarn::URL("https://api.example.com"); }
  std::string path() const { return "users/" + std::to_string(id); }

  tarn::TimeInterval mockResponseTime() const { return tarn::TimeInterval(0.01); }
  tarn::Data mockResponseData() const {
    return tarn::Data(R"({"id": )" + std::to_string(id) + R"(, "name": "ada"})");
  }
};

void print(const tarn::JSONResponse<User>& response) {
  if (const auto& user = response.result.body())
    std::printf("user %d is %s\n", user->id, user->name.c_str());
  if (const auto error = response.result.error()) std::puts(error->message().c_str());
}

}  // namespace

int main() {
  tarn::TarnService::isMocked = true;
  GetUser(7).send(tarn::DispatchQueue::main(), print);

  GetUser refused(8);
  refused.testStatus = tarn::HTTPStatus::notFound;
  refused.send(tarn::DispatchQueue::main(), [](const tarn::JSONResponse<User>& response) {
    print(response);
    tarn::MainQueue::stop();
  });
  tarn::MainQueue::run();
}
