// Sends a file to a URL, whatever its size, and prints the answer.
//
//   Upload [--post] FILE URL    with PUT, or with POST
//
// Ends with 0, with 1 where the upload failed and 2 where it was called wrongly.

#include <TarnService/TarnService.hpp>

#include <cstdio>
#include <string>

namespace {

// [request]
struct SendFile : tarn::UploadRequestable<SendFile, tarn::HTTPBodyRequestableDefaults<SendFile>> {
  tarn::URL url;
  tarn::HTTPMethod method;
  tarn::File body;
  SendFile(tarn::URL url, tarn::HTTPMethod method, tarn::File body)
      : url(std::move(url)), method(std::move(method)), body(std::move(body)) {}
};
// [request]

int print(const tarn::DataResponse& response) {
  if (response.data) std::printf("%s", response.data->utf8().value_or("").c_str());
  if (const auto error = response.result.error()) {
    std::fprintf(stderr, "Upload: %s\n", error->message().c_str());
    return 1;
  }
  std::printf("Sent: %s\n", std::string(response.status.description()).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  const bool posts = argc > 1 && std::string(argv[1]) == "--post";
  if (argc != (posts ? 4 : 3)) {
    std::fputs("usage: Upload [--post] FILE URL\n", stderr);
    return 2;
  }
  const SendFile request(tarn::URL(argv[argc - 1]),
                         posts ? tarn::HTTPMethod::post : tarn::HTTPMethod::put,
                         tarn::File(tarn::URL::fileURL(argv[argc - 2])));
  int status = 1;
  request.send(tarn::DispatchQueue::main(), [&status](const tarn::DataResponse& response) {
    status = print(response);
    tarn::MainQueue::stop();
  });
  tarn::MainQueue::run();
  return status;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Upload: %s\n", error.what());
  return 2;
}
