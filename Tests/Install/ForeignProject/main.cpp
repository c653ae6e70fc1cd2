#include <TarnService/TarnService.hpp>

int main() {
  const tarn::URL url("https://api.example.com/v1/users/42");
  const tarn::URLRequest request(url);
  return request.url() == url ? 0 : 1;
}
