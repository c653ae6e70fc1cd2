#include <TarnService/RequestModel/DataRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableArrayAdditions.hpp>

#include <vector>

struct Request : tarn::DataGetRequestable<Request> {};

void sendAll() {
#ifdef FAULT_rangeOfNumbers
  tarn::send(std::vector<int>(), std::nullopt, true, [](const auto& /*responses*/) {});
#endif
  const std::vector<Request> requests;
#ifdef FAULT_updateOfTheResponseOnly
  tarn::send(
      requests, std::nullopt, true, [](const tarn::DataResponse&) {},
      [](const std::vector<tarn::DataResponse>&) {});
#endif
#ifdef FAULT_completionOfOneResponse
  tarn::send(requests, std::nullopt, true, [](const tarn::DataResponse&) {});
#else
  tarn::send(requests, std::nullopt, true, [](const std::vector<tarn::DataResponse>&) {});
#endif
}
