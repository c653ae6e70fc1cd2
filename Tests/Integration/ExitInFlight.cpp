// Leaves main() while requests of every kind are on their way: queued, connecting, waiting and
// being answered.
//
//   ExitInFlight URL    of a server that never answers

#include <TarnService/TarnService.hpp>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  for (int index = 0; index < 40; ++index) {
    const tarn::DataGetRequest request(
        tarn::URL(argv[1] + std::string("/") + std::to_string(index)));
    request.send(std::nullopt, [](const tarn::DataResponse&) {});
  }
  return 0;
}
