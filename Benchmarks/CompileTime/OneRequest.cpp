#include <TarnService/TarnService.hpp>

#include <string>
#include <utility>

struct GetUser : tarn::DataGetRequestable<GetUser> {
  explicit GetUser(std::string name) : name(std::move(name)) {}

  tarn::URL baseURL() const { return tarn::URL("https://api.example.com/v1"); }
  std::string path() const { return "users/" + name; }

  std::string name;
};

int main() {
  GetUser("ada").send(tarn::DispatchQueue::main(), [](const tarn::DataResponse&) {});
}
