// Leaves main() while requests of every kind are on their way: queued, connecting, waiting and
// being answered.
//
//   ExitInFlight URL COUNT    leaves once COUNT of 40 requests are answered
//   ExitInFlight URL COUNT download    the same with downloads

#include <TarnService/TarnService.hpp>

#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const tarn::DispatchSemaphore answered(0);
  for (int index = 0; index < 40; ++index) {
    const tarn::URL url(argv[1] + std::string("/") + std::to_string(index));
    if (argc > 3) {
      const tarn::DownloadRequest request(url);
      request.send(std::nullopt,
                   [answered](const tarn::DownloadResponse<tarn::File>&) { answered.signal(); });
      continue;
    }
    const tarn::DataGetRequest request(url);
    request.send(std::nullopt, [answered](const tarn::DataResponse&) { answered.signal(); });
  }
  for (int left = std::atoi(argv[2]); left > 0; --left) answered.wait();
  return 0;
}
