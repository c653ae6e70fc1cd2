// Leaves main() while requests of every kind are on their way: queued, connecting, waiting and
// being answered.
//
//   ExitInFlight URL COUNT    leaves once COUNT of 40 requests are answered

#include <TarnService/TarnService.hpp>

#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const tarn::DispatchSemaphore answered(0);
  for (int index = 0; index < 40; ++index) {
    const tarn::DataGetRequest request(
        tarn::URL(argv[1] + std::string("/") + std::to_string(index)));
    request.send(std::nullopt, [answered](const tarn::DataResponse&) { answered.signal(); });
  }
  for (int left = std::atoi(argv[2]); left > 0; --left) answered.wait();
  return 0;
}
