// Asks for three prices at once, and books three seats one after another.

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Price {
  int cents;
};

struct GetPrice : tarn::JSONGetRequestable<GetPrice, Price> {
  tarn::URL url;
};

struct BookSeat : tarn::DataPostRequestable<BookSeat> {
  tarn::URL url;
  tarn::Data body;
  tarn::TimeInterval timeoutInterval{10};  // how long the batch waits for each answer
};

examples::LoopbackService::Answer answer(const examples::LoopbackService::Request& request) {
  if (request.path == "/seats") return {.body = "booked " + request.body};
  return {.body = R"({"cents": 250})"};
}

void bookSeats(const tarn::URL& url) {
  std::vector<BookSeat> seats;
  for (const char* name : {"A1", "A2", "B1"}) seats.push_back({{}, url, tarn::Data(name)});
  const bool inParallel = false;
  tarn::send(seats, tarn::DispatchQueue::main(), inParallel, [](const auto& responses) {
    for (const auto& response : responses)
      if (response.data) std::puts(std::string(response.data->view()).c_str());
    tarn::MainQueue::stop();
  });
}

}  // namespace

int main() try {
  const examples::LoopbackService service(answer);
  const std::vector<GetPrice> prices(3, GetPrice{{}, tarn::URL(service.url() + "/price")});
  tarn::send(prices, tarn::DispatchQueue::main(), true, [&](const auto& responses) {
    int total = 0;
    for (const auto& response : responses)
      if (const auto& price = response.result.body()) total += price->cents;
    std::printf("%zu answers, %d cents\n", responses.size(), total);
    bookSeats(tarn::URL(service.url() + "/seats"));
  });
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Batch: %s\n", error.what());
  return 1;
}
